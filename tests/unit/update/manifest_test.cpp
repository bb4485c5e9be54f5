#include "update/manifest.h"

#include <gtest/gtest.h>

namespace Vantrell {
namespace {

const std::string Hash(64, 'Z');

// An offer of this entry and an empty one. `name` is as it is written in the JSON text.
std::string Offer(const std::string& name, const std::string& hash = Hash, const char* url = "u") {
  return R"({"version":"1","files":[{"name":")" + name + R"(","sha256":")" + hash + R"(","url":")" +
         url + R"("},{}]})";
}

TEST(Manifest, IsRefusedForItsFirstFault) {
  const struct {
    std::string body, error;
  } cases[] = {
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
  for (const auto& given : cases) {
    SCOPED_TRACE(given.body);
    UpdateManifest manifest;
    std::string error;
    EXPECT_FALSE(ParseManifest(given.body, manifest, error));
    EXPECT_EQ(error, given.error);
  }
}

TEST(Manifest, ConvertsValuesOfOtherTypes) {
  const std::string files = R"([{"name":"a/b\\.deb","url":false,"size":"1234","sha256":")" + Hash;
  UpdateManifest manifest;
  std::string error;
  ASSERT_TRUE(ParseManifest(R"({"version":7,"files":)" + files + R"("}]} tail)", manifest, error));
  EXPECT_EQ(manifest.version, "7");
  ASSERT_EQ(manifest.files.size(), 1u);
  EXPECT_EQ(manifest.files[0].name, "a/b\\.deb");
  EXPECT_EQ(manifest.files[0].size, 1234);
  EXPECT_EQ(manifest.files[0].url, "false");
}

}  // namespace
}  // namespace Vantrell
