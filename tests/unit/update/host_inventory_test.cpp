#include "update/host_inventory.h"

#include "base/file_content.h"
#include "tests/unit/temporary_folder.h"

namespace Vantrell {

TEST(PrettyName, IsTheLastOneWithoutItsDoubleQuotes) {
  EXPECT_EQ(FindPrettyName("PRETTY_NAME=a\nPRETTY_NAME=\"b \\\"c\"\nNAME=d\n"), "b \\\"c");
  EXPECT_EQ(FindPrettyName("#PRETTY_NAME=x\nPRETTY_NAME='a'"), "'a'");
  EXPECT_EQ(FindPrettyName("PRETTY_NAME=\""), "\"");
}

TEST(InstallId, IsMadeOnceAndReplacesALineFeedAlone) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("new/state/install-id");
  EXPECT_EQ(LoadInstallId(path, folder.Path("absent")), "unknown");
  EXPECT_EQ(LoadInstallId(path, folder.Write("uuid", "a\nb  \r\n")), "a\nb  ");
  EXPECT_EQ(LoadInstallId(path, folder.Path("absent")), "a\nb  ");
  folder.Write("new/state/install-id", "\n");
  EXPECT_EQ(LoadInstallId(path, folder.Write("uuid", "made\n")), "made");
  EXPECT_EQ(ReadWholeFile(path), "made\n");
}

}  // namespace Vantrell
