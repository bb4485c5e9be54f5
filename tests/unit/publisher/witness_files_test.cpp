#include "publisher/witness_files.h"

#include "tests/unit/trust/release_data.h"

namespace Vantrell::Publisher {
namespace {

const std::string Zeros = std::string(64, '0');
const std::string Component = "client-linux-amd64";
const std::string Head = "vantrell-release-v1\n2.4.0\n";
const std::string Block = ReleaseData("release.block");
const std::string Signature = ReleaseData("release.sig1");
const std::string Absent = "404";
const std::string OtherDigest = ", but that of the offer is " + DigestOfRelease;
const std::string Unsigned = "is not a signature of the block by a release key";
const std::string Different = "differs from that of witness ";
const std::vector<std::string> Urls = {"https://w1", "https://w2/x", "https://w3"};

// The files of three witnesses in the order of their numbers.
using Served = std::vector<std::array<std::string, 3>>;

Served Release() { return Served(3, {Block, Signature, DigestOfRelease}); }

std::vector<Witness> Judged(const Served& served) {
  const auto fetch = [&served](const std::string& url, std::string& body, std::string& error) {
    for (size_t witness = 0; witness < Urls.size(); ++witness) {
      const std::string release = Urls[witness] + "/beta/2.4.0.";
      if (url == release + "release.block") body = served[witness][BlockFile];
      if (url == release + "release.sig") body = served[witness][SignatureFile];
      if (url == release + Component + ".sha256") body = served[witness][DigestFile];
    }
    if (body == Absent) error = "HTTP 404";
    return body != Absent;
  };
  std::vector<Witness> witnesses =
      FetchWitnessFiles(OfferOfRelease, Component, "beta", Urls, fetch);
  const std::string keys[] = {ReleaseData("release-key-1.der"), ReleaseData("release-key-2.der")};
  testing::internal::CaptureStderr();
  JudgeWitnessFiles(OfferOfRelease, Component, {KeyOf(keys[0]), KeyOf(keys[1])}, witnesses);
  testing::internal::GetCapturedStderr();
  return witnesses;
}

// Lines "WITNESS FILE: FAULT".
std::string Faults(const Served& served) {
  std::string faults;
  size_t number = 0;
  for (const Witness& witness : Judged(served)) {
    ++number;
    for (size_t file = 0; file < FileNames.size(); ++file) {
      const std::string& fault = witness.files[file].fault;
      if (fault.empty()) continue;
      faults += std::to_string(number) + " " + FileNames[file] + ": " + fault + "\n";
    }
  }
  return faults;
}

struct FileCase {
  size_t file;
  std::string content;
  std::string fault;
};

const FileCase WrongFiles[] = {
    {BlockFile, Absent, "HTTP 404"},
    {BlockFile, "", "is empty"},
    {BlockFile, "<html>\n", "begins with \"<html>\" instead of \"vantrell-release-v1\""},
    {BlockFile, "vantrell-release-v1\n", "has only one line"},
    {BlockFile, "vantrell-release-v1\n2.3.0\n", "is for version \"2.3.0\""},
    {BlockFile, Head, "has no line for client-linux-amd64"},
    {BlockFile, Head + Component + "\t" + DigestOfRelease,
     "has the line \"client-linux-amd64\\x09" + DigestOfRelease.substr(0, 51) +
         "...\" without a well-formed digest"},
    {BlockFile, ReleaseData("mismatch.block"),
     "names the digest \"" + std::string(64, 'b') + "\"" + OtherDigest},
    {BlockFile, Block + "\n", "is not the block that was signed"},
    {SignatureFile, Absent, "HTTP 404"},
    {SignatureFile, Signature.substr(1), "has 255 bytes instead of 256"},
    {SignatureFile, ReleaseData("mismatch.sig1"), Unsigned},
    {DigestFile, Absent, "HTTP 404"},
    {DigestFile, "\x1b[2J\n", "holds \"\\x1b[2J\\x0a\" instead of a digest"},
    {DigestFile, DigestOfRelease + "  x",
     "has text after the digest: \"" + DigestOfRelease + "  x\""},
    {DigestFile, Zeros, "names the digest " + Zeros + OtherDigest},
};

TEST(WitnessFiles, NamesTheOneWrongFileAndItsFaultOnEachWitness) {
  EXPECT_EQ(Faults(Release()), "");
  for (const FileCase& given : WrongFiles) {
    for (size_t witness = 0; witness < Urls.size(); ++witness) {
      SCOPED_TRACE(given.fault);
      Served served = Release();
      served[witness][given.file] = given.content;
      EXPECT_EQ(Faults(served), std::to_string(witness + 1) + " " + FileNames[given.file] + ": " +
                                    given.fault + "\n");
    }
  }
}

TEST(WitnessFiles, TellsWhoseSignatureItIsAndWhichOneDiffers) {
  Served served = Release();
  served[1][SignatureFile] = ReleaseData("release.sig2");
  EXPECT_EQ(Faults(served), "2 signature: " + Different + "1 and witness 3\n");
  EXPECT_EQ(Judged(served)[0].files[SignatureFile].remark, "by release key 1");
  EXPECT_EQ(Judged(served)[1].files[SignatureFile].remark, "by release key 2");
  served[2][SignatureFile] = Absent;
  EXPECT_EQ(Faults(served), "1 signature: " + Different + "2\n2 signature: " + Different +
                                "1\n3 signature: HTTP 404\n");
}

TEST(WitnessFiles, JudgesAFileByTheFilesThatAreRight) {
  const std::string wrongBlock = "block: is for version \"2.3.0\"\n";
  const std::string mismatch = "names the digest \"" + std::string(64, 'b') + "\"" + OtherDigest;
  Served two = Release();
  two[0] = two[2] = {ReleaseData("mismatch.block"), ReleaseData("mismatch.sig1"), DigestOfRelease};
  EXPECT_EQ(Faults(two), "1 block: " + mismatch + "\n1 signature: is that of a wrong block\n" +
                             "3 block: " + mismatch + "\n3 signature: is that of a wrong block\n");
  Served strangers = Release();
  Served blockless = Release();
  for (auto& files : strangers) files[SignatureFile] = std::string(256, 'x');
  for (auto& files : blockless) files[BlockFile] = Absent;
  EXPECT_EQ(Faults(strangers), "1 signature: " + Unsigned + "\n2 signature: " + Unsigned +
                                   "\n3 signature: " + Unsigned + "\n");
  EXPECT_EQ(Judged(blockless)[2].files[SignatureFile].fault, "cannot be judged without a block");
}

TEST(WitnessFiles, ShowsThatTheOfferIsWrongIfAllNameAnotherDigest) {
  Served served = Release();
  EXPECT_EQ(OtherDigestOfAll(OfferOfRelease, Component, Judged(served)), "");
  for (auto& files : served) files[DigestFile] = Zeros;  // beside blocks that name the offer
  EXPECT_EQ(OtherDigestOfAll(OfferOfRelease, Component, Judged(served)), "");
  for (auto& files : served) files = {ReleaseData("mismatch.block"), "", Zeros};
  EXPECT_EQ(OtherDigestOfAll(OfferOfRelease, Component, Judged(served)), Zeros);
  served[2][DigestFile] = DigestOfRelease;
  EXPECT_EQ(OtherDigestOfAll(OfferOfRelease, Component, Judged(served)), "");
}

}  // namespace
}  // namespace Vantrell::Publisher
