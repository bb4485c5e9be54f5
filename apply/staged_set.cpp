#include "apply/staged_set.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "base/directories.h"
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
  if (found.empty()) {
    error = "the staged set is empty";
    return false;
  }
  if (found.size() != manifest.files.size()) {
    error = "the staged set has " + std::to_string(found.size()) + " files, the manifest lists " +
            std::to_string(manifest.files.size());
    return false;
  }
  for (const ManifestFile& file : manifest.files) {
    std::string hash;
    if (!Sha256File(stagedRoot + "/" + file.name, hash)) {
      error = file.name + ": missing from the staged set";
      return false;
    }
    if (hash != file.sha256) {
      error = file.name + ": sha256 no longer matches the manifest";
      return false;
    }
  }
  return true;
}

}  // namespace Vantrell
