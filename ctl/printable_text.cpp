#include "ctl/printable_text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace Vantrell::Control {
namespace {

struct Character {
  size_t length = 0;  // in bytes; 0 for an invalid sequence
  uint32_t code = 0;
};

uint32_t Byte(char byte) { return static_cast<unsigned char>(byte); }

// The length that the first byte of a sequence announces; 0 for a byte that cannot be the first.
size_t SequenceLength(uint32_t first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return 2;
  if (first >= 0xE0 && first <= 0xEF) return 3;
  if (first >= 0xF0 && first <= 0xF4) return 4;
  return 0;
}

// The first character of a text that is not empty.
Character FirstCharacter(std::string_view text) {
  const size_t length = SequenceLength(Byte(text[0]));
  if (length == 0 || length > text.size()) return {};
  if (length == 1) return {1, Byte(text[0])};
  uint32_t code = Byte(text[0]) & (0x7FU >> length);
  for (size_t index = 1; index < length; ++index) {
    if ((Byte(text[index]) & 0xC0) != 0x80) return {};
    code = code << 6 | (Byte(text[index]) & 0x3F);
  }
  // Overlong forms, surrogates, and numbers above the last character.
  constexpr uint32_t LowestCode[] = {0, 0, 0x80, 0x800, 0x10000};
  if (code < LowestCode[length] || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) return {};
  return {length, code};
}

bool IsPrintable(uint32_t code) {
  if (code < 0x20 || (code >= 0x7F && code <= 0x9F)) return false;  // control characters
  if (code == 0x2028 || code == 0x2029) return false;               // line separators
  const bool changesDirection = code == 0x61C || code == 0x200E || code == 0x200F ||
                                (code >= 0x202A && code <= 0x202E) ||
                                (code >= 0x2066 && code <= 0x2069);
  return !changesDirection;
}

}  // namespace

std::string PrintableText(std::string_view text) {
  std::string printable;
  while (!text.empty()) {
    const Character first = FirstCharacter(text);
    const size_t length = first.length == 0 ? 1 : first.length;
    if (first.length > 0 && IsPrintable(first.code)) {
      printable += text.substr(0, length);
    } else {
      for (const char byte : text.substr(0, length)) {
        char escaped[5] = {};
        snprintf(escaped, sizeof escaped, "\\x%02x", Byte(byte));
        printable += escaped;
      }
    }
    text.remove_prefix(length);
  }
  return printable;
}

}  // namespace Vantrell::Control
