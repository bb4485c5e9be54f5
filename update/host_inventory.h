#pragma once

// What a check request says about this machine. Each call asks the system afresh; nothing here
// fails, logs or takes a lock, and any thread may call it.

#include <string>

namespace Vantrell {

// Pretty name of the distribution, kernel release and machine, with blanks between; what
// cannot be told is left out.
std::string OsBuildString();

// The name in a text of the form of /etc/os-release. Its last PRETTY_NAME line decides; double
// quotes around the value go, nothing else is interpreted.
std::string PrettyNameIn(const std::string& osRelease);

// The identity of this installation: made from a kernel UUID when there is none yet, and then
// kept. "unknown" when none can be read or made. Where it cannot be stored, each call gives
// another one.
std::string InstallId();
std::string InstallIdIn(const std::string& stateDir, const std::string& uuidSource);

// Version of the installed client package, empty when it cannot be told. Runs dpkg-query.
std::string InstalledClientVersion();

}  // namespace Vantrell
