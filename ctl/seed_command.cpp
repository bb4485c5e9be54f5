#include "ctl/seed_command.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/descriptor.h"
#include "base/directories.h"
#include "ctl/durable_files.h"
#include "ctl/exit_status.h"
#include "ctl/messages.h"
#include "ctl/package_file.h"
#include "ctl/rollback_copy.h"
#include "ctl/service_pause.h"
#include "update/state_directory.h"

namespace Vantrell::Control {
namespace {

constexpr char SeedLock[] = "/run/vantrell-harbor-seed.lock";

std::string CandidatePath() { return std::string(StateDir) + "/rollback-candidate.deb"; }

// The record has one line for each file, with a blank before the hash.
bool IsRecordableName(const std::string& name) {
  constexpr char Allowed[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.+~_-";
  return name.size() > 4 && name.ends_with(".deb") &&
         name.find_first_not_of(Allowed) == std::string::npos;
}

// The candidate was compared with the installed package before the stop. It is compared again: the
// stop waits for an install that runs.
int PlaceWhileStopped(const std::string& name) {
  fputs("Stopping the service; an install that runs ends first.\n", stderr);
  ServicePause pause;
  std::string error;
  int status = ExitWell;
  if (!pause.IsComplete()) {
    status = Fail(ExitCannotTell,
                  "the service does not stop, or its repair works; try again when "
                  "\"log\" shows that it has ended");
  } else if (!IsInstalledPackage(CandidatePath(), error)) {
    status = Fail(ExitNeedsAttention, error);
  } else if (!PlaceRollbackCopy(CandidatePath(), name, error)) {
    status = Fail(ExitCannotTell, "the rollback copy cannot be written (" + error + ")");
  }
  if (pause.Resume()) return status;
  return Fail(ExitNeedsAttention, "the service does not start; see \"log\"");
}

int CopyAndPlace(const std::string& package, const std::string& name) {
  std::string error;
  unlink(CandidatePath().c_str());  // of a run that was killed
  if (!CopyToNewFile(package, CandidatePath(), error)) {
    return Fail(ExitCannotTell, "the package cannot be copied (" + error + ")");
  }
  // The copy is compared, not the package: another user may be able to change that one.
  if (!IsInstalledPackage(CandidatePath(), error)) return Fail(ExitNeedsAttention, error);
  return PlaceWhileStopped(name);
}

}  // namespace

int RunSeed(const Arguments& arguments) {
  if (arguments.size() != 1) return FailUsage("seed takes one package file");
  const std::string& package = arguments[0];
  const std::string name = package.substr(package.rfind('/') + 1);
  if (!IsRecordableName(name)) {
    return FailUsage(
        "the file must have the name of a package, such as "
        "vantrell-harbor_1.0_amd64.deb");
  }
  if (!RequireRoot()) return ExitCannotTell;
  // Not the state directory: a user who can open a file, even for reading, can hold its lock.
  const Descriptor lock(open(SeedLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock) {
    return Fail(ExitCannotTell, std::string("the lock cannot be opened (") + SeedLock + ": " +
                                    strerror(errno) + ")");
  }
  if (flock(lock.Number(), LOCK_EX | LOCK_NB) != 0) {
    return Fail(ExitCannotTell, "another seed runs; wait for its end");
  }
  MakeDirs(StateDir, 0755);
  const int status = CopyAndPlace(package, name);
  unlink(CandidatePath().c_str());
  if (status != ExitWell) return status;
  if (RollbackCopyState() != "proved") {
    return Fail(ExitNeedsAttention, "the start of the service has not kept the copy; see \"log\"");
  }
  puts("The installed package is the rollback copy now.");
  return ExitWell;
}

}  // namespace Vantrell::Control
