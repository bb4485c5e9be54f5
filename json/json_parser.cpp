#include "json/json_parser.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace Vantrell {
namespace {

// The limit for arrays and objects within each other. The text comes from the network, and the
// parser is recursive, as are copy, destructor and DumpJson of its result: without a limit a body
// of brackets would end the process. Each of them needs less than 512 KiB of stack for this many
// levels as it is shipped, and less than 4 MiB without optimisation or with a sanitizer. A thread
// has 8 MiB.
constexpr size_t NestingLimit = 1000;

// From this number of members on, keys are searched in an index. For fewer members a search through
// the list is faster.
constexpr size_t IndexedSize = 16;

// A number of so many digits and nothing else is read without strtod(): every such number is exact
// as a double.
constexpr size_t ExactDigits = 15;

constexpr size_t ErrorTextSize = 128;  // bytes, including the NUL at the end

constexpr size_t UnicodeDigits = 4;  // hexadecimal, after the `u` of an escape

// The state of one parse.
struct JsonParser {
  const std::string& text;
  size_t position = 0;
  size_t depth = 0;       // arrays and objects that are open at `position`
  std::string error;      // empty until the first error
  std::string unescaped;  // the content of the last string that had an escape
  // The complete members of all objects that are open at `position`.
  CompactVector<CompactString> keys;
  CompactVector<JsonValue> values;

  bool AtEnd() const { return position >= text.size(); }
  char Current() const { return text[position]; }
};

// Compares keys, and places of keys in JsonParser::keys.
struct KeyOrder {
  using is_transparent = void;
  const CompactVector<CompactString>& keys;

