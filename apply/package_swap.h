#pragma once

// Installing a package file, for an update and for a rollback, and recording what was accepted.
// Runs on the thread of the apply.

#include <string>

#include "update/update.h"

namespace Vantrell {

// Installs a ".deb", given by its absolute path, with apt-get: without questions, with downgrades
// allowed, and with up to 300 s of waiting for the package lock. True when apt-get exited with 0.
// False: `error` is "apt-get exited ...", and the whole output is logged.
[[nodiscard]] bool SwapClientPackage(const std::string& packagePath, std::string& error);

// Writes the files of an accepted release to installed.sha256 and makes its package the rollback
// copy. Failures are not reported, because they do not change the result of the apply.
void RecordAppliedSet(const UpdateManifest& manifest, const std::string& packagePath);

}  // namespace Vantrell
