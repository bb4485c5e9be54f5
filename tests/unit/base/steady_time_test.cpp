#include "base/steady_time.h"

#include <gtest/gtest.h>

#include <ctime>

namespace Vantrell {

TEST(SteadyNowMs, ReadsTheMonotonicClock) {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  EXPECT_NEAR(static_cast<double>(SteadyNowMs()), static_cast<double>(now.tv_sec) * 1000, 60000);
}

}  // namespace Vantrell
