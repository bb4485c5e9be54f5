#pragma once

// A JSON value and tolerant access to it: a lookup that fails returns a shared Null and accessors
// take a default, so that a chain such as `doc.Get("files").At(0).Get("size").AsInt(0)` needs no
// tests in between. A value owns its children. Only one thread at a time may use a value.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "json/compact_vector.h"

namespace Vantrell {

enum class JsonKind : uint32_t {
  Null = 0,
  Bool = 1,
  Number = 2,
  String = 3,
  Array = 4,
  Object = 5,
};

// Every value has all the fields; only those of its kind are valid. An Object is an ordered list:
// `keys` and `values` have the same length, and the keys are distinct and in the order in which
// they first appeared. The record is small, because the length of an answer has no limit:
// bench/json_memory.cpp measures what a text costs.
struct JsonValue {
  JsonKind kind = JsonKind::Null;
  bool boolean = false;
  double number = 0;
  CompactString text;  // UTF-8 if the input was; may contain NUL bytes
  CompactVector<JsonValue> items;
  CompactVector<CompactString> keys;
  CompactVector<JsonValue> values;

  JsonValue() = default;
  explicit JsonValue(bool truth);
  explicit JsonValue(double value);
  explicit JsonValue(int64_t value);  // kept as a double: exact up to 2 to the 53rd
  explicit JsonValue(const std::string& content);
  explicit JsonValue(const char* content);  // without this one a literal would become a Bool
  static JsonValue EmptyArray();
  static JsonValue EmptyObject();

  JsonValue(const JsonValue& other) = default;
  JsonValue(JsonValue&& other) noexcept = default;
  ~JsonValue() = default;
  // Takes its source by value, because the source may be a child of this value, as in `doc =
  // doc.Get("files")`. A copy of one field after the other would destroy it half-way.
  JsonValue& operator=(JsonValue other) noexcept;

  // The number of elements of an Array or of members of an Object; 0 for other kinds.
  size_t Size() const;
  // The element of an Array, or the value of the key of an Object at this index. JsonNullValue()
  // out of range and for other kinds.
  const JsonValue& At(size_t index) const;
  // The value of a key of an Object, by a linear search. JsonNullValue() when there is none.
  const JsonValue& Get(const std::string& key) const;
  [[nodiscard]] bool Contains(const std::string& key) const;
  // The value of the first of these keys that AsString reads as a text that is not empty.
  std::string FirstString(const std::vector<std::string>& names, const std::string& fallback) const;

  // Numbers, Bools and Strings are converted into each other. A value that cannot be converted
  // gives the fallback; Null, Array and Object always do.

  // A String is true if it is "true" or "1" and otherwise false, an empty one too.
  bool AsBool(bool fallback = false) const;
  // A String is read by strtod, so a text without a number gives 0. An empty String gives the
  // fallback.
  double AsDouble(double fallback = 0) const;
  // Truncates toward zero. NaN and the infinities give the fallback; finite numbers beyond 64 bits
  // give the lowest value. The fallback for a String, an Array or an Object goes through a double.
  int64_t AsInt(int64_t fallback = 0) const;
  // Whole numbers within 64 bits are written with all digits, others with six significant ones.
  std::string AsString(const std::string& fallback = {}) const;

  // Appends to an Array. Sets the value of a key of an Object: a present key keeps its place, a new
  // one is appended. Set() searches all keys, so an object of n keys takes about n * n comparisons.
  // A value of another kind first becomes an empty Array or Object; its other fields stay, unread.
  // Both return the stored value, valid until the next change of this value.
  JsonValue& PushBack(JsonValue value);
  JsonValue& Set(const std::string& key, JsonValue value);
};

// The Null that failed lookups return. Any thread may use it at any time, during the exit of the
// process too.
const JsonValue& JsonNullValue();

}  // namespace Vantrell
