#pragma once

// Proves once more, directly before an install, that a staged directory holds what the
// manifest lists: as many files, each with its hash. Only reads; takes no lock; logs nothing.

#include <string>
#include <vector>

#include "update/update.h"

namespace Vantrell {

// True when the set matches. False: `error` names the first difference. A file that is absent,
// a link, or cannot be read to its end counts as missing. Each file is read once, whole, in
// steps.
[[nodiscard]] bool VerifyStagedSet(const std::string& stagedRoot, const UpdateManifest& manifest,
                                   std::string& error);

// Appends the paths of all that is no directory below `directory`. Links are listed and not
// followed; what cannot be looked at counts as empty.
void CollectStagedFiles(const std::string& directory, std::vector<std::string>& files);

}  // namespace Vantrell
