// The memory that a parse takes at its peak, for the kinds of text that cost most: our parser
// beside nlohmann's. Each parse runs in a process of its own.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "json/json_parser.h"

namespace Vantrell {
namespace {

constexpr size_t TextSize = 8'000'000;  // bytes

struct Shape {
  const char* name;
  const char* element;  // of an array
};

constexpr Shape Shapes[] = {
    {"numbers of one digit", "0"},
    {"arrays of one number", "[0]"},
    {"empty arrays", "[]"},
    {"empty strings", "\"\""},
    {"objects of one member", "{\"\":0}"},
    {"files of a manifest",
     R"({"name":"modules/part-000001.so","sha256":"00000000000000000000000000000000000000000000)"
     R"(00000000000000000001","size":40017,"url":"https://downloads.vantrell.example/part-000001"})"},
};

std::string MakeArray(const char* element) {
  std::string text = "[";
  while (text.size() < TextSize) text.append(element).append(",");
  text.back() = ']';
  return text;
}

// A field of /proc/self/status, in bytes.
double ReadStatus(const char* field) {
  FILE* const status = fopen("/proc/self/status", "re");
  char line[256];
  double bytes = 0;
  while (status != nullptr && fgets(line, sizeof line, status) != nullptr) {
    if (strncmp(line, field, strlen(field)) == 0) bytes = 1024 * atof(line + strlen(field) + 1);
  }
  if (status != nullptr) fclose(status);
  return bytes;
}

// Bytes of memory for each byte of text.
double MeasurePeak(void (*parse)(const std::string&), const std::string& text) {
  double result = 0;
  int ends[2];
  if (pipe(ends) != 0) return 0;
  const pid_t child = fork();
  if (child == 0) {
    const double before = ReadStatus("VmRSS");
    parse(text);
    result = (ReadStatus("VmHWM") - before) / static_cast<double>(text.size());
    _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
  }
  if (read(ends[0], &result, sizeof result) != sizeof result) result = 0;
  waitpid(child, nullptr, 0);
  close(ends[0]);
  close(ends[1]);
  return result;
}

void ParseOurs(const std::string& text) {
  if (!ParseJson(text, nullptr)) _exit(1);
}

void ParseTheirs(const std::string& text) {
  if (nlohmann::json::parse(text).empty()) _exit(1);
}

}  // namespace
}  // namespace Vantrell

int main() {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): only main is outside of it
  printf("a value has %zu bytes; bytes of memory for each byte of text:\n", sizeof(JsonValue));
  for (const Shape& shape : Shapes) {
    const std::string text = MakeArray(shape.element);
    printf("%-22s ours %6.1f, nlohmann %6.1f\n", shape.name, MeasurePeak(ParseOurs, text),
           MeasurePeak(ParseTheirs, text));
    fflush(stdout);
  }
  return 0;
}
