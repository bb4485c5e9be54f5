#include "update/update.h"

#include <malloc.h>

#include <thread>

#include "base/deployment.h"
#include "base/directories.h"
#include "base/file_content.h"
#include "base/log_line.h"
#include "service/service_state.h"
#include "settings/settings_file.h"
#include "update/check_request.h"
#include "update/host_inventory.h"
#include "update/https_transport.h"
#include "update/installed_record.h"
#include "update/manifest.h"
#include "update/staging.h"

namespace Vantrell {
namespace {

using ClientUpdateService::serviceState;

constexpr char CheckPath[] = "/api/v1/check";
constexpr int32_t CheckLimitMs = 20000;
constexpr char NoToken[] = "";
constexpr char NoFingerprint[] = "";

// Sets the status that clients can ask for. One that repeats from pass to pass is logged once;
// the line is written under the mutex, so that the log shows statuses in their order.
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
  const std::string body = WithInstallId(request, InstallId());
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
    // Not by PublishStatus: this success has a log line of its own.
    serviceState.lastStatus = "staged " + manifest.version;
  }
  LogLine("[UpdateSvc] %s staged and verified", manifest.version.c_str());
}

void StageOffer(const UpdateManifest& manifest) {
  const std::string stagingDir = ClientStagingDir() + "/" + manifest.version;
  // Nothing left by an earlier pass is reused. The version is taken as it stands: only file
  // names are judged as paths, and the server is believed that much before the proof.
  (void)RemoveTree(stagingDir);
  std::string error;
  // The ring is read again: a SETRING since the request decides where the proof is looked for.
  if (StageRelease(manifest, ReleaseComponent, ReadChannel(), stagingDir, error)) {
    PublishStaged(manifest);
    return;
  }
  LogLine("[UpdateSvc] %s refused: %s", manifest.version.c_str(), error.c_str());
  (void)RemoveTree(stagingDir);
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
  // The status stays as it was, also when a failed request had changed it since.
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
  // The service idles for hours after a pass, so the machine gets back all that it needed. The
  // trim inside joins the free pieces, and the end of the thread then gives back the end of its
  // arena; the trim outside gives back the small pieces that were kept for the thread.
  std::thread([&reached] {
    reached = CheckOnce();
    (void)malloc_trim(0);
  }).join();
  (void)malloc_trim(0);
  return reached;
}

}  // namespace Vantrell
