// Times our parser and nlohmann's on the same manifests, in the same run.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "json/json_parser.h"

namespace Vantrell {
namespace {

// The parsers take turns. The fastest round is the result: the others were disturbed.
constexpr int Rounds = 15;

std::string MakeManifest(int files) {
  std::string text = R"({"version":"2.4.0","git_commit":"","driver_fingerprint":"","files":[)";
  for (int number = 0; number < files; ++number) {
    char entry[256];
    snprintf(entry, sizeof entry,
             R"(%s{"name":"modules/part-%06d.so","sha256":"%064d","size":%d,)"
             R"("url":"https://downloads.vantrell.example/releases/2.4.0/modules/part-%06d.so"})",
             number == 0 ? "" : ",", number, number, 40000 + number * 17, number);
    text += entry;
  }
  return text + "]}";
}

size_t CountFilesOurs(const std::string& text) {
  return ParseJson(text, nullptr)->Get("files").Size();
}

size_t CountFilesTheirs(const std::string& text) {
  return nlohmann::json::parse(text)["files"].size();
}

// Milliseconds to parse the text and to free the value.
double TimeOnce(size_t (*countFiles)(const std::string&), const std::string& text, size_t files) {
  const auto start = std::chrono::steady_clock::now();
  const size_t found = countFiles(text);
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
  if (found != files) {
    fprintf(stderr, "json_parse: %zu of %zu files were read\n", found, files);
    exit(1);
  }
  return taken.count();
}

// Prints one line and returns the time of our parser.
double Compare(int files) {
  const std::string text = MakeManifest(files);
  double ours = 1e9;
  double theirs = 1e9;
  for (int round = 0; round < Rounds; ++round) {
    ours = std::min(ours, TimeOnce(CountFilesOurs, text, static_cast<size_t>(files)));
    theirs = std::min(theirs, TimeOnce(CountFilesTheirs, text, static_cast<size_t>(files)));
  }
  printf("%6d files, %5.1f MB: ours %7.2f ms, nlohmann %7.2f ms, ratio %.2f\n", files,
         static_cast<double>(text.size()) / 1e6, ours, theirs, ours / theirs);
  return ours;
}

}  // namespace
}  // namespace Vantrell

int main() {
  const double small = Vantrell::Compare(10000);
  const double large = Vantrell::Compare(100000);
  printf("ten times the files take %.1f times as long\n", large / small);
  return 0;
}
