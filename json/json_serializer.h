#pragma once

// JSON as text: the escaping of one string, and the rendering of a whole value. Pure functions;
// only exhausted memory can stop them.

#include <string>

#include "json/json_value.h"

namespace Vantrell {

// `text` fit to stand between two quotes, which are not added. Bytes from 0x80 up pass as they
// are, so that UTF-8 stays as it came and an invalid sequence is not repaired.
[[nodiscard]] std::string EscapeJsonString(const std::string& text);

// The value without any whitespace, keys in their stored order. Numbers lose digits, since they
// are written by AsString, and NaN and the infinities come out as words that no parser takes.
[[nodiscard]] std::string DumpJson(const JsonValue& value);

}  // namespace Vantrell
