#include "proof/package_proof.h"

#include <vector>

#include "tests/unit/temporary_folder.h"
#include "tests/unit/text_cases.h"

namespace Vantrell {
namespace {

const std::string Staging = "/var/lib/vantrell-harbor/update/client-staging/";
// Of "new" and of "x", by sha256sum.
const std::string NewHash = "11507a0e2f5e69d5dfa40a62a1bd7b6ee57e6bcd85c67c9b8431b36fff21c437";
const std::string OtherHash = "2d711642b726b04401627ca9fbac32f5c8530fb1903cc4db02258717921a4881";

}  // namespace

TEST(PackageProof, FindsVersionAndNameOfAStagedFile) {
  const std::vector<TextCase> cases = {
      {"a package", Staging + "1.1/a.deb", "1.1 a.deb"},
      {"a package in a subdirectory", Staging + "1.1/b/a.deb", "1.1 b/a.deb"},
      {"no version", Staging + "/a.deb", " "},
      {"no name", Staging + "1.1/", " "},
      {"the version alone", Staging + "1.1", " "},
      {"another directory", "/var/lib/vantrell-harbor/update/client-rollback/1.1/a.deb", " "},
  };
  ExpectEach(cases, [](const std::string& path) {
    std::string version;
    std::string name;
    const bool found = SplitStagedPath(path, version, name);
    EXPECT_EQ(found, !version.empty());
    return version + " " + name;
  });
}

TEST(PackageProof, DescribesAReleaseWithTheCopyInPlaceOfThePackage) {
  const TemporaryFolder folder;
  folder.Write("1.1/b/a.deb", "altered");
  folder.Write("1.1/a.deb", "x");
  const std::string copy = folder.Write("copy", "new");
  UpdateManifest manifest;
  std::string error;
  ASSERT_TRUE(DescribeStagedRelease(folder.Path("1.1"), "b/a.deb", copy, manifest, error));
  ASSERT_EQ(manifest.files.size(), 2);
  for (const ManifestFile& file : manifest.files) {
    const bool isPackage = file.name == "b/a.deb";
    EXPECT_EQ(file.sha256, isPackage ? NewHash : OtherHash) << file.name;
    EXPECT_EQ(file.size, isPackage ? 3 : 1) << file.name;
  }
  EXPECT_FALSE(DescribeStagedRelease(folder.Path("1.1"), "c.deb", copy, manifest, error));
  EXPECT_EQ(error, "c.deb is not staged");
}

}  // namespace Vantrell
