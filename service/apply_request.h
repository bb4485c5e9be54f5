#pragma once

// APPLY: the client asks for the install of the staged release and then exits. The request only
// starts the attempt. A later refusal is in the log, and the peer does not learn of it.

#include <string>

#include "identity/launch_context.h"

namespace Vantrell::ClientUpdateService {

// What the thread of an APPLY gets.
struct ApplyRequest {
  bool seatAuthorized = false;  // the peer is at the machine, so the window is not tested
  bool hasClient = false;       // the peer is the client, and `client` is its launch context
  ClientLaunchContext client;   // valid only if hasClient is true
};

// Serves APPLY. Runs on a connection thread and returns the reply without its line feed. It reads
// the launch context before the reply, because the client ends soon after the reply.
std::string AnswerApply(const std::string& line, int connection);

// The body of the detached thread: waits up to 30 s for the client to exit and runs the apply. A
// stop of the service does not wait for the client's exit, and the apply is then lost. It waits for
// an apply that has begun.
void RunRequestedApply(const ApplyRequest& request);

}  // namespace Vantrell::ClientUpdateService
