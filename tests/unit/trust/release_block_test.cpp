#include "trust/release_block.h"

#include "tests/unit/text_cases.h"
#include "update/update.h"

namespace Vantrell {
namespace {

const std::string A(64, 'a');
const std::string B(64, 'b');
const std::string UpperA(64, 'A');

// The expected digest is the sha256sum of 2.4.0|client-linux-amd64 and these lines, in this order:
// a.b:B:2, a:UpperA:18446744073709551615 and a:B:1, without a line feed at the end.
TEST(ManifestDigest, IsOfTheSortedLinesWithoutRepetitions) {
  UpdateManifest manifest = {"2.4.0", "commit", "fingerprint", {}};
  manifest.files = {{"a.b", B, 2, ""}, {"a", UpperA, -1, ""}, {"a", B, 1, ""}, {"a.b", B, 2, "x"}};
  EXPECT_EQ(ManifestDigest(manifest, "client-linux-amd64"),
            "362fe817107245b69ed2803de2703099d39f2d80d517660be3e84ca1b29ac7d5");
}

TEST(ReleaseBlock, GivesTheDigestOfOurComponentOrRefuses) {
  const std::string head = "vantrell-release-v1\n2.4.0\n";
  const std::string ours = "client-linux-amd64 ";
  const std::vector<TextCase> cases = {
      {"CRLF, blanks and upper case",
       " VANTRELL-Release-v1\r\n2.4.0 \r\n" + ours + " " + UpperA + "\r\n", A},
      {"other lines before", head + "\nword\n " + ours + B + "\nx y\n" + ours + A, A},
      {"the first line of the component decides", head + ours + "x\n" + ours + A, "refused"},
      {"text after the digest", head + ours + A + " # ok\n", "refused"},
      {"a tab does not separate", head + "client-linux-amd64\t" + A, "refused"},
      {"other components", head + "Client-linux-amd64 " + A + "\nclient-linux-amd64x " + A,
       "refused"},
      {"the format alone", "vantrell-release-v1", "refused"},
      {"another format", "vantrell-release-v2\n2.4.0\n" + ours + A, "refused"},
      {"another version", "vantrell-release-v1\n2.4.1\n" + ours + A, "refused"},
  };
  ExpectEach(cases, [](const std::string& block) {
    std::string digest;
    const bool accepted = ParseReleaseBlock(block, "2.4.0", "client-linux-amd64", digest);
    return accepted ? digest : "refused";
  });
}

}  // namespace
}  // namespace Vantrell
