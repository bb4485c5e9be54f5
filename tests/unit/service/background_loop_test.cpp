#include "service/background_loop.h"

#include <gtest/gtest.h>

namespace Vantrell::ClientUpdateService {

// Only the 8th pass reaches the server. The last apply is accepted.
TEST(UpdateLoop, AppliesAfterEachPassAndWaitsByItsOutcome) {
  const std::vector<Milliseconds> expected = {60000,   60000,   120000,   240000, 480000, 960000,
                                              1800000, 1800000, 23335720, 60000,  120000};
  std::vector<Milliseconds> waits;
  size_t passes = 0;
  size_t applies = 0;
  RunUpdateLoop({
      [&](Milliseconds wait) {
        waits.push_back(wait);
        return waits.size() <= expected.size();
      },
      [&] { return ++passes == 8; },
      [&] {
        EXPECT_EQ(++applies, passes);
        return applies == expected.size();
      },
      [] { return "foobar"; },
  });
  EXPECT_EQ(waits, expected);
  EXPECT_EQ(applies, expected.size());
}

TEST(StableJitter, IsTheFnv1aHashModuloTheSpan) {
  EXPECT_EQ(StableJitter("foobar", 0xffffffff), 0xbf9cf968u);
  EXPECT_EQ(StableJitter("\xff", 0xffffffff), 0x7a0b824eu);
  EXPECT_EQ(StableJitter("foobar", 0), 0u);
}

}  // namespace Vantrell::ClientUpdateService
