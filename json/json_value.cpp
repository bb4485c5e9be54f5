#include "json/json_value.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace Vantrell {
namespace {

constexpr double Int64End = 9223372036854775808.0;  // 2 to the 63rd: the first one too large
constexpr size_t NumberTextSize = 40;               // bytes; the longest int64_t has 20 characters

// False for NaN too: every comparison with NaN is false.
bool FitsInt64(double value) { return value >= -Int64End && value < Int64End; }

// Outside the range the cast is undefined, so the range is tested first.
int64_t TruncateToInt64(double value) {
  return FitsInt64(value) ? static_cast<int64_t>(value) : INT64_MIN;
}

double ReadDouble(const std::string& text, double fallback) {
  return text.empty() ? fallback : strtod(text.c_str(), nullptr);
}

// The place of the key, or the number of keys when there is none.
size_t FindKey(const CompactVector<CompactString>& keys, std::string_view key) {
  const CompactString* const found = std::find(keys.begin(), keys.end(), key);
  return static_cast<size_t>(found - keys.begin());
}

std::string NumberText(double value) {
  char buffer[NumberTextSize];
  if (FitsInt64(value) && value == std::trunc(value)) {
    // An integer zero has no sign, so -0.0 is printed as 0.
    snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(value));
  } else {
    snprintf(buffer, sizeof buffer, "%g", value);
  }
  return buffer;
}

}  // namespace

JsonValue::JsonValue(bool truth) : kind(JsonKind::Bool), boolean(truth) {}

JsonValue::JsonValue(double value) : kind(JsonKind::Number), number(value) {}

JsonValue::JsonValue(int64_t value) : kind(JsonKind::Number), number(static_cast<double>(value)) {}

JsonValue::JsonValue(const std::string& content) : kind(JsonKind::String), text(content) {}

JsonValue::JsonValue(const char* content) : JsonValue(std::string(content)) {}

JsonValue JsonValue::EmptyArray() {
  JsonValue array;
  array.kind = JsonKind::Array;
  return array;
}

JsonValue JsonValue::EmptyObject() {
  JsonValue object;
  object.kind = JsonKind::Object;
  return object;
}

// Swaps, so that the old children are destroyed, with `other`, only after the new ones are in
// place.
JsonValue& JsonValue::operator=(JsonValue other) noexcept {
  kind = other.kind;
  boolean = other.boolean;
  number = other.number;
  std::swap(text, other.text);
  std::swap(items, other.items);
  std::swap(keys, other.keys);
  std::swap(values, other.values);
  return *this;
}

size_t JsonValue::Size() const {
  if (kind == JsonKind::Array) return items.size();
  if (kind == JsonKind::Object) return keys.size();
  return 0;
}

const JsonValue& JsonValue::At(size_t index) const {
  if (kind == JsonKind::Array && index < items.size()) return items[index];
  if (kind == JsonKind::Object && index < values.size()) return values[index];
  return JsonNullValue();
}

const JsonValue& JsonValue::Get(const std::string& key) const {
  if (kind != JsonKind::Object) return JsonNullValue();
  return At(FindKey(keys, key));
}

bool JsonValue::Contains(const std::string& key) const {
  return kind == JsonKind::Object && FindKey(keys, key) != keys.size();
}

std::string JsonValue::FirstString(const std::vector<std::string>& names,
                                   const std::string& fallback) const {
  for (const std::string& name : names) {
    std::string found = Get(name).AsString("");
    if (!found.empty()) return found;
  }
  return fallback;
}

bool JsonValue::AsBool(bool fallback) const {
  switch (kind) {
    case JsonKind::Bool:
      return boolean;
    case JsonKind::Number:
      return number != 0;  // NaN is true
    case JsonKind::String:
      return text == "true" || text == "1";
    default:
      return fallback;
  }
}

double JsonValue::AsDouble(double fallback) const {
  switch (kind) {
    case JsonKind::Bool:
      return boolean ? 1.0 : 0.0;
    case JsonKind::Number:
      return number;
    case JsonKind::String:
      return ReadDouble(AsString(), fallback);
    default:
      return fallback;
  }
}

int64_t JsonValue::AsInt(int64_t fallback) const {
  if (kind == JsonKind::Null) return fallback;
  const double value = AsDouble(static_cast<double>(fallback));
  return std::isfinite(value) ? TruncateToInt64(value) : fallback;
}

std::string JsonValue::AsString(const std::string& fallback) const {
  switch (kind) {
    case JsonKind::Bool:
      return boolean ? "true" : "false";
    case JsonKind::Number:
      return NumberText(number);
    case JsonKind::String:
      return std::string(std::string_view(text));
    default:
      return fallback;
  }
}

JsonValue& JsonValue::PushBack(JsonValue value) {
  if (kind != JsonKind::Array) {
    kind = JsonKind::Array;
    items.Clear();
  }
  return items.Append(std::move(value));
}

JsonValue& JsonValue::Set(const std::string& key, JsonValue value) {
  if (kind != JsonKind::Object) {
    kind = JsonKind::Object;
    keys.Clear();
    values.Clear();
  }
  const size_t place = FindKey(keys, key);
  if (place < keys.size()) return values[place] = std::move(value);
  keys.Append(CompactString(key));
  return values.Append(std::move(value));
}

const JsonValue& JsonNullValue() {
  // Never deleted: a detached thread may still have a reference while the process exits.
  static const JsonValue* const shared = new JsonValue;
  return *shared;
}

}  // namespace Vantrell
