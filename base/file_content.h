#pragma once

// Questions about single files. Any thread may call these; they log nothing.

#include <string>

namespace Vantrell {

// All bytes of a file, however many; empty when it cannot be read. Meant for small files,
// those of /proc included.
std::string ReadWholeFile(const std::string& path);

// Follows links: a link to a regular file counts.
bool IsRegularFile(const std::string& path);

}  // namespace Vantrell
