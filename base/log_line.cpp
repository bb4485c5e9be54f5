#include "base/log_line.h"

#include <cstdarg>
#include <cstdio>

namespace Vantrell {

void LogLine(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  // Text and line feed must leave together although they are two writes to the stream.
  flockfile(stderr);
  (void)vfprintf(stderr, format, arguments);
  (void)fputc('\n', stderr);
  (void)fflush(stderr);
  funlockfile(stderr);
  va_end(arguments);
}

}  // namespace Vantrell
