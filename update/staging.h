#pragma once

// Staging: proves a release, then fetches its files into a directory and compares their hashes.
// Runs on the caller's thread without a lock. Only the proof logs.

#include <string>

#include "update/update.h"

namespace Vantrell {

// True: the release is proved, and every file is below `stagingDir` and has the hash of the
// manifest. False: `error` says why, in words that can follow "refused: ". If the proof failed,
// nothing was written; otherwise the caller must remove the directory. The files are fetched one
// after the other, and each is synced to disk before it is hashed.
[[nodiscard]] bool StageRelease(const UpdateManifest& manifest, const std::string& component,
                                const std::string& channel, const std::string& stagingDir,
                                std::string& error);

// Fetches one URL into one file, within half an hour, and syncs the file to disk. The content does
// not stay in memory. A link at the path is not followed. When the transfer or the sync fails, the
// file is removed.
[[nodiscard]] bool DownloadToFile(const std::string& url, const std::string& path,
                                  std::string& error);

}  // namespace Vantrell
