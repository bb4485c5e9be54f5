#pragma once

// The one settings file: lines of Key=value. It is never cached: each use of a setting opens
// the file, so that an edit by hand works at the next use. No lock is taken: a rewrite
// arrives by rename, and a reader sees the old file or the new one. Two writers at once share
// one temporary file; that is accepted, since only a user at the machine makes one write. Any
// thread may call everything here; nothing here logs.

#include <string>
#include <string_view>

namespace Vantrell {

constexpr char ConfigPath[] = "/etc/vantrell-harbor/update.conf";

// Takes blanks, tabs, carriage returns and line feeds off the end, but only blanks and tabs
// off the start: a line feed in front stays, and makes the text unequal to what it should be.
std::string TrimSetting(std::string_view text);

// The value of the first line with this key and a value; lines with an empty value are passed
// over. Without one, and when the file cannot be read, `fallback` (null: an empty string).
std::string ReadSetting(const char* key, const char* fallback);
std::string ReadSettingFrom(const std::string& path, const char* key, const char* fallback);

// Replaces every line of the key, or adds one at the end, and keeps all other lines byte for
// byte; a file that cannot be read counts as empty. True when the new file, mode 0644, is in
// place. On false the old file is untouched, and a file of the same name with ".tmp" behind it
// may be left. Nothing is synced to disk.
[[nodiscard]] bool WriteSetting(const char* key, const std::string& value);
[[nodiscard]] bool WriteSettingTo(const std::string& path, const char* key,
                                  const std::string& value);

// The update ring: "dev", "beta" or "prod". The file is read in any case; anything unknown
// is "prod".
std::string ReadChannel();
std::string ChannelOf(std::string setting);

// Host of the update server, with a port or path if the setting has one: the text to put
// behind "https://".
std::string ReadEndpoint();
std::string HostOf(std::string setting);

}  // namespace Vantrell
