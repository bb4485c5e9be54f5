#pragma once

// One JSON value, and the tolerant reading of it: lookups that fail give a shared Null and
// accessors take a default, so that a chain such as `doc.Get("files").At(0).Get("size").AsInt(0)`
// needs no test in between. Values are plain values, each owns its children, and one thread at
// a time uses them.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Vantrell {

enum class JsonKind : uint32_t {
  Null = 0,
  Bool = 1,
  Number = 2,
  String = 3,
  Array = 4,
  Object = 5,
};

// A flat record: every value has all the fields, and only those of its kind mean something.
// An Object is an ordered list: `keys` and `values` run side by side, in the order in which the
// keys first appeared, and no key stands in it twice.
struct JsonValue {
  JsonKind kind = JsonKind::Null;
  bool boolean = false;
  double number = 0;
  std::string text;  // UTF-8 as far as the input was; may hold NUL bytes
  std::vector<JsonValue> items;
  std::vector<std::string> keys;
  std::vector<JsonValue> values;

  JsonValue() = default;
  explicit JsonValue(bool truth);
  explicit JsonValue(double value);
  explicit JsonValue(int64_t value);  // kept as a double: exact up to 2 to the 53rd
  explicit JsonValue(std::string content);
  explicit JsonValue(const char* content);  // without it a literal would become a Bool
  static JsonValue EmptyArray();
  static JsonValue EmptyObject();

  JsonValue(const JsonValue& other) = default;
  JsonValue(JsonValue&& other) noexcept = default;
  ~JsonValue() = default;
  // Takes its source by value, because that may be a child of this very value, as in
  // `doc = doc.Get("files")`; member by member it would be read after it was overwritten.
  JsonValue& operator=(JsonValue other) noexcept;

  // Elements of an Array, members of an Object; 0 for all else.
  size_t Size() const;
  // The element of an Array, or the value of an Object at this place of its key order.
  // JsonNullValue() out of range and for all other kinds.
  const JsonValue& At(size_t index) const;
  // The member of an Object, by a linear search. JsonNullValue() when there is none.
  const JsonValue& Get(const std::string& key) const;
  bool Contains(const std::string& key) const;
  // The first of these members that reads as a string with something in it.
  std::string FirstString(const std::vector<std::string>& names, const std::string& fallback) const;

  // What has no sensible reading of the wanted type gives the fallback: Null, Array and Object
  // always do. Numbers, Bools and Strings are read as each other.

  // A String is true if it is "true" or "1" and false otherwise, the empty one too.
  bool AsBool(bool fallback = false) const;
  // A String is read as far as strtod gets, so words give 0; an empty one gives the fallback.
  double AsDouble(double fallback = 0) const;
  // Truncates toward zero. NaN and the infinities give the fallback, finite numbers beyond 64 bits
  // the lowest value. A fallback given for a String, Array or Object goes through a double.
  int64_t AsInt(int64_t fallback = 0) const;
  // Whole numbers within 64 bits in all their digits, others with six significant ones.
  std::string AsString(const std::string& fallback = {}) const;

  // Both first turn a value of another kind into an empty Array or Object; the fields of the
  // kind that it was stay behind, unread.
  void PushBack(JsonValue value);
  // A key that is present keeps its place and gets the new value. Searches all keys, so
  // building an object of n keys this way takes on the order of n squared comparisons.
  void Set(std::string key, JsonValue value);
};

// The Null that failed lookups refer to. Any thread may ask for it at any time, also while the
// process exits.
const JsonValue& JsonNullValue();

}  // namespace Vantrell
