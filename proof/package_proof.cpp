#include "proof/package_proof.h"

#include <sys/stat.h>

#include <string_view>
#include <utility>
#include <vector>

#include "apply/staged_set.h"
#include "base/deployment.h"
#include "base/failure.h"
#include "base/file_content.h"
#include "settings/settings_file.h"
#include "trust/digest.h"
#include "trust/witness_quorum.h"
#include "update/installed_record.h"
#include "update/state_directory.h"

namespace Vantrell {
namespace {

// Fills in the hash and the size of a file.
bool Measure(const std::string& path, ManifestFile& file) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0 || !Sha256File(path, file.sha256)) return false;
  file.size = status.st_size;
  return true;
}

bool ProveRollbackCopy(const std::string& copy, std::string& error) {
  std::string hash;
  if (!Sha256File(copy, hash)) return FailWith("its copy cannot be read", error);
  if (RecordedPackageHash(ReadWholeFile(InstalledRecordPath())) == hash) return true;
  return FailWith("it is not the package that was accepted last", error);
}

}  // namespace

bool SplitStagedPath(const std::string& path, std::string& version, std::string& name) {
  const std::string root = std::string(StateDir) + "/client-staging/";
  if (!path.starts_with(root)) return false;
  const std::string rest = path.substr(root.size());
  const size_t slash = rest.find('/');
  if (slash == std::string::npos || slash == 0 || slash + 1 == rest.size()) return false;
  version = rest.substr(0, slash);
  name = rest.substr(slash + 1);
  return true;
}

bool DescribeStagedRelease(const std::string& releaseDir, const std::string& name,
                           const std::string& copy, UpdateManifest& manifest, std::string& error) {
  std::vector<std::string> paths;
  CollectStagedFiles(releaseDir, paths);
  bool found = false;
  for (const std::string& path : paths) {
    ManifestFile file;
    file.name = path.substr(releaseDir.size() + 1);
    const bool isPackage = file.name == name;
    if (!Measure(isPackage ? copy : path, file)) {
      return FailWith(file.name + " cannot be read", error);
    }
    found = found || isPackage;
    manifest.files.push_back(std::move(file));
  }
  if (!found) error = name + " is not staged";
  return found;
}

bool ProvePackage(const std::string& path, const std::string& copy, std::string& error) {
  if (path == RollbackCopyPath()) return ProveRollbackCopy(copy, error);
  UpdateManifest manifest;
  std::string name;
  if (!SplitStagedPath(path, manifest.version, name)) {
    return FailWith(path + " is not a staged file", error);
  }
  // Not StagedReleaseDir(), which makes directories.
  const std::string releaseDir = path.substr(0, path.size() - name.size() - 1);
  return DescribeStagedRelease(releaseDir, name, copy, manifest, error) &&
         VerifyRelease(manifest, ReleaseComponent, ReadChannel(), error);
}

}  // namespace Vantrell