  std::string_view Key(size_t place) const { return keys[place]; }
  static std::string_view Key(std::string_view key) { return key; }
  bool operator()(auto left, auto right) const { return Key(left) < Key(right); }
};

// The places of the keys of one object. A tree and not a hash table, because the author of the
// document chooses the keys and could choose them so that their hashes collide.
using KeyIndex = std::set<size_t, KeyOrder>;

// Keeps the first error. Returns false, so that the caller can return the result. Not inlined,
// because its buffer would enlarge the stack frames of the recursive functions.
[[gnu::noinline]] bool SetParseError(JsonParser& parser, const char* message) {
  if (!parser.error.empty()) return false;
  char buffer[ErrorTextSize];
  snprintf(buffer, sizeof buffer, "%s at offset %zu", message, parser.position);
  parser.error = buffer;
  return false;
}

void SkipWhitespace(JsonParser& parser) {
  while (!parser.AtEnd()) {
    const char byte = parser.Current();
    if (byte != ' ' && byte != '\t' && byte != '\n' && byte != '\r') return;
    ++parser.position;
  }
}

// Moves past the byte if it is the next one.
bool Accept(JsonParser& parser, char byte) {
  if (parser.AtEnd() || parser.Current() != byte) return false;
  ++parser.position;
  return true;
}

// A lone surrogate gets the three-byte form, as every other value of this range does.
void AppendUtf8(std::string& text, uint32_t codePoint) {
  const auto append = [&text](uint32_t byte) { text.push_back(static_cast<char>(byte)); };
  const auto appendTail = [&](int shift) { append(0x80 | ((codePoint >> shift) & 0x3F)); };
  if (codePoint < 0x80) {
    append(codePoint);
  } else if (codePoint < 0x800) {
    append(0xC0 | (codePoint >> 6));
    appendTail(0);
  } else if (codePoint < 0x10000) {
    append(0xE0 | (codePoint >> 12));
    appendTail(6);
    appendTail(0);
  } else {
    append(0xF0 | (codePoint >> 18));
    appendTail(12);
    appendTail(6);
    appendTail(0);
  }
}

// The value of a hexadecimal digit of either case, or -1.
int HexDigit(char byte) {
  if (byte >= '0' && byte <= '9') return byte - '0';
  if (byte >= 'a' && byte <= 'f') return byte - 'a' + 10;
  if (byte >= 'A' && byte <= 'F') return byte - 'A' + 10;
  return -1;
}

bool ParseFourHexDigits(JsonParser& parser, uint32_t& value) {
  if (parser.text.size() - parser.position < UnicodeDigits) {
    return SetParseError(parser, "short \\u escape");
  }
  value = 0;
  for (size_t count = 0; count < UnicodeDigits; ++count) {
    const int digit = HexDigit(parser.text[parser.position++]);
    if (digit < 0) return SetParseError(parser, "bad hex digit");
    value = value * 16 + static_cast<uint32_t>(digit);
  }
  return true;
}

// Begins after the `u`. A high surrogate and a directly following escape of a low one form a pair.
// Other values are appended one by one.
bool ParseUnicodeEscape(JsonParser& parser, std::string& target) {
  uint32_t first = 0;
  if (!ParseFourHexDigits(parser, first)) return false;

  const bool isHigh = first >= 0xD800 && first <= 0xDBFF;
  if (!isHigh || parser.text.compare(parser.position, 2, "\\u") != 0) {
    AppendUtf8(target, first);
    return true;
  }

  parser.position += 2;
  uint32_t second = 0;
  if (!ParseFourHexDigits(parser, second)) return false;
  if (second >= 0xDC00 && second <= 0xDFFF) {
    AppendUtf8(target, 0x10000 + ((first & 0x3FF) << 10) + (second & 0x3FF));
    return true;
  }
  AppendUtf8(target, first);
  AppendUtf8(target, second);
  return true;
}

// Begins after the backslash.
bool ParseEscape(JsonParser& parser, std::string& target) {
  if (parser.AtEnd()) return SetParseError(parser, "unterminated escape");
  const char byte = parser.text[parser.position++];
  switch (byte) {
    case '"':
    case '\\':
    case '/':
      target.push_back(byte);
      return true;
    case 'b':
      target.push_back('\b');
      return true;
    case 'f':
      target.push_back('\f');
      return true;
    case 'n':
      target.push_back('\n');
      return true;
    case 'r':
      target.push_back('\r');
      return true;
    case 't':
      target.push_back('\t');
      return true;
    case 'u':
      return ParseUnicodeEscape(parser, target);
    default:
      return SetParseError(parser, "bad escape");
  }
}

// The place of the next such byte before `end`, or `end`.
size_t FindByte(const JsonParser& parser, char byte, size_t end) {
  const std::string_view text(parser.text.data(), end);
  return std::min(text.find(byte, parser.position), end);
}

// Begins at the opening quote. All bytes are accepted: raw line ends and invalid UTF-8 are part of
// the string. `content` becomes a view of the text or, if the string has an escape, of
// `parser.unescaped`. It is valid until the next string is read.
bool ParseJsonString(JsonParser& parser, std::string_view& content) {
  const std::string_view text = parser.text;
  ++parser.position;
  parser.unescaped.clear();
  size_t quote = FindByte(parser, '"', text.size());
  while (true) {
    // Not searched again after each escape, so that the time is linear.
    if (quote < parser.position) quote = FindByte(parser, '"', text.size());
    const size_t stop = FindByte(parser, '\\', quote);
    content = text.substr(parser.position, stop - parser.position);
    parser.position = stop;
    if (parser.AtEnd()) return SetParseError(parser, "unterminated string");
    ++parser.position;
    if (stop == quote && parser.unescaped.empty()) return true;

    parser.unescaped.append(content);
    content = parser.unescaped;
    if (stop == quote) return true;
    if (!ParseEscape(parser, parser.unescaped)) return false;
  }
}

bool IsNumberByte(char byte) {
  return (byte >= '0' && byte <= '9') || byte == '+' || byte == '-' || byte == '.' || byte == 'E' ||
         byte == 'e';
}

// Called for every text that does not begin another kind, so most garbage is refused here.
bool ParseNumber(JsonParser& parser, JsonValue& value) {
  const size_t start = parser.position;
  bool hasDigit = false;
  while (!parser.AtEnd() && IsNumberByte(parser.Current())) {
    hasDigit = hasDigit || (parser.Current() >= '0' && parser.Current() <= '9');
    ++parser.position;
  }
  if (!hasDigit) return SetParseError(parser, "expected number");

  value.kind = JsonKind::Number;
  const std::string_view run(parser.text.data() + start, parser.position - start);
  uint64_t whole = 0;
  const char* const end = std::from_chars(run.begin(), run.end(), whole).ptr;
  if (end == run.end() && run.size() <= ExactDigits) {
    value.number = static_cast<double>(whole);
    return true;
  }
  // strtod() gets a copy of the run: in the text itself it would read 0x10 as 16. It may stop
  // before the end of the run.
  value.number = strtod(std::string(run).c_str(), nullptr);
  return true;
}

// An error has the position of the first byte of the word. The byte after the word is not checked.
bool AcceptLiteral(JsonParser& parser, std::string_view word) {
  if (parser.text.compare(parser.position, word.size(), word) != 0) {
    return SetParseError(parser, "bad literal");
  }
  parser.position += word.size();
  return true;
}

bool ParseBool(JsonParser& parser, JsonValue& value) {
  value.kind = JsonKind::Bool;
  value.boolean = parser.Current() == 't';
  return AcceptLiteral(parser, value.boolean ? "true" : "false");
}

// Fills a new Null value. An element of an array is already in its place, so that it is not moved.
bool ParseJsonValue(JsonParser& parser, JsonValue& value);

bool ParseArray(JsonParser& parser, JsonValue& value) {
  value.kind = JsonKind::Array;
  ++parser.position;
  SkipWhitespace(parser);
  if (Accept(parser, ']')) return true;

  while (true) {
    if (!ParseJsonValue(parser, value.items.Append(JsonValue()))) return false;

    SkipWhitespace(parser);
    if (parser.AtEnd()) return SetParseError(parser, "unterminated array");
    if (Accept(parser, ']')) return true;
    if (!Accept(parser, ',')) return SetParseError(parser, "expected ',' or ']'");
  }
}

// The place of the key among those from `first` on, which are those of one object, or the number of
// all keys when there is none. `index` belongs to this object and is empty at first.
size_t FindKey(const CompactVector<CompactString>& keys, size_t first, KeyIndex& index,
               std::string_view key) {
  if (keys.size() - first < IndexedSize) {
    const CompactString* const found = std::find(keys.begin() + first, keys.end(), key);
    return static_cast<size_t>(found - keys.begin());
  }
  for (size_t place = first + index.size(); place < keys.size(); ++place) index.insert(place);
  const auto entry = index.find(key);
  return entry == index.end() ? keys.size() : *entry;
}

// A key and the colon after it.
bool ParseKey(JsonParser& parser, CompactString& key) {
  SkipWhitespace(parser);
  if (parser.AtEnd() || parser.Current() != '"') {
    return SetParseError(parser, "expected object key");
  }
  std::string_view content;
  if (!ParseJsonString(parser, content)) return false;
  key = content;
  SkipWhitespace(parser);
  return Accept(parser, ':') || SetParseError(parser, "expected ':'");
}

// Does what Set() does for the object whose members begin at `first`.
bool ParseMember(JsonParser& parser, size_t first, KeyIndex& index) {
  CompactString key;
  JsonValue value;
  if (!ParseKey(parser, key) || !ParseJsonValue(parser, value)) return false;
  const size_t place = FindKey(parser.keys, first, index, key);
  if (place < parser.keys.size()) {
    parser.values[place] = std::move(value);
    return true;
  }
  parser.keys.Append(std::move(key));
  parser.values.Append(std::move(value));
  return true;
}

// The members are gathered in the parser, after those of the objects around this one, so that the
// object gets blocks of exactly their number.
bool ParseObject(JsonParser& parser, JsonValue& object) {
  object.kind = JsonKind::Object;
  ++parser.position;
  SkipWhitespace(parser);
  if (Accept(parser, '}')) return true;

  const size_t first = parser.keys.size();
  KeyIndex index(KeyOrder{parser.keys});  // stays empty while the object has few members
  while (true) {
    if (!ParseMember(parser, first, index)) return false;

    SkipWhitespace(parser);
    if (parser.AtEnd()) return SetParseError(parser, "unterminated object");
    if (Accept(parser, '}')) break;
    if (!Accept(parser, ',')) return SetParseError(parser, "expected ',' or '}'");
  }
  index.clear();  // before the members are in memory twice
  object.keys = parser.keys.CutFrom(first);
  object.values = parser.values.CutFrom(first);
  return true;
}

// Limits the recursion of arrays and objects.
bool ParseNested(JsonParser& parser, JsonValue& value) {
  if (parser.depth == NestingLimit) return SetParseError(parser, "nesting too deep");
  ++parser.depth;
  const bool done =
      parser.Current() == '[' ? ParseArray(parser, value) : ParseObject(parser, value);
  --parser.depth;
  return done;
}

bool ParseText(JsonParser& parser, JsonValue& value) {
  value.kind = JsonKind::String;
  std::string_view content;
  if (!ParseJsonString(parser, content)) return false;
  value.text = content;
  return true;
}

bool ParseJsonValue(JsonParser& parser, JsonValue& value) {
  SkipWhitespace(parser);
  if (parser.AtEnd()) return SetParseError(parser, "unexpected end of input");
  switch (parser.Current()) {
    case '"':
      return ParseText(parser, value);
    case '[':
    case '{':
      return ParseNested(parser, value);
    case 't':
    case 'f':
      return ParseBool(parser, value);
    case 'n':
      return AcceptLiteral(parser, "null");
    default:
      return ParseNumber(parser, value);
  }
}

}  // namespace

std::optional<JsonValue> ParseJson(const std::string& text, std::string* error) {
  JsonParser parser{text, 0, 0, {}, {}, {}, {}};
  JsonValue value;
  if (ParseJsonValue(parser, value)) return value;
  if (error != nullptr) *error = parser.error;
  return std::nullopt;
}

}  // namespace Vantrell
