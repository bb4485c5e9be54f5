#pragma once

// The rhythm in which the service looks for a release by itself and, when it is safe, installs
// it. Lives on one thread, which the stop joins.

#include <cstdint>
#include <string_view>

namespace Vantrell::ClientUpdateService {

constexpr uint32_t FirstCheckDelayMs = 60000;     // also the first step of the back-off
constexpr uint32_t BackOffCapMs = 1800000;        // the longest wait between two failed passes
constexpr uint32_t BaseCheckPeriodMs = 21600000;  // after a pass that reached the server
constexpr uint32_t CheckJitterSpanMs = 1800000;

// The coming wait, and the wait after a failure. Lost with the thread: a restart begins anew.
struct CheckRhythm {
  uint32_t waitMs = FirstCheckDelayMs;
  uint32_t nextMs = FirstCheckDelayMs;
};

// After a pass that reached the server: the long period, and the back-off begins anew.
CheckRhythm RhythmAfterAnswer(std::string_view installId);

// After a pass that did not: 60 s, then twice as long each time, up to the cap.
CheckRhythm RhythmAfterFailure(const CheckRhythm& rhythm);

// A value below `spanMs` (0 for a span of 0), always the same for one text: each machine keeps
// its own place in the period over all restarts. 32-bit FNV-1a.
uint32_t StableJitter(std::string_view text, uint32_t spanMs);

// Body of the background thread. Returns when the service stops, or after an accepted apply.
void BackgroundUpdateLoop();

}  // namespace Vantrell::ClientUpdateService
