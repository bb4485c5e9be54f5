#include "base/log_line.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "base/write_output.h"

namespace Vantrell {
namespace {

__attribute__((format(printf, 1, 0))) std::string FormatText(const char* format,
                                                             va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length < 0) return "";
  std::string text(static_cast<size_t>(length), '\0');
  vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

}  // namespace

void LogLine(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string line = FormatText(format, arguments) + "\n";
  va_end(arguments);
  // The lock is for a line that needs more than one write: lines of other threads must not mix in.
  flockfile(stderr);
  // A stop signal can interrupt the write of a full pipe. The rest of the line must still follow.
  WriteAll(STDERR_FILENO, line);
  funlockfile(stderr);
}

}  // namespace Vantrell
