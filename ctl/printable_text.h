#pragma once

// Texts from outside, such as reasons that quote the update server, in a form that is safe on a
// terminal and in JSON. A pure function.

#include <string>
#include <string_view>

namespace Vantrell::Control {

// The text with each byte of a control character, of a character that changes the direction of
// writing, or of an invalid UTF-8 sequence written as "\xNN". The result is valid UTF-8.
std::string PrintableText(std::string_view text);

}  // namespace Vantrell::Control
