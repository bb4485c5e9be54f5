#include "base/file_content.h"
#include "tests/unit/temporary_folder.h"
#include "update/host_inventory.h"
#include "update/installed_record.h"
#include "update/request_bodies.h"

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

TEST(InstalledRecord, ListsFilesByTheirLineAnywhere) {
  const ManifestFile listed = {"x.deb", "aa", 0, ""};
  EXPECT_TRUE(ListsEveryFile("ax.deb aa\nb bb\n", {"", "", "", {listed, {"b", "bb", 0, ""}}}));
  EXPECT_FALSE(ListsEveryFile("ax.deb aa\nb bb\n", {"", "", "", {listed, {"b", "b", 0, ""}}}));
  EXPECT_FALSE(ListsEveryFile("", {}));
}

TEST(CheckRequest, IsEscapedExceptForTheInstallId) {
  const std::string check = BuildCheckRequest("beta", "client", "", "f", "a\"b\n\xC4");
  EXPECT_EQ(AddInstallId(check, "i\"d"),
            "{\"ring\":\"beta\",\"component\":\"client\",\"current_version\":\"\","
            "\"driver_fingerprint\":\"f\",\"os_build\":\"a\\\"b\\n\xC4\",\"install_id\":\"i\"d\"}");
}

}  // namespace Vantrell
