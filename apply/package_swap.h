#pragma once

// The state of the client package on the machine: installing one package file, forward and
// back, and the bookkeeping of what was accepted. Runs on the thread of the apply.

#include <string>

#include "update/update.h"

namespace Vantrell {

// Installs a ".deb", given by its absolute path, with apt-get: no question, downgrades
// allowed, up to 300 s of wait for the package lock. True when apt-get exited with 0. False:
// `error` is "apt-get exited ..." and the whole output is in the log.
[[nodiscard]] bool SwapClientPackage(const std::string& packagePath, std::string& error);

// Notes the files of an accepted release in installed.sha256 and makes its package the copy
// to go back to. Nothing of it can fail an apply, and nothing is reported.
void RecordAppliedSet(const UpdateManifest& manifest, const std::string& packagePath);

// Folder of the rollback copy; not made here.
std::string ClientRollbackDir();

// The rollback copy: the package that this service last accepted.
std::string RollbackCopyPath();

}  // namespace Vantrell
