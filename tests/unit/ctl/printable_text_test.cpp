#include "ctl/printable_text.h"

#include "tests/unit/text_cases.h"

namespace Vantrell::Control {

TEST(PrintableText, KeepsTextAndEscapesWhatATerminalOrAParserWouldObey) {
  ExpectEach(
      {
          {"letters of all lengths", "a\\é€😀", "a\\é€😀"},
          {"an escape sequence", "\x1b[2J\r\n\x7f", "\\x1b[2J\\x0d\\x0a\\x7f"},
          {"a control character above ASCII", "\u009b1m", "\\xc2\\x9b1m"},
          {"a change of direction", "a\u202eb\u2066", "a\\xe2\\x80\\xaeb\\xe2\\x81\\xa6"},
          {"a byte that cannot be the first", "\xff\x80z", "\\xff\\x80z"},
          {"a sequence cut at the end", "\xe2\x82", "\\xe2\\x82"},
          {"a sequence cut by a letter", "\xe2\x82z", "\\xe2\\x82z"},
          {"an overlong escape character", "\xc0\x9b\xe0\x80\x9b", "\\xc0\\x9b\\xe0\\x80\\x9b"},
          {"a surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
      },
      PrintableText);
}

}  // namespace Vantrell::Control
