#include "update/manifest.h"

#include "tests/unit/text_cases.h"

namespace Vantrell {
namespace {

const std::string Hash(64, 'Z');

// An offer of two entries: a good one with values of unusual types, and the given one. `name` is as
// it is written in the JSON text.
std::string Offer(const std::string& name, const std::string& hash = Hash, const char* url = "u") {
  return R"({"version":7,"files":[{"name":"a/b\\.deb","url":false,"size":"1234","sha256":")" +
         Hash + R"("},{"name":")" + name + R"(","sha256":")" + hash + R"(","url":")" + url +
         R"("}]})";
}

TEST(Manifest, IsTakenWithAnyTypesOrRefusedForItsFirstFault) {
  const std::vector<TextCase> cases = {
      {"values of other types", Offer("a"), "7 1234"},
      {"an array", "[]", "response is not a JSON object"},
      {"no version", R"({"version":["1"],"files":[1]})", "manifest has no version"},
      {"no list of files", R"({"version":"1","files":{"a":1}})", "manifest has no files"},
      {"no name", Offer(""), "manifest entry  is incomplete"},
      {"a longer hash", Offer("/a", Hash + "Z"), "manifest entry /a is incomplete"},
      {"no URL", Offer("a", Hash, ""), "manifest entry a is incomplete"},
      {"two dots", Offer("a..b"), "manifest entry a..b escapes the install directory"},
      {"a colon", Offer("a/c:d"), "manifest entry a/c:d escapes the install directory"},
      {"a slash first", Offer("/a"), "manifest entry /a escapes the install directory"},
      {"a backslash first", Offer("\\\\a"), "manifest entry \\a escapes the install directory"},
  };
  ExpectEach(cases, [](const std::string& body) {
    UpdateManifest manifest;
    std::string error;
    if (!ParseManifest(body, manifest, error)) return error;
    return manifest.version + " " + std::to_string(manifest.files[0].size);
  });
}

}  // namespace
}  // namespace Vantrell
