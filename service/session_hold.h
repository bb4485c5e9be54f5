#pragma once

// HOLD: the client tells the service that a user is in a live session. The session lasts as long as
// the connection, so a client that crashes ends it too. During a session no apply starts.

namespace Vantrell::ClientUpdateService {

// Serves HOLD on the connection's thread and returns when the session has ended. A peer that is not
// the client gets an error line. The caller keeps the descriptor and closes it.
void HoldSession(int connection);

// The session itself, without the test of the peer: adds 1 to ServiceState.sessionHolds, replies,
// waits until the peer has gone or the service stops, and subtracts 1.
void KeepSession(int connection);

}  // namespace Vantrell::ClientUpdateService
