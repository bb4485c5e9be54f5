// Feeds arbitrary bytes to the JSON parser. A refusal must name a position in the text. An accepted
// value must be equal after a dump and a second parse, except for the digits of its numbers.

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/require.h"
#include "json/json_parser.h"
#include "json/json_serializer.h"

namespace Vantrell {
namespace {

void CheckError(const std::string& error, size_t textSize) {
  const std::string mark = " at offset ";
  const size_t found = error.rfind(mark);
  Require(found != std::string::npos && found > 0, "an error without text or offset");
  Require(strtoull(error.c_str() + found + mark.size(), nullptr, 10) <= textSize,
          "an offset beyond the text");
}

// Infinities are written as words that are not JSON, so such a dump cannot be parsed again.
bool IsFinite(const JsonValue& value) {
  if (!std::isfinite(value.number)) return false;
  for (size_t index = 0; index < value.Size(); ++index) {
    if (!IsFinite(value.At(index))) return false;
  }
  return true;
}

// Numbers are written with six digits and may differ; everything else must be equal.
bool IsSameButForDigits(const JsonValue& left, const JsonValue& right) {
  if (left.kind != right.kind || left.boolean != right.boolean) return false;
  if (left.text != right.text || left.keys != right.keys) return false;
  if (left.Size() != right.Size()) return false;
  for (size_t index = 0; index < left.Size(); ++index) {
    if (!IsSameButForDigits(left.At(index), right.At(index))) return false;
  }
  return true;
}

JsonValue Reparse(const std::string& text) {
  std::string error;
  const std::optional<JsonValue> value = ParseJson(text, &error);
  Require(value.has_value(), "a dump that does not parse");
  return *value;
}

void CheckValue(const JsonValue& value) {
  Require(value.keys.size() == value.values.size(), "keys without values");
  const std::string dump = DumpJson(value);
  if (!IsFinite(value)) return;

  const JsonValue second = Reparse(dump);
  Require(IsSameButForDigits(value, second), "a dump that reads as another value");
  // The first dump may write 1.23457e+06 and the second 1234570. The third equals the second.
  const std::string secondDump = DumpJson(second);
  Require(DumpJson(Reparse(secondDump)) == secondDump, "a dump that does not settle");
}

}  // namespace
}  // namespace Vantrell

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  std::string error;
  const auto value = Vantrell::ParseJson(text, &error);
  if (value) {
    Vantrell::CheckValue(*value);
  } else {
    Vantrell::CheckError(error, size);
  }
  return 0;
}
