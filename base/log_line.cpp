#include "base/log_line.h"

#include <cstdarg>
#include <cstdio>

namespace Vantrell {

void LogLine(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  // Without the lock, another thread could write between the text and its line feed.
  flockfile(stderr);
  vfprintf(stderr, format, arguments);
  fputc('\n', stderr);
  fflush(stderr);
  funlockfile(stderr);
  va_end(arguments);
}

}  // namespace Vantrell
