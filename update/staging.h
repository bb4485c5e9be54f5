#pragma once

// Turns an offer into a directory of files that were fetched and hashed, after the release has
// been proved. Runs on the caller's thread without a lock; logs nothing of its own.

#include <string>

#include "update/update.h"

namespace Vantrell {

// True: the release is proved, and every file lies below `stagingDir` with the hash that the
// manifest names. False: `error` says why, in words fit to follow "refused: "; when the proof
// failed nothing was written, otherwise the caller removes the directory. Files come one at a
// time, each on disk (fsync) before it is hashed.
[[nodiscard]] bool StageRelease(const UpdateManifest& manifest, const std::string& component,
                                const std::string& channel, const std::string& stagingDir,
                                std::string& error);

// Path of the root of all staged releases. Makes it and sets its mode, 0755; a failure shows
// when a file cannot be created.
std::string ClientStagingDir();

// Fetches one URL into one file, half an hour at most, without holding it in memory. A link at
// the path is not followed. On false nothing of a failed transfer is left at the path.
[[nodiscard]] bool DownloadToFile(const std::string& url, const std::string& path,
                                  std::string& error);

}  // namespace Vantrell
