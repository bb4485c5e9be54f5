#pragma once

// The package of a release: the one file that an apply installs. Any thread may call these; they
// log nothing.

#include <string>

#include "update/update.h"

namespace Vantrell {

// Finds the package and gives its path below `stagedRoot`. Other files are allowed and not
// installed. False with an `error` unless exactly one name ends in ".deb".
[[nodiscard]] bool FindPackage(const std::string& stagedRoot, const UpdateManifest& manifest,
                               std::string& packagePath, std::string& error);

// Whether the name, version and architecture in the package are those of the client in this
// version. Runs dpkg-deb.
[[nodiscard]] bool CheckPackageFields(const std::string& packagePath, const std::string& version,
                                      std::string& error);

}  // namespace Vantrell
