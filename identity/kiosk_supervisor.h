#pragma once

// Replacement of a client on a kiosk, where a system service, the kiosk supervisor, restarts the
// client whenever it ends. The supervisor is not contacted: the client of the old image is ended,
// and /proc is polled for the client that the supervisor starts. The scan for running clients is
// here too.

#include <cstdint>
#include <string>
#include <vector>

#include "base/steady_time.h"
#include "identity/launch_context.h"

namespace Vantrell {

// Time between two checks of a client that was just started.
constexpr Milliseconds PollIntervalMs = 250;

// The result of starting a client. The client is watched by `pid` if that is not 0, and otherwise
// by the state of `unit` in the service manager of `user`.
struct RelaunchOutcome {
  std::string user;             // empty for a kiosk client
  std::string unit;             // empty for a kiosk client and after a failed start
  int32_t pid = 0;              // of the client that the kiosk supervisor started
  bool nothingToJudge = false;  // no new client can be watched
};

// The pids of the running clients of one user, or of all users if `uid` is -1, in the order of the
// scan. Empty when /proc cannot be opened. Any thread may call it; it logs nothing.
std::vector<int32_t> FindClientPids(int32_t uid);

// Ends the user's clients of the old image with SIGTERM and waits for a new client of the new
// image, in two attempts of 15 s each. Logs each step. If no new client appears, the outcome has
// nothing to judge. Runs on the thread of the apply; a stop of the service does not interrupt it.
RelaunchOutcome RestartKioskClient(const ClientLaunchContext& context);

}  // namespace Vantrell
