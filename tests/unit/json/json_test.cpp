#include <gtest/gtest.h>
#include <pthread.h>

#include <cmath>
#include <string>
#include <vector>

#include "json/json_parser.h"
#include "json/json_serializer.h"

namespace Vantrell {
namespace {

using namespace std::string_literals;

struct TextCase {
  std::string given;
  std::string expected;
};

std::string Repeated(const std::string& piece, int count) {
  std::string text;
  for (int done = 0; done < count; ++done) text += piece;
  return text;
}

std::string Nested(int levels) { return Repeated("[", levels) + Repeated("]", levels); }

TEST(JsonParser, TakesTheFirstValueAndIsLenientAboutContent) {
  const TextCase cases[] = {
      {" \t\r\n{ \"b\" : [ 1 , true ,false, null ] , \"a\" : { } } ",
       R"({"b":[1,true,false,null],"a":{}})"},
      {R"({"":{"\"\n":[ ]}}])", R"({"":{"\"\n":[]}})"},
      {R"({"a":[1],"a":{"c":2},"b":3,"a":[4]})", R"({"a":[4],"b":3})"},
      {"truex", "true"},
      {"0x10", "0"},
      {"[+7,007,-0,.5,5.,-2.5E+1,1.2.3,1-2,1e,--5,e5,1e999,-1e999,9007199254740993]",
       "[7,7,0,0.5,5,-25,1.2,1,1,0,0,inf,-inf,9007199254740992]"},
      {"1" + std::string(2000000, '0'), "inf"},
      {"0." + std::string(2000000, '3'), "0.333333"},
      {R"("\"\\\/\b\f\n\r\ta\u0000b")", R"("\"\\/\b\f\n\r\ta\u0000b")"},
      {"\"raw\ttab\nand \xFF\x80 and \0 nul\""s, "\"raw\\ttab\\nand \xFF\x80 and \\u0000 nul\""},
      {R"("\u007f\u0080\u07FF\u0800\uffff")", "\"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\""},
      {R"("\uD83D\uDE00\uDBFF\uDFFF")", "\"\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\""},
      {R"("\uD83D\u0041\uDE00\uD83D\n\uD83Dx")",
       "\"\xED\xA0\xBD\x41\xED\xB8\x80\xED\xA0\xBD\\n\xED\xA0\xBDx\""},
      {R"("\uD83D\uD83D\uDE00")", "\"\xED\xA0\xBD\xED\xA0\xBD\xED\xB8\x80\""},
  };
  for (const TextCase& given : cases) {
    SCOPED_TRACE(given.given.substr(0, 60));
    std::string error = "untouched";
    const JsonValue value = ParseJson(given.given, &error).value_or(JsonValue("failed"));
    EXPECT_EQ(DumpJson(value), given.expected);
    EXPECT_EQ(error, "untouched");
  }
}

TEST(JsonParser, NamesTheFirstErrorAndItsOffset) {
  const TextCase cases[] = {{"", "unexpected end of input at offset 0"},
                            {" \n\t", "unexpected end of input at offset 3"},
                            {R"({"a": )", "unexpected end of input at offset 6"},
                            {"[1 ", "unterminated array at offset 3"},
                            {"[1 2]", "expected ',' or ']' at offset 3"},
                            {"[1,]", "expected number at offset 3"},
                            {"{", "expected object key at offset 1"},
                            {R"({"a":1,})", "expected object key at offset 7"},
                            {R"({"a")", "expected ':' at offset 4"},
                            {R"({"a":1)", "unterminated object at offset 6"},
                            {R"({"a":1;)", "expected ',' or '}' at offset 6"},
                            {"tru", "bad literal at offset 0"},
                            {" falsy", "bad literal at offset 1"},
                            {"[+-.x]", "expected number at offset 4"},
                            {"\xEF\xBB\xBF{}", "expected number at offset 0"},
                            {"\"ab", "unterminated string at offset 3"},
                            {R"("ab\n)", "unterminated string at offset 5"},
                            {R"("ab\)", "unterminated escape at offset 4"},
                            {R"("\q")", "bad escape at offset 3"},
                            {R"("\u12)", "short \\u escape at offset 3"},
                            {R"("\uD83D\u12)", "short \\u escape at offset 9"},
                            {R"({"k\uD83D\u123x":1})", "bad hex digit at offset 15"},
                            {Nested(1001), "nesting too deep at offset 1000"},
                            {Repeated(" {\"a\":[", 600), "nesting too deep at offset 3501"}};
  for (const TextCase& given : cases) {
    SCOPED_TRACE(given.given.substr(0, 60));
    std::string error;
    EXPECT_FALSE(ParseJson(given.given, &error));
    EXPECT_EQ(error, given.expected);
    EXPECT_FALSE(ParseJson(given.given, nullptr));
  }
}

// The least that the parser promises to get along with; a sanitizer's frames need more.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t SmallStack = 8192UL * 1024;
#else
constexpr size_t SmallStack = 1024UL * 1024;
#endif

void* CopyAndDumpDeepestDocument(void* dump) {
  const JsonValue value = *ParseJson(Nested(1000), nullptr);
  const std::vector<JsonValue> copies(1, value);
  *static_cast<std::string*>(dump) = DumpJson(copies.front());
  return nullptr;
}

TEST(JsonParser, DeepestDocumentFitsASmallStack) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, SmallStack), 0);
  pthread_t thread;
  std::string dump;
  ASSERT_EQ(pthread_create(&thread, &attributes, CopyAndDumpDeepestDocument, &dump), 0);
  pthread_join(thread, nullptr);
  EXPECT_EQ(dump, Nested(1000));
}

