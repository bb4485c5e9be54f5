#pragma once

// The owner of a stdio stream: closes it at the end of the owner's life. The result of this close
// is lost, so a caller that must know that the data was written calls fflush() first. Open every
// stream close-on-exec (mode letter "e", or on such a descriptor): a child must not inherit it.

#include <cstdio>
#include <memory>

namespace Vantrell {

struct StreamClose {
  void operator()(FILE* stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, StreamClose>;

}  // namespace Vantrell
