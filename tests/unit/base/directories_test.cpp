#include "base/directories.h"

#include "tests/unit/temporary_folder.h"

namespace Vantrell {

namespace fs = std::filesystem;

TEST(MakeDirs, MakesParentsWithTheModeAndLeavesWhatExists) {
  const TemporaryFolder folder;
  for (const mode_t mode : {0700u, 0500u}) EXPECT_TRUE(MakeDirs(folder.Path("a/b"), mode));
  EXPECT_EQ(fs::status(folder.Path("a/b")).permissions(), fs::perms::owner_all);
  fs::create_symlink("absent", folder.Path("link"));
  EXPECT_TRUE(MakeDirs(folder.Path("link"), 0755));
  const std::string file = folder.Write("file", "");
  for (const auto& path : {file, file + "/b", std::string()}) EXPECT_FALSE(MakeDirs(path, 0755));
}

TEST(RemoveTree, RemovesEverythingBelowAndFollowsNoLink) {
  const TemporaryFolder folder;
  const std::string kept = folder.Write("kept/file", "");
  folder.Write("gone/deep/file", "");
  fs::create_symlink(folder.Path("kept"), folder.Path("gone/deep/link"));
  // The path ends at the NUL, whatever is appended to it.
  EXPECT_TRUE(RemoveTree(folder.Path("gone") + '\0'));
  EXPECT_TRUE(RemoveTree(folder.Path("absent")));
  EXPECT_FALSE(fs::exists(folder.Path("gone")));
  EXPECT_TRUE(fs::exists(kept));
}

// The two directories list their entries in the same order, so one of the removals meets the entry
// that its path leads through last, and the other one first.
TEST(RemoveTree, EndsWhenItHasRemovedItsOwnPath) {
  const TemporaryFolder folder;
  std::string left;
  for (const fs::path through : {"one", "two"}) {
    for (const char* name : {"one", "two"}) folder.Write(through / name / "file", "");
    EXPECT_FALSE(RemoveTree(folder.Path(through / through / "..")));
    for (const char* name : {"one", "two"}) {
      if (fs::exists(folder.Path(through / name / "file"))) left += name;
    }
  }
  EXPECT_TRUE(left == "one" || left == "two") << left;
}

}  // namespace Vantrell
