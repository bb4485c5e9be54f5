#include "service/apply_request.h"

#include <thread>
#include <utility>

#include "apply/apply_transaction.h"
#include "apply/process_runner.h"
#include "base/log_line.h"
#include "identity/seat.h"
#include "service/service_state.h"

namespace Vantrell::ClientUpdateService {
namespace {

constexpr Milliseconds ClientExitLimitMs = 30000;

}  // namespace

std::string AnswerApply(const std::string&, int connection) {
  if (!IsReleaseStaged()) return "ERR nothing is staged";
  // Without a lock: the apply itself tests for sessions that start after this test.
  if (serviceState.sessionHolds > 0) return "ERR a session is live";

  ApplyRequest request;
  // This does not refuse the request. It only decides whether the window is tested.
  request.seatAuthorized = PeerIsSeatedUser(connection);
  const ucred peer = PeerCredentials(connection);
  request.hasClient = peer.pid > 0 && CaptureClientLaunchContext(peer.pid, request.client);
  std::thread([request = std::move(request)] { RunRequestedApply(request); }).detach();
  return "OK applying";
}

void RunRequestedApply(const ApplyRequest& request) {
  // The package must not be swapped while the client that asked is still exiting.
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
