#pragma once

// The exit statuses of this program, for the scripts of monitors.

namespace Vantrell::Control {

constexpr int ExitWell = 0;
constexpr int ExitNeedsAttention = 1;  // refused, paused, rolled back, or a unit has failed
constexpr int ExitCannotTell = 2;      // the service does not answer, or a step failed
constexpr int ExitUsage = 64;

}  // namespace Vantrell::Control
