#include "update/update.h"

#include "base/file_content.h"
#include "tests/unit/temporary_folder.h"
#include "update/host_inventory.h"
#include "update/installed_record.h"
#include "update/manifest.h"
#include "update/request_bodies.h"
#include "update/staging.h"

namespace Vantrell {

TEST(PrettyName, IsTheLastOneWithoutItsDoubleQuotes) {
  EXPECT_EQ(FindPrettyName("PRETTY_NAME=a\nPRETTY_NAME=\"b \\\"c\"\nNAME=d\n"), "b \\\"c");
  EXPECT_EQ(FindPrettyName("PRETTY_NAME='a'"), "'a'");
  EXPECT_EQ(FindPrettyName("PRETTY_NAME=\""), "\"");
  EXPECT_EQ(FindPrettyName("#PRETTY_NAME=a\n PRETTY_NAME=b\n"), "");
}

TEST(InstallId, IsKeptOnceItIsMade) {
  const TemporaryFolder folder;
  const std::string kernel = folder.Write("uuid", "made\n");
  EXPECT_EQ(LoadInstallId(folder.Path("new/state/install-id"), folder.Path("absent")), "unknown");
  EXPECT_EQ(LoadInstallId(folder.Path("new/state/install-id"), kernel), "made");
  EXPECT_EQ(ReadWholeFile(folder.Path("new/state/install-id")), "made\n");
  folder.Write("new/state/install-id", "a\nb  \r\n");
  EXPECT_EQ(LoadInstallId(folder.Path("new/state/install-id"), kernel), "a\nb  ");
}

TEST(RequestBodies, AreTheseBytes) {
  const std::string check = BuildCheckRequest("beta", "client", "", "f", "a\"b\n\xC4");
  EXPECT_EQ(AddInstallId(check, "i\"d"),
            "{\"ring\":\"beta\",\"component\":\"client\",\"current_version\":\"\","
            "\"driver_fingerprint\":\"f\",\"os_build\":\"a\\\"b\\n\xC4\",\"install_id\":\"i\"d\"}");
}

const std::string Hash(64, 'Z');

// An offer of this entry and an empty one. `name` as it stands in the JSON text.
static std::string Offer(const std::string& name, const std::string& hash = Hash,
                         const char* url = "u") {
  return R"({"version":"1","files":[{"name":")" + name + R"(","sha256":")" + hash + R"(","url":")" +
         url + R"("},{}]})";
}

const std::pair<std::string, std::string> RefusedOffers[] = {
    {"", "unexpected end of input at offset 0"},
    {"[]", "response is not a JSON object"},
    {R"({"version":["1"],"files":[1]})", "manifest has no version"},
    {R"({"version":"1","files":{"a":1}})", "manifest has no files"},
    {R"({"version":"1","files":[]})", "manifest has no files"},
    {Offer("good"), "manifest entry  is incomplete"},
    {Offer("/a", Hash + "Z"), "manifest entry /a is incomplete"},
    {Offer("a", Hash, ""), "manifest entry a is incomplete"},
    {Offer("a..b"), "manifest entry a..b escapes the install directory"},
    {Offer("a/c:d"), "manifest entry a/c:d escapes the install directory"},
    {Offer("/a"), "manifest entry /a escapes the install directory"},
    {Offer("\\\\a"), "manifest entry \\a escapes the install directory"},
};

TEST(Manifest, IsRefusedForItsFirstFault) {
  for (const auto& [body, expected] : RefusedOffers) {
    UpdateManifest manifest;
    std::string error;
    EXPECT_FALSE(ParseManifest(body, manifest, error)) << body;
    EXPECT_EQ(error, expected) << body;
  }
}

TEST(Manifest, IsReadWithLenientTypes) {
  const std::string entry = R"({"sha256":")" + Hash + R"(","name":)";
  const std::string files = entry + R"(1,"url":false,"size":"1234","x":1},)" + entry +
                            R"("a/b\\.deb","url":"u","size":-5.9}]} tail)";
  UpdateManifest manifest;
  std::string error;
  ASSERT_TRUE(
      ParseManifest(R"({"version":7,"git_commit":true,"files":[)" + files, manifest, error));
  std::string read = manifest.version + manifest.git_commit + manifest.driver_fingerprint;
  for (const ManifestFile& file : manifest.files) {
    read += "|" + file.name + " " + std::to_string(file.size) + " " + file.url;
  }
  EXPECT_EQ(read, "7true|1 1234 false|a/b\\.deb -5 u");
}

TEST(InstalledRecord, ListsFilesByTheirLineAnywhere) {
  const ManifestFile listed = {"x.deb", "aa", 0, ""};
  EXPECT_TRUE(ListsEveryFile("ax.deb aa\nb bb\n", {"", "", "", {listed, {"b", "bb", 0, ""}}}));
  EXPECT_FALSE(ListsEveryFile("ax.deb aa\nb bb\n", {"", "", "", {listed, {"b", "b", 0, ""}}}));
  EXPECT_FALSE(ListsEveryFile("", {}));
}

TEST(Download, FollowsNoLinkAndSpeaksHttpsOnly) {
  const TemporaryFolder folder;
  const std::string kept = folder.Write("kept", "content");
  std::filesystem::create_symlink(kept, folder.Path("link"));
  std::string error;
  EXPECT_FALSE(DownloadToFile("https://127.0.0.1:1/", folder.Path("link"), error));
  EXPECT_EQ(error, "cannot create staging file");
  EXPECT_EQ(ReadWholeFile(kept), "content");
  EXPECT_FALSE(DownloadToFile("http://127.0.0.1:1/", kept, error));
  EXPECT_EQ(error, "download failed, Unsupported protocol");
  EXPECT_FALSE(std::filesystem::exists(kept));
}

}  // namespace Vantrell
