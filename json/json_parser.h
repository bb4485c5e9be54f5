#pragma once

// A JSON parser that is strict about structure and lenient about content: every run of number
// characters with a digit is a number, strings may contain raw control characters and lone
// surrogates, and text after the first value is ignored.

#include <optional>
#include <string>

#include "json/json_value.h"

namespace Vantrell {

// Returns the first value in `text`, or nothing. On failure `*error` gets "MESSAGE at offset N",
// with N in bytes from 0; on success it is unchanged. `error` may be null. A text with more than
// 1000 levels of nesting is refused. Any thread with a stack of 1 MiB or more may call it. The time
// is proportional to the length of the text, with a factor of log n for an object of n keys.
[[nodiscard]] std::optional<JsonValue> ParseJson(const std::string& text, std::string* error);

}  // namespace Vantrell
