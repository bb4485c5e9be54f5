#include "settings/settings_file.h"

#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <vector>

#include "base/deployment.h"
#include "base/directories.h"
#include "base/file_content.h"
#include "base/lines.h"
#include "base/stream.h"

namespace Vantrell {
namespace {

// False for a line without a setting. A line is a comment only if "#" is its first byte.
bool SplitSettingLine(const std::string& line, std::string& key, std::string& value) {
  const size_t equals = line.find('=');
  if (equals == std::string::npos || line[0] == '#') return false;
  key = TrimSetting(std::string_view(line).substr(0, equals));
  value = TrimSetting(std::string_view(line).substr(equals + 1));
  return true;
}

void ReplaceOrAppend(std::vector<std::string>& lines, const char* key, const std::string& value) {
  const std::string newLine = key + ("=" + value);
  bool replaced = false;
  for (std::string& line : lines) {
    std::string lineKey;
    std::string oldValue;
    if (!SplitSettingLine(line, lineKey, oldValue) || lineKey != key) continue;
    line = newLine;
    replaced = true;
  }
  if (!replaced) lines.push_back(newLine);
}

bool WriteLines(const std::string& path, const std::vector<std::string>& lines) {
  const Stream file(fopen(path.c_str(), "wbe"));
  if (!file) return false;
  for (const std::string& line : lines) {
    fwrite(line.data(), 1, line.size(), file.get());
    fputc('\n', file.get());
  }
  // The stream keeps an error of the writes above until here.
  return fflush(file.get()) == 0 && ferror(file.get()) == 0;
}

}  // namespace

std::string TrimSetting(std::string_view text) {
  text = TrimEnd(text, " \t\r\n");
  const size_t start = text.find_first_not_of(" \t");
  return start == std::string_view::npos ? "" : std::string(text.substr(start));
}

std::string ReadSettingFrom(const std::string& path, const char* key, const char* fallback) {
  for (const std::string& line : SplitLines(ReadWholeFile(path))) {
    std::string lineKey;
    std::string value;
    if (SplitSettingLine(line, lineKey, value) && lineKey == key && !value.empty()) return value;
  }
  return fallback == nullptr ? "" : fallback;
}

std::string ReadSetting(const char* key, const char* fallback) {
  return ReadSettingFrom(ConfigPath, key, fallback);
}

bool WriteSettingTo(const std::string& path, const char* key, const std::string& value) {
  std::string content;
  // A rewrite of a part of the file would lose the other settings.
  if (!ReadOptionalFile(path, content)) return false;
  std::vector<std::string> lines = SplitLines(content);
  ReplaceOrAppend(lines, key, value);

  MakeParentDirs(path, 0755);  // if this fails, so does the open
  const std::string temporary = path + ".tmp";
  if (!WriteLines(temporary, lines)) return false;
  // A new file has this mode already, an older temporary file may have another.
  chmod(temporary.c_str(), 0644);
  return rename(temporary.c_str(), path.c_str()) == 0;
}

bool WriteSetting(const char* key, const std::string& value) {
  return WriteSettingTo(ConfigPath, key, value);
}

bool IsRing(const std::string& text) { return text == "dev" || text == "beta" || text == "prod"; }

std::string ParseChannel(std::string setting) {
  for (char& byte : setting) byte = static_cast<char>(tolower(static_cast<unsigned char>(byte)));
  return IsRing(setting) ? setting : "prod";
}

std::string ReadChannel() { return ParseChannel(ReadSetting("Channel", "prod")); }

std::string ParseHost(std::string setting) {
  if (setting.starts_with("https://")) setting.erase(0, 8);
  while (setting.ends_with('/')) setting.pop_back();
  return setting;
}

std::string ReadEndpoint() { return ParseHost(ReadSetting("Endpoint", DefaultUpdateHost)); }

}  // namespace Vantrell
