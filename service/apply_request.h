#pragma once

// APPLY: the client asks for the staged release now, and exits to make room for it. The
// request only starts the attempt; whatever refuses it later is told to the log alone.

#include <string>

#include "identity/launch_context.h"

namespace Vantrell::ClientUpdateService {

// What an APPLY hands to its thread.
struct ApplyRequest {
  bool seatAuthorized = false;  // the peer sits at this machine: the window does not bind it
  bool hasClient = false;       // the peer is the client, and `client` its snapshot
  ClientLaunchContext client;   // means something only with hasClient
};

// On a connection thread. The reply without its line feed. The snapshot is taken here, before
// the reply: the client is gone soon after it.
std::string AnswerApply(const std::string& line, int connection);

// Body of the detached thread: lets the client exit, 30 s at most, and runs the apply. A stop
// does not wait for the first part.
void RunRequestedApply(const ApplyRequest& request);

}  // namespace Vantrell::ClientUpdateService
