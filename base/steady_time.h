#pragma once

// The clock by which every deadline is taken, and the sleep that a signal does not shorten.

#include <cstdint>

namespace Vantrell {

// The steady clock in whole milliseconds. It does not count a suspend of the machine.
int64_t SteadyNowMs();

// Sleeps for the whole time; a signal in between does not shorten it.
void SleepMs(int64_t milliseconds);

}  // namespace Vantrell
