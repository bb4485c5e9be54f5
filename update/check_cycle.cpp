#include "update/update.h"

#include <malloc.h>

#include "base/deployment.h"
#include "base/directories.h"
#include "base/file_content.h"
#include "base/log_line.h"
#include "base/own_thread.h"
#include "service/service_state.h"
#include "settings/settings_file.h"
#include "update/host_inventory.h"
#include "update/https_transport.h"
#include "update/installed_record.h"
#include "update/manifest.h"
#include "update/request_bodies.h"
#include "update/staging.h"
#include "update/state_directory.h"

namespace Vantrell {
namespace {

using ClientUpdateService::serviceState;

constexpr char NoToken[] = "";
constexpr char NoFingerprint[] = "";

// Sets the status that clients can ask for, and logs it if it is not the same as before. The line
// is written under the mutex, so that the log shows the statuses in their order.
void PublishStatus(const std::string& text) EXCLUDES_LOCK(serviceState.stateMutex) {
  const MutexLock lock(serviceState.stateMutex);
  if (text == serviceState.lastStatus) return;
  LogLine("[UpdateSvc] %s", text.c_str());
  serviceState.lastStatus = text;
}

HttpResult AskUpdateServer() {
  const std::string osBuild = OsBuildString();
  const std::string installedVersion = InstalledClientVersion();
  const std::string ring = ReadChannel();
  const std::string request =
      BuildCheckRequest(ring, ReleaseComponent, installedVersion, NoFingerprint, osBuild);
  const std::string body = AddInstallId(request, InstallId());
  return HttpsPostJson(ReadEndpoint(), CheckPath, body, NoToken, CheckLimitMs);
}

bool IsInstalled(const UpdateManifest& manifest) {
  std::string record = ReadWholeFile(InstalledRecordPath());
  if (!record.empty() && record.back() != '\n') record += '\n';
  return ListsEveryFile(record, manifest) || InstalledClientVersion() == manifest.version;
}

bool IsStaged(const UpdateManifest& manifest) EXCLUDES_LOCK(serviceState.stateMutex) {
  const MutexLock lock(serviceState.stateMutex);
  return serviceState.stagedReady && serviceState.staged.version == manifest.version;
}

void PublishStaged(const UpdateManifest& manifest) EXCLUDES_LOCK(serviceState.stateMutex) {
  {
    const MutexLock lock(serviceState.stateMutex);
    serviceState.staged = manifest;
    serviceState.stagedReady = true;
    // Not through PublishStatus(): this outcome has its own log line, below.
    serviceState.lastStatus = "staged " + manifest.version;
  }
  LogLine("[UpdateSvc] %s staged and verified", manifest.version.c_str());
}

void StageOffer(const UpdateManifest& manifest) {
  const std::string stagingDir = StagedReleaseDir(manifest.version);
  // Files of an earlier pass are not used again. This is before the proof, and the version is not
  // checked as a path: here the service trusts the update server.
  RemoveTree(stagingDir);
  std::string error;
  // The ring is read again: after a SETRING the witnesses are asked under the new ring.
  if (StageRelease(manifest, ReleaseComponent, ReadChannel(), stagingDir, error)) {
    PublishStaged(manifest);
    return;
  }
  LogLine("[UpdateSvc] %s refused: %s", manifest.version.c_str(), error.c_str());
  RemoveTree(stagingDir);
  PublishStatus("refused: " + error);
}

void HandleOffer(const std::string& body) {
  UpdateManifest manifest;
  std::string error;
  if (!ParseManifest(body, manifest, error)) {
    PublishStatus("unreadable manifest: " + error);
    return;
  }
  if (IsInstalled(manifest)) {
    PublishStatus("up to date");
    return;
  }
  // The status is not set again, even if a request that failed has changed it since the staging.
  if (IsStaged(manifest)) return;
  StageOffer(manifest);
}

bool CheckOnce() {
  const HttpResult answer = AskUpdateServer();
  if (!answer.ok) {
    PublishStatus(answer.error.empty() ? "update service unreachable" : answer.error);
    return false;
  }
  if (answer.status == 204) {
    PublishStatus("up to date");
  } else if (answer.status != 200) {
    PublishStatus("update service returned HTTP " + std::to_string(answer.status));
  } else {
    HandleOffer(answer.body);
  }
  return true;
}

}  // namespace

bool RunCheckPass() {
  bool reached = false;
  // The service is idle for hours after a pass, so all memory goes back to the system. The first
  // trim joins the free blocks, so that the end of the thread can free the end of its arena. The
  // second one frees the small blocks that glibc keeps for a thread until it has ended.
  // bench/passes_memory.py measures this.
  RunOnOwnThread([&reached] {
    reached = CheckOnce();
    malloc_trim(0);
  });
  malloc_trim(0);
  return reached;
}

}  // namespace Vantrell
