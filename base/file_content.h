#pragma once

// The content and the kind of single files. Any thread may call these; they log nothing.

#include <string>

namespace Vantrell {

// All bytes of a file, however many; empty when the file cannot be read to its end. Meant for
// small files, those of /proc included.
std::string ReadWholeFile(const std::string& path);

// The same into `content`. False when the file opens but cannot be read to its end. A file that
// cannot be opened is read as an empty one.
[[nodiscard]] bool ReadOptionalFile(const std::string& path, std::string& content);

// True for a regular file, and for a link to one.
[[nodiscard]] bool IsRegularFile(const std::string& path);

}  // namespace Vantrell
