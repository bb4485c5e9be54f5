#pragma once

// The owner of a stdio stream: closes it when the owner goes. The result of that close says
// nothing; who must know that the data arrived flushes first. Streams of ours are opened with
// mode letter "e", close-on-exec: a child must not get them.

#include <cstdio>
#include <memory>

namespace Vantrell {

struct StreamClose {
  void operator()(FILE* stream) const { (void)fclose(stream); }
};
using Stream = std::unique_ptr<FILE, StreamClose>;

}  // namespace Vantrell
