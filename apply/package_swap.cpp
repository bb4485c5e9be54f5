#include "apply/package_swap.h"

#include <cstdint>
#include <cstdio>
#include <vector>

#include "apply/process_runner.h"
#include "base/directories.h"
#include "base/log_line.h"
#include "base/stream.h"
#include "update/installed_record.h"
#include "update/state_directory.h"

namespace Vantrell {

bool SwapClientPackage(const std::string& packagePath, std::string& error) {
  const std::vector<std::string> environment = {
      "DEBIAN_FRONTEND=noninteractive",
      "VANTRELL_UPDATE_APPLY=1",  // the package's scripts then leave this service alone
      "NEEDRESTART_SUSPEND=1",
  };
  const std::vector<std::string> command = {
      "apt-get",
      "install",
      "-y",
      "--allow-downgrades",  // a rollback is the same command with the older package
      "--no-install-recommends",
      "-o",
      "DPkg::Lock::Timeout=300",
      "-o",
      "Dpkg::Options::=--force-confdef",
      "-o",
      "Dpkg::Options::=--force-confold",
      packagePath,
  };
  std::string output;
  const int32_t result = RunProcess(command, environment, output);
  if (result == 0) return true;
  error = "apt-get exited " + std::to_string(result) + ": " + LastLine(output);
  LogLine("[UpdateSvc] %s", output.c_str());
  return false;
}

void RecordAppliedSet(const UpdateManifest& manifest, const std::string& packagePath) {
  // Written to disk only when closed, after the copy below.
  const Stream record(fopen(InstalledRecordPath().c_str(), "wbe"));
  for (const ManifestFile& file : manifest.files) {
    const std::string line = InstalledRecordLine(file);
    if (record) fwrite(line.data(), 1, line.size(), record.get());
  }

  RemoveTree(ClientRollbackDir());
  MakeDirs(ClientRollbackDir(), 0700);
  std::string output;
  RunProcess({"cp", "--", packagePath, RollbackCopyPath()}, {}, output);
}

}  // namespace Vantrell
