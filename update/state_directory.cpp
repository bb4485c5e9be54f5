#include "update/state_directory.h"

#include <sys/stat.h>

#include "base/directories.h"

namespace Vantrell {

std::string InstallIdPath() { return std::string(StateDir) + "/install-id"; }

std::string InstalledRecordPath() { return std::string(StateDir) + "/installed.sha256"; }

std::string ClientStagingDir() {
  std::string path = std::string(StateDir) + "/client-staging";
  MakeDirs(StateDir, 0755);
  MakeDirs(path, 0755);
  chmod(path.c_str(), 0755);
  return path;
}

std::string StagedReleaseDir(const std::string& version) {
  return ClientStagingDir() + "/" + version;
}

std::string ClientRollbackDir() { return std::string(StateDir) + "/client-rollback"; }

std::string RollbackCopyPath() { return ClientRollbackDir() + "/previous.deb"; }

}  // namespace Vantrell
