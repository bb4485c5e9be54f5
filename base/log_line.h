#pragma once

// The log of this program: standard error, which the service manager takes to its journal. A
// line has neither a level nor a time stamp. The tag is part of each format.

namespace Vantrell {

// Writes the formatted text and a line feed, in one write if standard error takes it. Any thread
// may call it; the lines of several threads do not mix.
void LogLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace Vantrell
