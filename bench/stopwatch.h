#pragma once

// The duration of a call, and the time that the processor spends on it.

#include <chrono>
#include <ctime>

namespace Vantrell {

template <typename Action>
double Microseconds(const Action& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

// Of all threads of the process.
template <typename Action>
double ProcessorMicroseconds(const Action& action) {
  const auto used = [] {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
  };
  const double before = used();
  action();
  return used() - before;
}

}  // namespace Vantrell