TEST(JsonParser, LargeObjectKeepsFirstPlaceAndLastValue) {
  std::string text = "{";
  for (int key = 0; key < 200000; ++key) text += "\"k" + std::to_string(key) + "\":0,";
  text += R"("k199999":3,"k15":1,"k16":{},"new":4,"k16":2,"new":5})";
  const JsonValue value = ParseJson(text, nullptr).value_or(JsonValue());
  ASSERT_EQ(value.keys.size(), 200001U);
  std::string found;
  for (const size_t place : {14U, 15U, 16U, 199999U, 200000U})
    found += value.keys[place] + value.At(place).AsString("?") + " ";
  EXPECT_EQ(found, "k140 k151 k162 k1999993 new5 ");
}

constexpr int64_t Odd = 9007199254740993;  // 2 to the 53rd and one: no double holds it

struct AccessorCase {
  JsonValue value;
  bool asBool;  // each with the fallback of its accessor: true, 0.5, Odd, "none"
  double asDouble;
  int64_t asInt;
  std::string asString;
};

TEST(JsonValue, AccessorsConvertOrGiveTheFallback) {
  const AccessorCase cases[] = {
      {JsonValue(), true, 0.5, Odd, "none"},
      {JsonValue::EmptyArray(), true, 0.5, 9007199254740992, "none"},
      {JsonValue::EmptyObject(), true, 0.5, 9007199254740992, "none"},
      {JsonValue(true), true, 1, 1, "true"},
      {JsonValue(false), false, 0, 0, "false"},
      {JsonValue(-0.0), false, 0, 0, "0"},
      {JsonValue(-2.9), true, -2.9, -2, "-2.9"},
      {JsonValue(1234567.5), true, 1234567.5, 1234567, "1.23457e+06"},
      {JsonValue(1e15), true, 1e15, 1000000000000000, "1000000000000000"},
      {JsonValue(0x1p63), true, 0x1p63, INT64_MIN, "9.22337e+18"},
      {JsonValue(-0x1p63), true, -0x1p63, INT64_MIN, "-9223372036854775808"},
      {JsonValue(HUGE_VAL), true, HUGE_VAL, Odd, "inf"},
      {JsonValue(""), false, 0.5, 9007199254740992, ""},
      {JsonValue("true"), true, 0, 0, "true"},
      {JsonValue("1"), true, 1, 1, "1"},
      {JsonValue("TRUE"), false, 0, 0, "TRUE"},
      {JsonValue("12abc"), false, 12, 12, "12abc"},
      {JsonValue("1e30"), false, 1e30, INT64_MIN, "1e30"}};
  for (const AccessorCase& given : cases) {
    SCOPED_TRACE(DumpJson(given.value));
    EXPECT_EQ(given.value.AsBool(true), given.asBool);
    EXPECT_EQ(given.value.AsDouble(0.5), given.asDouble);
    EXPECT_EQ(given.value.AsInt(Odd), given.asInt);
    EXPECT_EQ(given.value.AsString("none"), given.asString);
  }
  EXPECT_TRUE(JsonValue(std::nan("")).AsBool(false));
  EXPECT_EQ(JsonValue(std::nan("")).AsInt(Odd), Odd);
  EXPECT_EQ(JsonValue(std::nan("")).AsString("none"), "nan");
}

TEST(JsonValue, FailedLookupsGiveTheSharedNull) {
  const JsonValue value = *ParseJson(R"({"n":null,"o":{},"e":"","a":[7,8],"f":false})", nullptr);
  EXPECT_EQ(value.Size(), 5U);
  EXPECT_EQ(value.Get("a").At(1).AsInt(0), 8);
  EXPECT_TRUE(value.Contains("n"));
  EXPECT_FALSE(value.Contains("N"));
  for (const JsonValue* missing : {&value.Get("x"), &value.Get("a").At(2), &value.At(5),
                                   &value.Get("a").Get("n"), &value.Get("e").At(0)}) {
    EXPECT_EQ(missing, &JsonNullValue());
  }
  EXPECT_EQ(value.FirstString({"x", "n", "o", "e", "f", "a"}, "none"), "false");
  EXPECT_EQ(value.FirstString({"x", "n", "o", "e"}, "none"), "none");
}

TEST(JsonValue, BuildersChangeTheKindAndAssignmentTakesAChild) {
  JsonValue value("text");
  value.PushBack(JsonValue(true));
  value.PushBack(value);
  value.Set("k", value);
  value.Set("l", JsonValue(int64_t{1}));
  EXPECT_EQ(DumpJson(value), R"({"k":[true,[true]],"l":1})");
  value.Set("k", value.Get("k").At(1));
  EXPECT_EQ(DumpJson(value), R"({"k":[true],"l":1})");
  value.PushBack(JsonValue());
  EXPECT_EQ(DumpJson(value), "[null]");
  value.Set("m", JsonValue());
  EXPECT_EQ(DumpJson(value), R"({"m":null})");
  value = *ParseJson("[[[1,2],3],4]", nullptr);
  value = value.At(0);
  EXPECT_EQ(DumpJson(value), "[[1,2],3]");
  value = std::move(value.items[0]);
  EXPECT_EQ(DumpJson(value), "[1,2]");
}

TEST(JsonSerializer, EscapesControlsQuoteAndBackslashAlone) {
  EXPECT_EQ(EscapeJsonString("a/\"b\"\\ \b\t\n\f\r"), R"(a/\"b\"\\ \b\t\n\f\r)");
  EXPECT_EQ(EscapeJsonString("\0\x01\x0B\x1F \x7F\x80\xFF"s),
            "\\u0000\\u0001\\u000b\\u001f \x7F\x80\xFF");
}

}  // namespace
}  // namespace Vantrell
