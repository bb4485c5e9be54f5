#include <gtest/gtest.h>

#include "identity/client_process.h"
#include "identity/launch_context.h"

namespace Vantrell {

TEST(ClientImage, HasThePathOfTheClientAlone) {
  bool wasDeleted = true;
  EXPECT_TRUE(IsClientImage("/usr/bin/vantrell-harbor", &wasDeleted));
  EXPECT_FALSE(wasDeleted);
  EXPECT_TRUE(IsClientImage("/usr/bin/vantrell-harbor (deleted)", &wasDeleted));
  EXPECT_TRUE(wasDeleted);
  EXPECT_FALSE(IsClientImage("/opt/vantrell-harbor (deleted)"));
  EXPECT_FALSE(IsClientImage("/usr/bin/vantrell-harbor-2"));
}

TEST(LaunchContext, TakesTheFirstOfFourUids) {
  EXPECT_EQ(FindRealUid("Name:\tx\nUid:\t1\t2\t3\t4\nGid:\t5\t6\t7\t8\n"), 1);
  EXPECT_EQ(FindRealUid(""), -1);
}

TEST(LaunchContext, TakesTheUnitFromTheLastLineOfTheUnifiedHierarchy) {
  EXPECT_EQ(FindUnit("1:cpu:/a.service\n0::/a\n0::/s/b.scope\n2:x:/c\n"), "b.scope");
  EXPECT_EQ(FindUnit("0::/a\n0::none\n"), "");
}

}  // namespace Vantrell
