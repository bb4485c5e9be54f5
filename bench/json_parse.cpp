// The processor time to parse manifests of 100 to 100 000 files and to free the value: our parser
// beside rapidjson and nlohmann-json. Each parse runs in a process of its own.

#include <ctime>

#include "bench/json_rivals.h"

namespace Vantrell {
namespace {

constexpr int Files[] = {100, 1000, 10000, 100000};

// The parsers take turns this often with manifests of 100 000 files, and more often with others.
constexpr int LeastRounds = 11;
constexpr int MostRounds = 101;

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

double ReadMilliseconds() {
  timespec used = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

double MeasureTime(Parse parse, const std::string& text) {
  const double before = ReadMilliseconds();
  parse(text);
  return ReadMilliseconds() - before;
}

}  // namespace
}  // namespace Vantrell

int main() {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): only main is outside of it
  for (const int files : Files) {
    const int rounds = std::clamp(200000 / files, LeastRounds, MostRounds);
    Compare("parse a manifest of " + std::to_string(files) + " files", "ms", MakeManifest(files),
            rounds, MeasureTime, "at most 1.2");
  }
  return 0;
}
