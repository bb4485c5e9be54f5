#pragma once

// The two requests that start a check pass at once, on a detached thread, and do not wait for
// it: what comes of it shows in STATUS. Passes are not limited in number, and the rhythm of
// the background thread does not change. Called on connection threads.

#include <string>
#include <string_view>

namespace Vantrell::ClientUpdateService {

// The ring follows the blank.
constexpr std::string_view SetRingVerb = "SETRING ";

// CHECK: anyone may ask. The reply without its line feed; the arguments are not looked at.
std::string AnswerCheck(const std::string& line, int connection);

// "SETRING " and "dev", "beta" or "prod": root, or a user at this machine, changes the update
// channel in the settings file; the pass then asks under the new ring.
std::string AnswerSetRing(const std::string& line, int connection);

}  // namespace Vantrell::ClientUpdateService
