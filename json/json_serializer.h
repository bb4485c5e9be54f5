#pragma once

// Writing of JSON: escaping of one string, and the text of a whole value. Pure functions, safe on
// any thread. They fail only when memory is exhausted.

#include <string>

#include "json/json_value.h"

namespace Vantrell {

// The content of a JSON string for `text`, without the quotes around it. Bytes from 0x80 on are not
// changed, so UTF-8 stays as it is and an invalid sequence is not repaired.
[[nodiscard]] std::string EscapeJsonString(const std::string& text);

// The text of a value, without white space and with the keys in their stored order. Numbers are
// written by AsString, so they may lose digits, and NaN and the infinities become words that are
// not JSON.
[[nodiscard]] std::string DumpJson(const JsonValue& value);

}  // namespace Vantrell
