#pragma once

// Proof of a package file that the update service is about to install, by a process that shares
// nothing with the service. The file itself may change at any time: a check pass that runs beside
// the install can write it, with bytes that the download host chooses. So the caller makes a copy
// that only it can write, has the copy proved, and installs the copy.
//
// Runs on the main thread. The proof of a staged release makes up to nine requests.

#include <string>

#include "update/update.h"

namespace Vantrell {

// True when the content of `copy` is that of the package for which `path`, an absolute path, is the
// place:
// - for a file of a staged release, what the three witnesses publish now, for the ring that is set
//   now, and a release key signed;
// - for the rollback copy, what installed.sha256 records. No check pass writes there, and nothing
//   else does while an apply installs.
// False: `error` says why. A refusal by a witness or a key is logged too.
[[nodiscard]] bool ProvePackage(const std::string& path, const std::string& copy,
                                std::string& error);

// Finds VERSION and NAME in "client-staging/VERSION/NAME" below the state directory. A version that
// contains a "/" is not supported.
[[nodiscard]] bool SplitStagedPath(const std::string& path, std::string& version,
                                   std::string& name);

// Makes the manifest of a release again from its staged files, with the content of `copy` in the
// place of the package `name`. The witnesses know the digest of the true manifest, so a file that
// is read in the wrong state leads to a refusal. A size is that of the file, which the offer need
// not declare; such a release is refused too. False when a file cannot be read, or `name` is not
// there.
[[nodiscard]] bool DescribeStagedRelease(const std::string& releaseDir, const std::string& name,
                                         const std::string& copy, UpdateManifest& manifest,
                                         std::string& error);

}  // namespace Vantrell
