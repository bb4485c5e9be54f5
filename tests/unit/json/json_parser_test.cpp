#include "json/json_parser.h"

#include <gtest/gtest.h>

#include "json/json_serializer.h"

namespace Vantrell {

TEST(JsonParser, TakesTheFirstValueOfAText) {
  const struct {
    std::string behaviour, text, dump;
  } cases[] = {
      {"blanks", " \t\r\n{ \"b\" : [ 1 , true ,false, null ] } ", R"({"b":[1,true,false,null]})"},
      {"text after the value", "truex", "true"},
      {"a repeated key", R"({"":[1],"":{"c":2},"b":3,"":[4]})", R"({"":[4],"b":3})"},
      {"escapes", R"("\"\\\/\b\f\n\r\ta\u0000\u001f")", R"("\"\\/\b\f\n\r\ta\u0000\u001f")"},
      {"raw bytes", {"\"\tand \xFF\x80 and \0\"", 15}, "\"\\tand \xFF\x80 and \\u0000\""},
      {"short UTF-8", R"("\u007f\u0080\u07FF")", "\"\x7F\xC2\x80\xDF\xBF\""},
      {"long UTF-8", R"("\u0800\uffff\uDBFF\uDFFF")",
       "\"\xE0\xA0\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF\""},
      {"half a pair", R"("\uDE00\uD83D\n\uD83Dx")", "\"\xED\xB8\x80\xED\xA0\xBD\\n\xED\xA0\xBDx\""},
      {"two halves", R"("\uD83D\uD83D\uDE00")", "\"\xED\xA0\xBD\xED\xA0\xBD\xED\xB8\x80\""},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.behaviour);
    std::string error = "unchanged";
    EXPECT_EQ(DumpJson(ParseJson(given.text, &error).value_or(JsonValue())), given.dump);
    EXPECT_EQ(error, "unchanged");
  }
}

TEST(JsonParser, NamesTheFirstErrorAndItsOffset) {
  const struct {
    std::string behaviour, text, error;
  } cases[] = {
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
      {"1001 levels", std::string(1001, '['), "nesting too deep at offset 1000"},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.behaviour);
    std::string error;
    EXPECT_FALSE(ParseJson(given.text, &error));
    EXPECT_EQ(error, given.error);
  }
}

TEST(JsonParser, ReadsTheBeginningOfANumberAsStrtodDoes) {
  for (const char* one : {"+1", "001", ".1E+1", "1.0.3", "1-2", "1e,"}) {
    EXPECT_EQ(ParseJson(one, nullptr)->number, 1) << one;
  }
  for (const char* zero : {"0x10", "--5", "e5"}) EXPECT_EQ(ParseJson(zero, nullptr)->number, 0);
}

TEST(JsonParser, KeepsTheFirstPlaceAndTheLastValueOfManyKeys) {
  std::string text = "{";
  for (int key = 0; key < 20; ++key) text += "\"k" + std::to_string(key) + "\":0,";
  const JsonValue value =
      *ParseJson(text + R"("k15":1,"k16":{},"k16":2,"new":4,"new":3})", nullptr);
  ASSERT_EQ(value.values.size(), 21u);
  EXPECT_EQ(value.values[15].number, 1);
  EXPECT_EQ(value.values[16].number, 2);
  EXPECT_EQ(value.values[20].number, 3);
}

}  // namespace Vantrell
