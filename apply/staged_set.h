#pragma once

// Verification of a staged directory directly before an install: it must contain as many files as
// the manifest lists, each with its hash. Any thread may call these; they only read and log
// nothing.

#include <string>
#include <vector>

#include "update/update.h"

namespace Vantrell {

// True when the directory matches. False: `error` names the first difference. A file that does not
// exist, is a link or cannot be read to its end is reported as missing. Each file is read once.
[[nodiscard]] bool VerifyStagedSet(const std::string& stagedRoot, const UpdateManifest& manifest,
                                   std::string& error);

// Appends the paths of everything below `directory` that is not a directory. Links are listed and
// not followed. A directory that cannot be read is treated as empty.
void CollectStagedFiles(const std::string& directory, std::vector<std::string>& files);

}  // namespace Vantrell
