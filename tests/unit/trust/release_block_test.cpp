#include "trust/release_block.h"

#include <tuple>

#include "tests/unit/temporary_folder.h"
#include "trust/digest.h"
#include "update/update.h"

namespace Vantrell {

const std::string A(64, 'a');
const std::string B(64, 'b');
const std::string Component = "client-linux-amd64";

TEST(Sha256File, HashesRegularFilesAndNothingElse) {
  const TemporaryFolder folder;
  const std::string file = folder.Write("more than one block", std::string(100000, 'x'));
  std::string hex;
  EXPECT_TRUE(Sha256File(folder.Write("empty", ""), hex));
  EXPECT_EQ(hex, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_TRUE(Sha256File(file, hex));
  EXPECT_EQ(hex, "d69e68988157833272305aaf21f453c800346e8a3640db6578e260215542e5d4");
  std::filesystem::create_symlink(file, folder.Path("link"));
  hex = "untouched";
  for (const char* name : {"link", ".", "absent"}) EXPECT_FALSE(Sha256File(folder.Path(name), hex));
  EXPECT_EQ(hex, "untouched");
}

// The digests were made with sha256sum, and begin as shown.
const std::tuple<const char*, std::vector<ManifestFile>, const char*> DigestCases[] = {
    {"location does not count", {{"harbor.deb", A, 7, "https://x/"}}, "8adc4a7bac46cb18"},
    {"upper case as offered", {{"harbor.deb", std::string(64, 'A'), 7, ""}}, "fb85c2a13377a08d"},
    {"whole lines are sorted", {{"a", A, 1, ""}, {"a.b", B, 2, ""}}, "c3690b3e5cb8b761"},
    {"repeats", {{"a.b", B, 2, ""}, {"a", A, 1, ""}, {"a.b", B, 2, "x"}}, "c3690b3e5cb8b761"},
    {"one name, two hashes", {{"a", A, 1, ""}, {"a", B, 1, ""}}, "c06d7dbd68dd39a3"},
    {"a negative size", {{"a", A, 0, ""}, {"b", A, -1, ""}}, "b28304097cbc2016"},
};

TEST(ManifestDigest, CoversNamesHashesAndSizes) {
  for (const auto& [behaviour, files, digest] : DigestCases) {
    const UpdateManifest manifest = {"2.4.0", "commit", "fingerprint", files};
    EXPECT_EQ(ManifestDigest(manifest, Component).substr(0, 16), digest) << behaviour;
  }
}

const std::string Head = "vantrell-release-v1\n2.4.0\n";
const std::string Ours = Component + " ";

const std::tuple<const char*, std::string, bool> BlockCases[] = {
    {"as a publisher emits it", Head + Ours + A + "\n", true},
    {"CRLF and upper case", " VANTRELL-Release-v1\r\n2.4.0 \r\n" + Ours + A + "\r\n", true},
    {"upper-case digest, blanks, no line end", Head + Ours + "  " + std::string(64, 'A'), true},
    {"other matter before the line", Head + "\nword\n " + Ours + B + "\nx y\n" + Ours + A, true},
    {"the first line of the component decides", Head + Ours + "x\n" + Ours + A, false},
    {"text behind the digest", Head + Ours + A + " # ok\n", false},
    {"a tab is no blank", Head + "client-linux-amd64\t" + A, false},
    {"other components", Head + "Client-linux-amd64 " + A + "\nclient-linux-amd64x " + A, false},
    {"the two head lines alone", Head, false},
    {"an empty line between them", "vantrell-release-v1\n\n2.4.0\n" + Ours + A, false},
    {"another format", "vantrell-release-v2\n2.4.0\n" + Ours + A, false},
    {"another version", "vantrell-release-v1\n2.4.1\n" + Ours + A, false},
};

TEST(ReleaseBlock, GivesTheDigestOfOurComponentOrRefuses) {
  for (const auto& [behaviour, block, accepted] : BlockCases) {
    std::string digest;
    EXPECT_EQ(ParseReleaseBlock(block, "2.4.0", Component, digest), accepted) << behaviour;
    EXPECT_TRUE(!accepted || digest == A) << behaviour;
  }
}

}  // namespace Vantrell
