#include "service/session_hold.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "base/log_line.h"
#include "identity/client_process.h"
#include "identity/seat.h"
#include "service/service_state.h"
#include "service/socket_io.h"

namespace Vantrell::ClientUpdateService {
namespace {

constexpr size_t DiscardBytes = 64;

// A client whose file has been replaced on disk may hold a session too.
bool PeerIsClient(int connection) {
  const ucred peer = PeerCredentials(connection);
  return peer.pid > 0 && IsClientProcess(peer.pid);
}

// Bytes from the peer are discarded. The session ends with the connection or with the service.
void WaitForSessionEnd(int connection) {
  pollfd entries[] = {{connection, POLLIN, 0}, {serviceState.stopEventFd, POLLIN, 0}};
  while (!serviceState.stopRequested) {
    // poll() clears revents on EINTR, so the checks below do nothing and the loop polls again.
    if (poll(entries, 2, -1) < 0 && errno != EINTR) return;
    if (entries[1].revents != 0) return;
    if ((entries[0].revents & (POLLHUP | POLLERR)) != 0) return;
    if ((entries[0].revents & POLLIN) == 0) continue;
    char discarded[DiscardBytes];
    if (read(connection, discarded, sizeof discarded) <= 0) return;
  }
}

}  // namespace

void HoldSession(int connection) {
  if (!PeerIsClient(connection)) {
    SendAll(connection, "ERR only the Vantrell Harbor client may hold a session\n");
    return;
  }
  KeepSession(connection);
}

void KeepSession(int connection) {
  ++serviceState.sessionHolds;
  LogLine("[UpdateSvc] a session is live (%d held)", serviceState.sessionHolds.load());
  SendAll(connection, "OK holding\n");
  const timeval noLimit = {};
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &noLimit, sizeof noLimit);
  WaitForSessionEnd(connection);
  --serviceState.sessionHolds;
  LogLine("[UpdateSvc] a session ended (%d held)", serviceState.sessionHolds.load());
}

}  // namespace Vantrell::ClientUpdateService
