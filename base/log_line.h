#pragma once

// The one way in which this program logs: standard error, which the service manager
// carries to its journal. No levels, no time stamps; the tag is part of each format.

namespace Vantrell {

// Writes the formatted text and a line feed, and flushes. Any thread may call it; a line
// of one thread is never torn by another's.
void LogLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace Vantrell
