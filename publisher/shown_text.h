#pragma once

// Texts of servers in a form that harms neither a terminal nor a page. Pure functions.

#include <cstddef>
#include <string>
#include <string_view>

namespace Vantrell::Publisher {

// The first bytes, with "..." if there are more. Control characters and invalid UTF-8 are written
// as "\xNN".
std::string Shown(std::string_view text, size_t limit = 300);

// The same in quotes, up to 70 bytes: a piece of a file within a sentence.
std::string Quoted(std::string_view text);

// A shown text as content of an HTML element.
std::string ShownInHtml(std::string_view text);

}  // namespace Vantrell::Publisher
