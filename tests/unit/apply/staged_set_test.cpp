#include "apply/staged_set.h"

#include "tests/unit/temporary_folder.h"

namespace Vantrell {

TEST(StagedSet, HasTheListedFilesAndNoOther) {
  const TemporaryFolder folder;
  folder.Write("set/sub/b", std::string(100000, 'x'));
  std::filesystem::create_directories(folder.Path("linked/empty"));
  std::filesystem::create_symlink("../set/sub/b", folder.Path("linked/b"));
  const std::string hash = "d69e68988157833272305aaf21f453c800346e8a3640db6578e260215542e5d4";
  const struct {
    std::string behaviour, directory, name, hash, error;
  } cases[] = {
      {"directories alone", "linked/empty", "b", hash, "the staged set is empty"},
      {"the listed file", "set", "sub/b", hash, ""},
      {"a NUL in the path", {"set\0", 4}, "sub/b", hash, "sub/b: missing from the staged set"},
      {"another name", "set", "b", hash, "b: missing from the staged set"},
      {"another hash", "set", "sub/b", "D6", "sub/b: sha256 no longer matches the manifest"},
      {"a link", "linked", "b", hash, "b: missing from the staged set"},
      {"two files", "", "set/sub/b", hash, "the staged set has 2 files, the manifest lists 1"},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.behaviour);
    const UpdateManifest manifest = {"", "", "", {{given.name, given.hash, 0, ""}}};
    std::string error;
    EXPECT_EQ(VerifyStagedSet(folder.Path(given.directory), manifest, error), given.error.empty());
    EXPECT_EQ(error, given.error);
  }
}

}  // namespace Vantrell
