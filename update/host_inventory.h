#pragma once

// What a check request tells about this machine. Each call reads it anew. None of these functions
// fails, logs or takes a lock; any thread may call them.

#include <string>

namespace Vantrell {

// The pretty name of the distribution, the kernel release and the machine, with blanks between
// them. What cannot be read is left out.
std::string OsBuildString();

// The pretty name in the text of an /etc/os-release: the value of its last PRETTY_NAME line,
// without the double quotes around it. Nothing else in the value is interpreted.
std::string FindPrettyName(const std::string& osRelease);

// The identity of this installation. It is stored in the state directory; if there is none yet, it
// is made from a random UUID of the kernel. "unknown" when none can be read or made. If it cannot
// be stored, each call returns another one.
std::string InstallId();
std::string LoadInstallId(const std::string& path, const std::string& uuidSource);

// The version of the installed client package, or empty when it cannot be found out. Runs
// dpkg-query.
std::string InstalledClientVersion();

}  // namespace Vantrell
