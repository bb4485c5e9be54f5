#include "base/file_content.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <string_view>

#include "base/descriptor.h"
#include "base/read_input.h"

namespace Vantrell {
namespace {

constexpr size_t ReadBlockBytes = 4096;

}  // namespace

bool ReadOptionalFile(const std::string& path, std::string& content) {
  content.clear();
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return true;
  return ReadToEnd(file.Number(), ReadBlockBytes,
                   [&content](std::string_view block) { content += block; });
}

std::string ReadWholeFile(const std::string& path) {
  std::string content;
  // A read of a file in /proc fails half-way when its process ends. Half a file is of no use.
  return ReadOptionalFile(path, content) ? content : "";
}

bool IsRegularFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace Vantrell
