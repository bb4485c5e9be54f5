#include "base/directories.h"
#include "base/file_content.h"
#include "tests/unit/temporary_folder.h"

namespace Vantrell {

namespace fs = std::filesystem;

TEST(MakeDirs, MakesParentsWithTheModeAndLeavesWhatExists) {
  const TemporaryFolder folder;
  const std::string file = folder.Write("file", "content");
  for (const mode_t mode : {0700u, 0500u}) EXPECT_TRUE(MakeDirs(folder.Path("a/b"), mode));
  EXPECT_EQ(fs::status(folder.Path("a/b")).permissions(), fs::perms::owner_all);
  for (const auto& path : {file, file + "/b", std::string()}) EXPECT_FALSE(MakeDirs(path, 0755));
  EXPECT_EQ(ReadWholeFile(file), "content");
}

TEST(RemoveTree, TakesAllBelowAndFollowsNoLink) {
  const TemporaryFolder folder;
  const std::string kept = folder.Write("kept/file", "content");
  folder.Write("gone/deep/file", "");
  fs::create_symlink(folder.Path("kept"), folder.Path("gone/deep/link"));
  for (const char* name : {"gone", "never there"}) EXPECT_TRUE(RemoveTree(folder.Path(name)));
  EXPECT_FALSE(fs::exists(folder.Path("gone")));
  EXPECT_EQ(ReadWholeFile(kept), "content");
}

}  // namespace Vantrell
