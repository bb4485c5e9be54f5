#pragma once

// Takes a JSON text apart. Lenient about content and strict about structure: any run of number
// characters with a digit in it is a number, strings may hold raw control characters and lone
// surrogates, and what stands behind the first value is ignored. What the document means is for
// its reader to judge.

#include <optional>
#include <string>

#include "json/json_value.h"

namespace Vantrell {

// The first value in `text`, or nothing. Then `*error` (which may be null) says why, as
// "MESSAGE at offset N" with N in bytes from 0; on success it is left alone. Safe on any thread
// with a stack of 1 MiB or more; a text that nests deeper than 1000 levels is refused.
// Takes time in proportion to the text, with a factor log n for an object of n keys.
[[nodiscard]] std::optional<JsonValue> ParseJson(const std::string& text, std::string* error);

}  // namespace Vantrell
