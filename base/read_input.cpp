#include "base/read_input.h"

#include <unistd.h>

#include <cerrno>
#include <vector>

namespace Vantrell {

ssize_t ReadSome(int descriptor, void* buffer, size_t size) {
  for (;;) {
    const ssize_t count = read(descriptor, buffer, size);
    if (count >= 0 || errno != EINTR) return count;
  }
}

bool ReadToEnd(int descriptor, size_t blockBytes,
               const std::function<void(std::string_view block)>& take) {
  std::vector<char> block(blockBytes);
  for (;;) {
    const ssize_t count = ReadSome(descriptor, block.data(), block.size());
    if (count < 0) return false;
    if (count == 0) return true;
    take({block.data(), static_cast<size_t>(count)});
  }
}

}  // namespace Vantrell
