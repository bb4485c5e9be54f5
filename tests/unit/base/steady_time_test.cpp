#include "base/steady_time.h"

#include <gtest/gtest.h>

#include <ctime>

namespace Vantrell {

TEST(SteadyNowMs, ReadsTheMonotonicClock) {
  const auto monotonicMs = [] {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
  };
  const int64_t before = monotonicMs();
  const int64_t now = SteadyNowMs();
  EXPECT_LE(before, now);
  EXPECT_LE(now, monotonicMs());
}

}  // namespace Vantrell
