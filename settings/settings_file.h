#pragma once

// The settings file: lines of Key=value. It is not cached: each use of a setting reads the file, so
// an edit by hand takes effect at the next use. No lock is taken. A single writer replaces the
// file by a rename, so that a reader sees the old file or the new one. Two writers at the same
// time share one temporary file, and can leave a mixture of both or an empty file; this is
// accepted, because only root and users at the machine can cause a write. Any thread may call these
// functions; they log nothing.

#include <string>
#include <string_view>

namespace Vantrell {

constexpr char ConfigPath[] = "/etc/vantrell-harbor/update.conf";

// Removes blanks, tabs, carriage returns and line feeds at the end, but only blanks and tabs at the
// start. A line end at the start stays, so that such a text does not equal the expected one.
std::string TrimSetting(std::string_view text);

// The value of the first line that has this key and a value that is not empty. If there is none,
// or the file cannot be read, returns `fallback`; a null `fallback` is an empty string.
std::string ReadSetting(const char* key, const char* fallback);
std::string ReadSettingFrom(const std::string& path, const char* key, const char* fallback);

// Replaces every line of the key, or adds one at the end, and keeps all other lines byte for byte.
// A file that cannot be opened is treated as empty; one that opens but cannot be read to its end
// gives false. True when the new file, mode 0644, is in place. On false the old file is unchanged,
// and a temporary file, the same name with ".tmp" added, may remain. Nothing is synced to disk.
[[nodiscard]] bool WriteSetting(const char* key, const std::string& value);
[[nodiscard]] bool WriteSettingTo(const std::string& path, const char* key,
                                  const std::string& value);

// Whether this is "dev", "beta" or "prod", in lower case.
bool IsRing(const std::string& text);

// The update ring: "dev", "beta" or "prod". Upper and lower case are the same in the setting; an
// unknown ring is read as "prod".
std::string ReadChannel();
std::string ParseChannel(std::string setting);

// The host of the update server, with a port or a path if the setting has one. It is the text that
// follows "https://" in a URL.
std::string ReadEndpoint();
std::string ParseHost(std::string setting);

}  // namespace Vantrell
