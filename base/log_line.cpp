#include "base/log_line.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

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

// A stop signal can interrupt the write of a full pipe. The rest of the line must still follow.
void WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace

void LogLine(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string line = FormatText(format, arguments) + "\n";
  va_end(arguments);
  // The lock is for a line that needs more than one write: lines of other threads must not mix in.
  flockfile(stderr);
  WriteAll(STDERR_FILENO, line);
  funlockfile(stderr);
}

}  // namespace Vantrell
