#include "trust/release_block.h"

#include <gtest/gtest.h>

#include "update/update.h"

namespace Vantrell {
namespace {

const std::string A(64, 'a');
const std::string B(64, 'b');
const std::string UpperA(64, 'A');

TEST(ManifestDigest, CoversNamesHashesAndSizes) {
  const struct {
    std::string behaviour;
    std::vector<ManifestFile> files;
    std::string beginning;  // of the digest, as sha256sum prints it
  } cases[] = {
      {"a URL is not part of it", {{"harbor.deb", A, 7, "https://x/"}}, "8adc4a7bac46cb18"},
      {"a hash is used as offered", {{"harbor.deb", UpperA, 7, ""}}, "fb85c2a13377a08d"},
      {"lines sorted",
       {{"a.b", B, 2, ""}, {"a", A, 1, ""}, {"a.b", B, 2, "x"}},
       "c3690b3e5cb8b761"},
      {"one name, two hashes", {{"a", A, 1, ""}, {"a", B, 1, ""}}, "c06d7dbd68dd39a3"},
      {"a negative size", {{"a", A, 0, ""}, {"b", A, -1, ""}}, "b28304097cbc2016"},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.behaviour);
    const UpdateManifest manifest = {"2.4.0", "commit", "fingerprint", given.files};
    EXPECT_EQ(ManifestDigest(manifest, "client-linux-amd64").substr(0, 16), given.beginning);
  }
}

TEST(ReleaseBlock, GivesTheDigestOfOurComponentOrRefuses) {
  const std::string head = "vantrell-release-v1\n2.4.0\n";
  const std::string ours = "client-linux-amd64 ";
  const struct {
    std::string behaviour, block, digest;
  } cases[] = {
      {"CRLF and upper case", " VANTRELL-Release-v1\r\n2.4.0 \r\n" + ours + A + "\r\n", A},
      {"upper-case digest, blanks, no line end", head + ours + "  " + UpperA, A},
      {"other lines before", head + "\nword\n " + ours + B + "\nx y\n" + ours + A, A},
      {"the first line of the component decides", head + ours + "x\n" + ours + A, ""},
      {"text after the digest", head + ours + A + " # ok\n", ""},
      {"a tab does not separate", head + "client-linux-amd64\t" + A, ""},
      {"other components", head + "Client-linux-amd64 " + A + "\nclient-linux-amd64x " + A, ""},
      {"the two head lines alone", head, ""},
      {"an empty line between them", "vantrell-release-v1\n\n2.4.0\n" + ours + A, ""},
      {"another format", "vantrell-release-v2\n2.4.0\n" + ours + A, ""},
      {"another version", "vantrell-release-v1\n2.4.1\n" + ours + A, ""},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.behaviour);
    std::string digest;
    const bool accepted = ParseReleaseBlock(given.block, "2.4.0", "client-linux-amd64", digest);
    EXPECT_EQ(accepted ? digest : "", given.digest);
  }
}

}  // namespace
}  // namespace Vantrell
