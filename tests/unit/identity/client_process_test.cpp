#include "identity/client_process.h"

#include <gtest/gtest.h>

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

}  // namespace Vantrell
