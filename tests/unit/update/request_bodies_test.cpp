#include "update/request_bodies.h"

#include <gtest/gtest.h>

namespace Vantrell {

TEST(CheckRequest, IsEscapedExceptForTheInstallId) {
  const std::string check = BuildCheckRequest("beta", "client", "", "f", "a\"b\n\xC4");
  EXPECT_EQ(AddInstallId(check, "i\"d"),
            "{\"ring\":\"beta\",\"component\":\"client\",\"current_version\":\"\","
            "\"driver_fingerprint\":\"f\",\"os_build\":\"a\\\"b\\n\xC4\",\"install_id\":\"i\"d\"}");
}

}  // namespace Vantrell
