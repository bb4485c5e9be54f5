#pragma once

// HOLD: the client says that a user is in a live session. The token is the connection itself,
// so that a client that crashes leaves nothing behind. While one is held no apply starts.

namespace Vantrell::ClientUpdateService {

// Serves HOLD to its end, on the connection's thread: answers, counts the session in
// ServiceState.sessionHolds, and returns when the peer has gone or the service stops. A peer
// that is not the client gets an error line. The descriptor stays the caller's.
void HoldSession(int connection);

}  // namespace Vantrell::ClientUpdateService
