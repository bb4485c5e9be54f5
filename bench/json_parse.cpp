// The processor time to parse manifests of 100 to 100 000 files and to free the value: our parser
// beside rapidjson and nlohmann-json. Each parse runs in a process of its own.

#include "bench/json_rivals.h"
#include "bench/manifest_text.h"
#include "bench/stopwatch.h"

namespace Vantrell {
namespace {

constexpr int Files[] = {100, 1000, 10000, 100000};

// The parsers take turns this often with manifests of 100 000 files, and more often with others.
constexpr int LeastRounds = 11;
constexpr int MostRounds = 101;

std::string MakeManifest(int files) {
  std::string text = R"({"version":"2.4.0","git_commit":"","driver_fingerprint":"","files":[)";
  for (int number = 0; number < files; ++number) {
    text += (number == 0 ? "" : ",") + ManifestEntry(number);
  }
  return text + "]}";
}

double MeasureTime(Parse parse, const std::string& text) {
  return ProcessorMicroseconds([&] { parse(text); }) / 1e3;
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
