#include "json/json_serializer.h"

#include <cstdio>
#include <string_view>

namespace Vantrell {
namespace {

// Room for a few escapes, so that most texts need one allocation.
constexpr size_t EscapeHeadroom = 8;

void AppendEscapedByte(std::string& target, char byte) {
  switch (byte) {
    case '"':
      target += "\\\"";
      return;
    case '\\':
      target += "\\\\";
      return;
    case '\b':
      target += "\\b";
      return;
    case '\t':
      target += "\\t";
      return;
    case '\n':
      target += "\\n";
      return;
    case '\f':
      target += "\\f";
      return;
    case '\r':
      target += "\\r";
      return;
    default:
      break;
  }
  const auto code = static_cast<unsigned char>(byte);
  if (code >= 0x20) {
    target.push_back(byte);
    return;
  }
  char escape[sizeof "\\u0000"];
  snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(code));
  target += escape;
}

void AppendQuoted(std::string& target, std::string_view text) {
  target.push_back('"');
  for (const char byte : text) AppendEscapedByte(target, byte);
  target.push_back('"');
}

void AppendJson(std::string& target, const JsonValue& value);

void AppendArray(std::string& target, const JsonValue& value) {
  target.push_back('[');
  for (size_t index = 0; index < value.items.size(); ++index) {
    if (index > 0) target.push_back(',');
    AppendJson(target, value.items[index]);
  }
  target.push_back(']');
}

void AppendObject(std::string& target, const JsonValue& value) {
  target.push_back('{');
  for (size_t index = 0; index < value.keys.size(); ++index) {
    if (index > 0) target.push_back(',');
    AppendQuoted(target, value.keys[index]);
    target.push_back(':');
    AppendJson(target, value.At(index));
  }
  target.push_back('}');
}

// All levels append to one text. With a text for each child every byte would be copied once for
// each level.
void AppendJson(std::string& target, const JsonValue& value) {
  switch (value.kind) {
    case JsonKind::Bool:
    case JsonKind::Number:
      target += value.AsString();
      return;
    case JsonKind::String:
      AppendQuoted(target, value.text);
      return;
    case JsonKind::Array:
      AppendArray(target, value);
      return;
    case JsonKind::Object:
      AppendObject(target, value);
      return;
    default:
      target += "null";
      return;
  }
}

}  // namespace

std::string EscapeJsonString(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size() + EscapeHeadroom);
  for (const char byte : text) AppendEscapedByte(escaped, byte);
  return escaped;
}

std::string DumpJson(const JsonValue& value) {
  std::string text;
  AppendJson(text, value);
  return text;
}

}  // namespace Vantrell
