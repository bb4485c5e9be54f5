#pragma once

// The comparison of a package file with the package that is installed.

#include <string>

namespace Vantrell::Control {

// Whether the file is the package of the installed client: same name, version and files. `error` is
// a sentence if not.
[[nodiscard]] bool IsInstalledPackage(const std::string& path, std::string& error);

}  // namespace Vantrell::Control
