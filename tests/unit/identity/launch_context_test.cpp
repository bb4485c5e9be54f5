#include "identity/launch_context.h"

#include <gtest/gtest.h>

namespace Vantrell {

TEST(LaunchContext, TakesTheFirstOfFourUids) {
  EXPECT_EQ(FindRealUid("Name:\tx\nUid:\t1\t2\t3\t4\nGid:\t5\t6\t7\t8\n"), 1);
  EXPECT_EQ(FindRealUid(""), -1);
}

TEST(LaunchContext, TakesTheUnitFromTheLastLineOfTheUnifiedHierarchy) {
  EXPECT_EQ(FindUnit("1:cpu:/a.service\n0::/a\n0::/s/b.scope\n2:x:/c\n"), "b.scope");
  EXPECT_EQ(FindUnit("0::/a\n0::none\n"), "");
}

}  // namespace Vantrell
