// The memory that a parse takes at its peak, for the kinds of text that cost most: our parser
// beside rapidjson and nlohmann-json. Each parse runs in a process of its own.

#include "bench/json_rivals.h"
#include "bench/own_memory.h"

namespace Vantrell {
namespace {

constexpr size_t TextSize = 8'000'000;  // bytes
constexpr int Rounds = 3;

constexpr const char* Goal = "at most 16 B/B";

struct Shape {
  const char* name;
  std::string element;  // of an array
  const char* goal = Goal;
};

const Shape Shapes[] = {
    {"numbers of one digit", "0"},
    {"arrays of one number", "[0]"},
    {"arrays in each other", std::string(500, '[') + std::string(500, ']')},
    {"empty arrays", "[]"},
    {"empty strings", "\"\""},
    {"objects of one member", "{\"\":0}"},
    {"files of a manifest",
     R"({"name":"modules/part-000001.so","sha256":"00000000000000000000000000000000000000000000)"
     R"(00000000000000000001","size":40017,"url":"https://downloads.vantrell.example/part-000001"})",
     "at most 3 B/B"},
};

std::string MakeArray(const std::string& element) {
  std::string text = "[";
  while (text.size() < TextSize) text.append(element).append(",");
  text.back() = ']';
  return text;
}

// Bytes of memory for each byte of text.
double MeasurePeak(Parse parse, const std::string& text) {
  const double before = ReadOwnMemory("VmRSS");
  parse(text);
  return (ReadOwnMemory("VmHWM") - before) / static_cast<double>(text.size());
}

}  // namespace
}  // namespace Vantrell

int main() {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): only main is outside of it
  for (const Shape& shape : Shapes) {
    Compare(std::string("memory for ") + shape.name, "B/B", MakeArray(shape.element), Rounds,
            MeasurePeak, shape.goal);
  }
  return 0;
}
