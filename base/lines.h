#pragma once

// Texts taken apart line by line. Pure functions, safe on any thread.

#include <string>
#include <string_view>
#include <vector>

namespace Vantrell {

// The lines of a text without their line feeds. Only a line feed ends a line. A last line
// without one counts; the empty rest behind a final line feed does not.
std::vector<std::string> SplitLines(std::string_view text);

// The text without the carriage returns and line feeds at its end.
std::string WithoutLineEnd(std::string_view text);

}  // namespace Vantrell
