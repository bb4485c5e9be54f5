#include "service/apply_request.h"

#include <cstdint>
#include <thread>
#include <utility>

#include "apply/apply_transaction.h"
#include "apply/process_runner.h"
#include "base/log_line.h"
#include "identity/seat.h"
#include "service/service_state.h"

namespace Vantrell::ClientUpdateService {
namespace {

constexpr uint32_t ClientExitLimitMs = 30000;

}  // namespace

std::string AnswerApply(const std::string&, int connection) {
  if (!IsReleaseStaged()) return "ERR nothing is staged";
  // Without a lock: a session that starts behind this look meets the gate of the apply.
  if (serviceState.sessionHolds > 0) return "ERR a session is live";

  ApplyRequest request;
  // Refuses nothing: it only decides whether the apply may ignore the maintenance window.
  request.seatAuthorized = PeerIsSeatedUser(connection);
  const ucred peer = PeerCredentials(connection);
  request.hasClient = peer.pid > 0 && CaptureClientLaunchContext(peer.pid, request.client);
  std::thread([request = std::move(request)] { RunRequestedApply(request); }).detach();
  return "OK applying";
}

void RunRequestedApply(const ApplyRequest& request) {
  // The package is not swapped under a client that is still going down.
  if (request.hasClient) {
    WaitForProcessExit(static_cast<uint32_t>(request.client.pid), ClientExitLimitMs);
  }
  const ClientLaunchContext* requester = request.hasClient ? &request.client : nullptr;
  std::string error;
  if (ApplyStagedUpdate(request.seatAuthorized, requester, error)) {
    StopForNewBuild();
  } else {
    LogLine("[UpdateSvc] apply refused: %s", error.c_str());
  }
}

}  // namespace Vantrell::ClientUpdateService
