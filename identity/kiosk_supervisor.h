#pragma once

// On a kiosk a system service keeps the client alive: the kiosk supervisor. It is not talked
// to. The client that runs the old image is ended, and the new one that the supervisor starts
// is watched for in /proc. Also the scan for running clients, which has other uses.

#include <cstdint>
#include <string>
#include <vector>

#include "identity/launch_context.h"

namespace Vantrell {

// What starting a client gave. It is followed by `pid` if that is not 0, else by the state of
// `unit` in the manager of `user`.
struct RelaunchOutcome {
  std::string user;             // empty on the kiosk path
  std::string unit;             // empty on the kiosk path and after a failed start
  int32_t pid = 0;              // of the client that a kiosk supervisor started
  bool nothingToJudge = false;  // no new client can be watched
};

// The running clients of a user, -1 for all users, in the order of the scan. Empty when /proc
// cannot be opened. Any thread; logs nothing.
std::vector<int32_t> FindClientPids(int32_t uid);

// Ends the user's clients of the old image by SIGTERM and waits for one of the new image; two
// attempts of 15 s. Logs each step. Nothing here fails: when no new client was seen, the
// outcome has nothing to judge. Runs on the thread of the apply and does not look at a stop.
RelaunchOutcome RestartKioskClient(const ClientLaunchContext& context);

}  // namespace Vantrell
