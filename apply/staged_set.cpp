#include "apply/staged_set.h"

#include <sys/stat.h>

#include <string_view>

#include "base/directories.h"
#include "trust/digest.h"

namespace Vantrell {

void CollectStagedFiles(const std::string& directory, std::vector<std::string>& files) {
  const Directory entries = OpenDirectory(directory);
  if (!entries) return;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    const std::string path = directory + "/" + entry->d_name;
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) continue;
    if (S_ISDIR(status.st_mode)) {
      CollectStagedFiles(path, files);
    } else {
      files.push_back(path);
    }
  }
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
