#pragma once

// CHECK and SETRING: the two requests that start a check pass at once, on a detached thread. They
// do not wait for the pass; STATUS shows its outcome. The number of passes is not limited, and the
// waits of the background thread do not change. Connection threads call these functions.

#include <string>
#include <string_view>

namespace Vantrell::ClientUpdateService {

// With the blank that separates the verb from the ring.
constexpr std::string_view SetRingVerb = "SETRING ";

// In /proc/PID/task/TID/comm, where a peer can see that the pass still runs.
constexpr char CheckThreadName[] = "check-pass";  // at most 15 bytes

// Serves CHECK, for any peer. Returns the reply without its line feed. The arguments are not used.
std::string AnswerCheck(const std::string& line, int connection);

// Serves SETRING with "dev", "beta" or "prod", for root and for users at the machine. Changes the
// update channel in the settings file and starts a pass, which asks under the new ring. Returns the
// reply without its line feed.
std::string AnswerSetRing(const std::string& line, int connection);

}  // namespace Vantrell::ClientUpdateService
