#include "json/json_parser.h"

#include "json/json_serializer.h"
#include "tests/unit/text_cases.h"

namespace Vantrell {

TEST(JsonParser, TakesTheFirstValueOfATextOrNamesTheFirstErrorAndItsOffset) {
  std::string many;  // after these members a key is searched in an index
  for (char key = 'b'; key <= 'p'; ++key) many += std::string(",\"") + key + "\":0";
  const std::vector<TextCase> cases = {
      {"blanks", " \t\r\n{ \"b\" : [ 1 , true ,false, null ] } ", R"({"b":[1,true,false,null]})"},
      {"text after the value", "truex", "true"},
      {"repeated keys", R"({"":[1],"b":3,"":{"b":2},"1234567":5,"12345678":6,"1234567":[]})",
       R"({"":{"b":2},"b":3,"1234567":[],"12345678":6})"},
      {"repeated keys of many", "{\"a\":[0]" + many + R"(,"a":4,"q":[2],"q":[3]})",
       "{\"a\":4" + many + R"(,"q":[3]})"},
      {"numbers as strtod() reads them", "[+1,001,.1E+1,1.0.3,1-2,1e,--5,e5]", "[1,1,1,1,1,1,0,0]"},
      {"no hexadecimal numbers", "0x10", "0"},
      {"escapes", R"("\"\\\/\b\f\n\r\ta\u0000\u001f")", R"("\"\\/\b\f\n\r\ta\u0000\u001f")"},
      {"raw bytes", {"\"\tand \xFF\x80 and \0\"", 15}, "\"\\tand \xFF\x80 and \\u0000\""},
      {"UTF-8 of one to four bytes", R"("\u007f\u0080\u07FF\u0800\uffff\uD800\uDC00\uDBFF\uDFFF")",
       "\"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF\""},
      {"halves that form no pair", R"("\uDE00\uDE00\uD83D\n\uD83D\uD83D\uDE00")",
       "\"\xED\xB8\x80\xED\xB8\x80\xED\xA0\xBD\\n\xED\xA0\xBD\xED\xA0\xBD\xED\xB8\x80\""},
      {"no value", " \n\t", "unexpected end of input at offset 3"},
      {"an open array", "[1 ", "unterminated array at offset 3"},
      {"no comma", "[1 2]", "expected ',' or ']' at offset 3"},
      {"a byte order mark", "\xEF\xBB\xBF{}", "expected number at offset 0"},
      {"no key", R"({"a":1,})", "expected object key at offset 7"},
      {"no colon", R"({"a")", "expected ':' at offset 4"},
      {"an open object", R"({"a":1)", "unterminated object at offset 6"},
      {"a semicolon", R"({"a":1;)", "expected ',' or '}' at offset 6"},
      {"a misspelled word", " falsy", "bad literal at offset 1"},
      {"an open string", R"("ab\n)", "unterminated string at offset 5"},
      {"half an escape", R"("ab\)", "unterminated escape at offset 4"},
      {"an unknown escape", R"("\q")", "bad escape at offset 3"},
      {"three digits", R"("\u12)", "short \\u escape at offset 3"},
      {"other digits in a key", R"({"k\uD83D\u123x":1})", "bad hex digit at offset 15"},
      {"1001 levels", "[[],[]," + std::string(1000, '['), "nesting too deep at offset 1006"},
  };
  ExpectEach(cases, [](const std::string& text) {
    std::string error = "unchanged";
    const std::optional<JsonValue> value = ParseJson(text, &error);
    if (!value) return error;
    EXPECT_EQ(error, "unchanged");
    return DumpJson(*value);
  });
}

}  // namespace Vantrell
