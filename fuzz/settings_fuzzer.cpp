// Feeds arbitrary settings files to the reader and the writer. A new value must be read again, and
// every line of another key must stay byte for byte.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "base/file_content.h"
#include "base/lines.h"
#include "fuzz/require.h"
#include "settings/maintenance_window.h"
#include "settings/settings_file.h"

namespace Vantrell {
namespace {

const std::string& Path() {
  static const std::string path = "/dev/shm/settings-fuzzer-" + std::to_string(getpid());
  return path;
}

void WriteFile(const uint8_t* data, size_t size) {
  FILE* file = fopen(Path().c_str(), "wbe");
  Require(file != nullptr, "no file in /dev/shm");
  fwrite(data, 1, size, file);
  fclose(file);
}

// The lines that do not set the ring; a key may have blanks around it.
std::vector<std::string> ForeignLines(const std::string& text) {
  std::vector<std::string> lines;
  for (const std::string& line : SplitLines(text)) {
    const bool isRing = !line.starts_with("#") && line.find('=') != std::string::npos &&
                        TrimSetting(line.substr(0, line.find('='))) == "Channel";
    if (!isRing) lines.push_back(line);
  }
  return lines;
}

}  // namespace
}  // namespace Vantrell

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): a function of C
  WriteFile(data, size);
  const std::string ring = ParseChannel(ReadSettingFrom(Path(), "Channel", nullptr));
  Require(ring == "dev" || ring == "beta" || ring == "prod", "an unknown ring");
  Require(ParseHost(ReadSettingFrom(Path(), "Endpoint", nullptr)).find('\n') == std::string::npos,
          "a host of two lines");

  const std::vector<std::string> before = ForeignLines(std::string(data, data + size));
  Require(WriteSettingTo(Path(), "Channel", "beta"), "a file that is not written");
  Require(ReadSettingFrom(Path(), "Channel", nullptr) == "beta", "a value that is not read again");
  Require(ForeignLines(ReadWholeFile(Path())) == before, "a rewrite that changes other lines");
  unlink(Path().c_str());
  return 0;
}
