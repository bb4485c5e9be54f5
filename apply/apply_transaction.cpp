#include "apply/apply_transaction.h"

#include <utility>
#include <vector>

#include "apply/client_replacement.h"
#include "apply/package_swap.h"
#include "apply/release_package.h"
#include "apply/staged_set.h"
#include "base/failure.h"
#include "base/file_content.h"
#include "base/log_line.h"
#include "service/service_state.h"
#include "settings/maintenance_window.h"
#include "update/host_inventory.h"
#include "update/state_directory.h"

namespace Vantrell {
namespace {

using ClientUpdateService::serviceState;

// Ends the claim on applyBusy as the last action of an apply, even if an exception is thrown.
struct ClaimEnd {
  ClaimEnd() = default;
  ClaimEnd(const ClaimEnd&) = delete;
  ClaimEnd& operator=(const ClaimEnd&) = delete;
  ~ClaimEnd() { serviceState.applyBusy.exchange(false); }
};

// Makes a copy, because a pass may publish another release while this one is installed.
bool CopyStaged(UpdateManifest& staged) EXCLUDES_LOCK(serviceState.stateMutex) {
  const MutexLock lock(serviceState.stateMutex);
  if (!serviceState.stagedReady) return false;
  staged = serviceState.staged;
  return true;
}

void ClearStaged() EXCLUDES_LOCK(serviceState.stateMutex) {
  const MutexLock lock(serviceState.stateMutex);
  serviceState.stagedReady = false;
}

// The tests before the files are read. A live session refuses every caller.
bool PassGates(bool ignoreWindow, UpdateManifest& staged, std::string& error) {
  if (!CopyStaged(staged)) return FailWith("nothing is staged", error);
  if (serviceState.sessionHolds > 0) return FailWith("a session is live", error);
  if (!ignoreWindow && !IsWindowOpenNow()) {
    return FailWith("outside the maintenance window (" + WindowText() + ")", error);
  }
  return true;
}

// Hashes the files again, because they may have been staged hours ago.
bool ProvePackage(const UpdateManifest& staged, std::string& packagePath, std::string& error) {
  const std::string stagedRoot = StagedReleaseDir(staged.version);
  return VerifyStagedSet(stagedRoot, staged, error) &&
         FindPackage(stagedRoot, staged, packagePath, error) &&
         CheckPackageFields(packagePath, staged.version, error);
}

// A requester that still runs is in the list twice. Each user gets one start all the same.
std::vector<ClientLaunchContext> CollectContexts(const ClientLaunchContext* requester) {
  std::vector<ClientLaunchContext> contexts;
  if (requester != nullptr) contexts.push_back(*requester);
  for (const int32_t pid : FindClientPids(-1)) {
    ClientLaunchContext context;
    if (CaptureClientLaunchContext(pid, context)) contexts.push_back(std::move(context));
  }
  return contexts;
}

bool InstallAndJudge(const UpdateManifest& staged, const std::string& packagePath,
                     const ClientLaunchContext* requester, std::string& error) {
  const std::vector<ClientLaunchContext> contexts = CollectContexts(requester);
  const std::string previousVersion = InstalledClientVersion();
  const std::string rollbackPath = RollbackCopyPath();
  const bool hasRollbackCopy = IsRegularFile(rollbackPath);
  if (!hasRollbackCopy) LogLine("[UpdateSvc] no rollback copy could be taken");

  if (!SwapClientPackage(packagePath, error)) {
    error = "swap failed; the previous version was left in place (" + error + ")";
    LogLine("[UpdateSvc] %s", error.c_str());
    return false;
  }

  RelaunchOutcome judged;
  judged.nothingToJudge = true;
  ReplaceRunningClients(contexts, requester, judged);
  if (judged.nothingToJudge) {
    LogLine("[UpdateSvc] applied %s; no console session to relaunch into", staged.version.c_str());
    return true;
  }
  if (JudgeNewClient(judged)) {
    LogLine("[UpdateSvc] applied %s and relaunched the client", staged.version.c_str());
    return true;
  }
  // A client is judged only if one was started, so there is a first context.
  RollBackClient(hasRollbackCopy, rollbackPath, previousVersion, contexts.front(), error);
  return false;
}

}  // namespace

bool ApplyStagedUpdate(bool ignoreWindow, const ClientLaunchContext* requester,
                       std::string& error) {
  // This must come before ClaimEnd: a refused apply must not end the claim of the other one.
  if (serviceState.applyBusy.exchange(true)) {
    return FailWith("an install is already running", error);
  }
  const ClaimEnd end;
  UpdateManifest staged;
  if (!PassGates(ignoreWindow, staged, error)) return false;
  std::string packagePath;
  if (!ProvePackage(staged, packagePath, error)) return false;
  if (!InstallAndJudge(staged, packagePath, requester, error)) return false;

  RecordAppliedSet(staged, packagePath);
  ClearStaged();
  return true;
}

bool TryAutomaticApply() {
  if (!ClientUpdateService::IsReleaseStaged()) return false;
  std::string error;
  if (!ApplyStagedUpdate(false, nullptr, error)) {
    LogLine("[UpdateSvc] holding: %s", error.c_str());
    return false;
  }
  ClientUpdateService::StopForNewBuild();
  return true;
}

}  // namespace Vantrell
