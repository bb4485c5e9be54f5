#pragma once

// The background thread: it checks for a release at regular times and, when it is safe, installs
// it. The stop sequence joins this thread.

#include <functional>
#include <string>
#include <string_view>

#include "base/steady_time.h"

namespace Vantrell::ClientUpdateService {

constexpr Milliseconds FirstCheckDelayMs = 60000;     // the first step of the back-off too
constexpr Milliseconds BackOffCapMs = 1800000;        // the longest wait between two failed passes
constexpr Milliseconds BaseCheckPeriodMs = 21600000;  // after a pass that reached the server
constexpr Milliseconds CheckJitterSpanMs = 1800000;

// A value below `span` that is always the same for one text, so that each machine keeps its own
// place in the period after a restart; 0 if `span` is 0. 32-bit FNV-1a. Any thread may call it.
uint32_t StableJitter(std::string_view text, uint32_t span);

// The steps of the loop.
struct LoopSteps {
  std::function<bool(Milliseconds)> wait;  // false: the service stops
  std::function<bool()> pass;              // true: the update server answered
  std::function<bool()> apply;             // true: a release was accepted
  std::function<std::string()> installId;
};

// Repeats: waits, runs a check pass, tries to install. Returns when the service stops and after an
// accepted apply. Each call begins with the first wait.
void RunUpdateLoop(const LoopSteps& steps);

// The body of the background thread: the loop with the service's own steps.
void BackgroundUpdateLoop();

}  // namespace Vantrell::ClientUpdateService
