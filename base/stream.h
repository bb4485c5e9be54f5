#pragma once

// The owner of a stdio stream: closes it when the owner goes. The result of that close says
// nothing; who must know that the data arrived flushes first. Every stream of ours is
// close-on-exec (mode letter "e", or over such a descriptor): a child must not get it.

#include <cstdio>
#include <memory>

namespace Vantrell {

struct StreamClose {
  void operator()(FILE* stream) const { (void)fclose(stream); }
};
using Stream = std::unique_ptr<FILE, StreamClose>;

}  // namespace Vantrell
