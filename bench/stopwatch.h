#pragma once

// The duration of a call.

#include <chrono>

namespace Vantrell {

template <typename Action>
double Microseconds(const Action& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

}  // namespace Vantrell
