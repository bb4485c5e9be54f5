#include "base/file_content.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/descriptor.h"

namespace Vantrell {

std::string ReadWholeFile(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return "";

  std::string content;
  char block[4096];
  for (;;) {
    const ssize_t got = read(file.Number(), block, sizeof block);
    if (got < 0 && errno == EINTR) continue;
    // A process that ends while its files in /proc are read gives an error half-way.
    if (got < 0) return "";
    if (got == 0) return content;
    content.append(block, static_cast<size_t>(got));
  }
}

bool IsRegularFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace Vantrell
