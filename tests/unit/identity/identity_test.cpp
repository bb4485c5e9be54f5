#include <gtest/gtest.h>
#include <unistd.h>

#include "base/lines.h"
#include "identity/client_process.h"
#include "identity/launch_context.h"

namespace Vantrell {

TEST(Client, IsKnownByItsImageAlone) {
  bool wasDeleted = true;
  EXPECT_TRUE(IsClientImage("/usr/bin/vantrell-harbor", &wasDeleted));
  EXPECT_FALSE(wasDeleted);
  EXPECT_TRUE(IsClientImage("/usr/bin/vantrell-harbor (deleted)", &wasDeleted));
  EXPECT_TRUE(wasDeleted);
  EXPECT_FALSE(IsClientProcess(0, &wasDeleted));
  EXPECT_TRUE(wasDeleted) << "written although there is no such process";
  EXPECT_FALSE(IsClientImage("/opt/vantrell-harbor (deleted)", &wasDeleted));
  EXPECT_FALSE(wasDeleted);
  EXPECT_FALSE(IsClientImage("/usr/bin/vantrell-harbor-updated"));
  EXPECT_FALSE(IsClientProcess(getpid()));
}

TEST(LaunchContext, KeepsTheNamedEntriesInTheOrderOfTheProcess) {
  using Texts = std::vector<std::string>;
  EXPECT_EQ(SplitNulSeparated({"\0a\0\0b\0", 6}), (Texts{"", "a", "", "b"}));
  EXPECT_EQ(KeepClientEnvironment({"LANGUAGE=de", "PATH=/bin", "XDISPLAY=:1", "DISPLAY"}), Texts{});
  const Texts kept = SplitLines(
      "LC_ALL=\nDISPLAY=:0\nWAYLAND_DISPLAY=\nXAUTHORITY=\nXDG_RUNTIME_DIR=\nXDG_SESSION_TYPE=\n"
      "XDG_CURRENT_DESKTOP=\nDBUS_SESSION_BUS_ADDRESS=\nLANG=C");
  EXPECT_EQ(KeepClientEnvironment(kept), kept);
  EXPECT_EQ(ProcessUid(getpid()), static_cast<int32_t>(getuid()));
  EXPECT_EQ(ProcessUid(0), -1);
}

TEST(LaunchContext, TakesTheUnitFromTheLastLineOfTheUnifiedHierarchy) {
  EXPECT_EQ(FindUnit("1:cpu:/a.service\n0::/a\n0::/s/b.scope\n2:x:/c\n"), "b.scope");
  EXPECT_EQ(FindUnit("0::/a\n0::none\n"), "");
  EXPECT_EQ(FindUnit("1:name=systemd:/a.service\n"), "");
}

}  // namespace Vantrell
