#include "update/host_inventory.h"

#include <sys/utsname.h>

#include <cstdio>
#include <string_view>

#include "apply/process_runner.h"
#include "base/deployment.h"
#include "base/directories.h"
#include "base/file_content.h"
#include "base/lines.h"
#include "base/stream.h"
#include "update/state_directory.h"

namespace Vantrell {

std::string FindPrettyName(const std::string& osRelease) {
  constexpr std::string_view Key = "PRETTY_NAME=";
  std::string name;
  for (const std::string& line : SplitLines(osRelease)) {
    if (!line.starts_with(Key)) continue;
    name = line.substr(Key.size());
    if (name.size() >= 2 && name.front() == '"' && name.back() == '"') {
      name = name.substr(1, name.size() - 2);
    }
  }
  return name;
}

std::string OsBuildString() {
  std::string build = FindPrettyName(ReadWholeFile("/etc/os-release"));
  struct utsname system = {};
  if (uname(&system) != 0) return build;
  if (!build.empty()) build += " ";
  return build + system.release + " " + system.machine;
}

std::string LoadInstallId(const std::string& path, const std::string& uuidSource) {
  std::string stored = TrimLineEnd(ReadWholeFile(path));
  if (!stored.empty()) return stored;

  std::string fresh = TrimLineEnd(ReadWholeFile(uuidSource));
  if (fresh.empty()) return "unknown";
  // This call returns the new id even if it cannot be stored.
  MakeParentDirs(path, 0755);
  const Stream file(fopen(path.c_str(), "wbe"));
  if (file) fputs((fresh + "\n").c_str(), file.get());
  return fresh;
}

std::string InstallId() { return LoadInstallId(InstallIdPath(), "/proc/sys/kernel/random/uuid"); }

std::string InstalledClientVersion() {
  std::string output;
  const int32_t result =
      RunProcess({"dpkg-query", "-W", "-f=${Version}", ClientPackageName}, {}, output);
  return result == 0 ? LastLine(output) : "";
}

}  // namespace Vantrell
