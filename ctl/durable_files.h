#pragma once

// Changes of files that survive a power cut. They log nothing. Each returns false with a reason in
// `error` when a step fails.

#include <string>

namespace Vantrell::Control {

// Makes the new file `target`, which only its owner can read, with the content of `source`, and
// writes it to the disk. A file that exists is not touched. After a failure the new file is
// removed.
[[nodiscard]] bool CopyToNewFile(const std::string& source, const std::string& target,
                                 std::string& error);

// Replaces a file by a text in one step, by way of the same name with ".new" added.
[[nodiscard]] bool ReplaceFile(const std::string& path, const std::string& text,
                               std::string& error);

// Moves a file within a file system, over another one if that exists.
[[nodiscard]] bool MoveFile(const std::string& from, const std::string& to, std::string& error);

}  // namespace Vantrell::Control
