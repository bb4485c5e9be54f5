#include "update/installed_record.h"

#include <gtest/gtest.h>

namespace Vantrell {

TEST(InstalledRecord, ListsFilesByTheirLineAnywhere) {
  const ManifestFile listed = {"x.deb", "aa", 0, ""};
  EXPECT_TRUE(ListsEveryFile("ax.deb aa\nb bb\n", {"", "", "", {listed, {"b", "bb", 0, ""}}}));
  EXPECT_FALSE(ListsEveryFile("ax.deb aa\nb bb\n", {"", "", "", {listed, {"b", "b", 0, ""}}}));
  EXPECT_FALSE(ListsEveryFile("", {}));
}

TEST(InstalledRecord, NamesTheHashOfItsFirstPackage) {
  const std::string installed(64, 'a');
  const std::string failed(64, 'b');
  const std::string record = "notes " + failed + "\nx.deb " + installed + "\n";
  EXPECT_EQ(RecordedPackageHash(record + "y.deb " + failed + "\n"), installed);
  EXPECT_EQ(RecordedPackageHash("x.deb " + std::string(64, 'A') + "\nx.deb aa\n"), "");
}

}  // namespace Vantrell
