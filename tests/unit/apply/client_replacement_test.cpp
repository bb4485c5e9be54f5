#include "apply/client_replacement.h"

#include <gtest/gtest.h>

namespace Vantrell {

TEST(KioskClient, RunsInAServiceThatIsNotAUserManager) {
  EXPECT_TRUE(IsKioskClient({0, 0, {}, {}, "kiosk.service"}));
  EXPECT_FALSE(IsKioskClient({0, 0, {}, {}, "user@1.service"}));
}

}  // namespace Vantrell
