#include "update/installed_record.h"

#include <gtest/gtest.h>

namespace Vantrell {

TEST(InstalledRecord, ListsFilesByTheirLineAnywhere) {
  const ManifestFile listed = {"x.deb", "aa", 0, ""};
  EXPECT_TRUE(ListsEveryFile("ax.deb aa\nb bb\n", {"", "", "", {listed, {"b", "bb", 0, ""}}}));
  EXPECT_FALSE(ListsEveryFile("ax.deb aa\nb bb\n", {"", "", "", {listed, {"b", "b", 0, ""}}}));
  EXPECT_FALSE(ListsEveryFile("", {}));
}

}  // namespace Vantrell
