#include "apply/staged_set.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "base/directories.h"
#include "base/failure.h"
#include "trust/digest.h"

namespace Vantrell {

namespace {

// From directory to directory by descriptor: a path could name another directory, or none.
void CollectFilesIn(const Directory& directory, const std::string& path,
                    std::vector<std::string>& files) {
  while (const char* name = NextEntry(directory)) {
    const int parent = dirfd(directory.get());
    struct stat status = {};
    if (fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    const std::string childPath = path + "/" + name;
    if (!S_ISDIR(status.st_mode)) {
      files.push_back(childPath);
    } else if (const Directory child = OpenDirectoryAt(parent, name)) {
      CollectFilesIn(child, childPath, files);
    }
  }
}

}  // namespace

void CollectStagedFiles(const std::string& directory, std::vector<std::string>& files) {
  if (const Directory opened = OpenDirectory(directory)) CollectFilesIn(opened, directory, files);
}

bool VerifyStagedSet(const std::string& stagedRoot, const UpdateManifest& manifest,
                     std::string& error) {
  std::vector<std::string> found;
  CollectStagedFiles(stagedRoot, found);
  if (found.empty()) return FailWith("the staged set is empty", error);
  if (found.size() != manifest.files.size()) {
    return FailWith("the staged set has " + std::to_string(found.size()) +
                        " files, the manifest lists " + std::to_string(manifest.files.size()),
                    error);
  }
  for (const ManifestFile& file : manifest.files) {
    std::string hash;
    if (!Sha256File(stagedRoot + "/" + file.name, hash)) {
      return FailWith(file.name + ": missing from the staged set", error);
    }
    if (hash != file.sha256) {
      return FailWith(file.name + ": sha256 no longer matches the manifest", error);
    }
  }
  return true;
}

}  // namespace Vantrell
