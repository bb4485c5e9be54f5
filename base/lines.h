#pragma once

// Splitting and trimming of texts. Pure functions, safe on any thread.

#include <string>
#include <string_view>
#include <vector>

namespace Vantrell {

// The lines of a text without their line feeds. Only a line feed ends a line. A last line without
// a line feed is a line too; a line feed at the end of the text does not begin another one.
std::vector<std::string> SplitLines(std::string_view text);

// The text without those of `characters` that are at its end. A view of `text`.
std::string_view TrimEnd(std::string_view text, std::string_view characters);

// The text without the carriage returns and line feeds at its end.
std::string TrimLineEnd(std::string_view text);

}  // namespace Vantrell
