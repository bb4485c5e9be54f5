#pragma once

// What dpkg knows about the client's package. It logs nothing.

#include <string>

namespace Vantrell::Control {

struct PackageState {
  bool known = false;   // false when dpkg-query does not answer, or does not know the package
  std::string version;  // may be empty
  std::string want;     // "install", "hold", "deinstall", "purge" or "unknown"
  std::string state;    // such as "installed" or "half-installed"
  bool reinstallRequired = false;

  bool IsPaused() const { return want == "hold"; }
  bool IsInstalled() const { return known && state == "installed" && !reinstallRequired; }
};

PackageState ReadPackageState();

}  // namespace Vantrell::Control
