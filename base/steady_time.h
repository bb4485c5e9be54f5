#pragma once

// The clock for all deadlines, and a sleep that signals do not shorten. Any thread may call these.

#include <cstdint>

namespace Vantrell {

// A length of time. Points in time are 64-bit values of SteadyNowMs.
using Milliseconds = uint32_t;

// The steady clock in whole milliseconds. A change of the wall clock does not affect it, and the
// time during which the machine is suspended is not included.
int64_t SteadyNowMs();

// Sleeps for the whole time: an interrupted sleep continues for the rest.
void SleepMs(Milliseconds time);

}  // namespace Vantrell
