#include "apply/staged_set.h"

#include "tests/unit/temporary_folder.h"
#include "tests/unit/text_cases.h"

namespace Vantrell {

TEST(StagedSet, HasTheListedFilesAndNoOther) {
  const TemporaryFolder folder;
  folder.Write("set/sub/b", std::string(100000, 'x'));
  folder.Write("more/changed/sub/b", "");
  std::filesystem::create_directories(folder.Path("more/linked/sub/empty"));
  std::filesystem::create_symlink("../../../set/sub/b", folder.Path("more/linked/sub/b"));
  const std::string hash = "d69e68988157833272305aaf21f453c800346e8a3640db6578e260215542e5d4";
  const std::vector<TextCase> cases = {
      {"the listed file", "set", ""},
      {"a directory alone", "more/linked/sub/empty", "the staged set is empty"},
      {"a NUL in the path", {"set\0", 4}, "sub/b: missing from the staged set"},
      {"another content", "more/changed", "sub/b: sha256 no longer matches the manifest"},
      {"a link", "more/linked", "sub/b: missing from the staged set"},
      {"files of more directories", "", "the staged set has 3 files, the manifest lists 1"},
  };
  ExpectEach(cases, [&](const std::string& directory) {
    std::string error;
    const UpdateManifest manifest = {"", "", "", {{"sub/b", hash, 0, ""}}};
    const bool verified = VerifyStagedSet(folder.Path(directory), manifest, error);
    EXPECT_EQ(verified, error.empty());
    return error;
  });
}

}  // namespace Vantrell
