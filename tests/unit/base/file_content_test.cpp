#include "base/file_content.h"

#include "tests/unit/temporary_folder.h"

namespace Vantrell {

TEST(IsRegularFile, IsTrueForALinkToAFileAndFalseForADirectory) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink(folder.Write("file", ""), folder.Path("link"));
  EXPECT_TRUE(IsRegularFile(folder.Path("link")));
  EXPECT_FALSE(IsRegularFile(folder.Path("")));
}

}  // namespace Vantrell
