#include "json/json_value.h"

#include <gtest/gtest.h>

#include <cmath>

#include "json/json_parser.h"

namespace Vantrell {

TEST(JsonValue, IsConvertedOrGivesTheFallback) {
  constexpr int64_t Odd = 9007199254740993;  // 2 to the 53rd and one: no double is equal to it
  const struct {
    std::string json;
    bool asBool;  // the fallbacks are true, 0.5, Odd and "none"
    double asDouble;
    int64_t asInt;
    std::string asString;
  } cases[] = {
      {"null", true, 0.5, Odd, "none"},
      {"[]", true, 0.5, 9007199254740992, "none"},
      {"true", true, 1, 1, "true"},
      {"-1234567.5", true, -1234567.5, -1234567, "-1.23457e+06"},
      {"9223372036854775808", true, 0x1p63, INT64_MIN, "9.22337e+18"},
      {"-9223372036854775808", true, -0x1p63, INT64_MIN, "-9223372036854775808"},
      {"1e999", true, HUGE_VAL, Odd, "inf"},
      {R"("")", false, 0.5, 9007199254740992, ""},
      {R"("true")", true, 0, 0, "true"},
      {R"("1")", true, 1, 1, "1"},
      {R"("12abc")", false, 12, 12, "12abc"},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.json);
    const JsonValue value = *ParseJson(given.json, nullptr);
    EXPECT_EQ(value.AsBool(true), given.asBool);
    EXPECT_EQ(value.AsDouble(0.5), given.asDouble);
    EXPECT_EQ(value.AsInt(Odd), given.asInt);
    EXPECT_EQ(value.AsString("none"), given.asString);
  }
}

TEST(JsonValue, GivesTheSharedNullWhereNothingIsFound) {
  JsonValue value = *ParseJson(R"({"n":null,"e":"","a":[7,8],"f":false})", nullptr);
  for (const JsonValue* missing : {&value.Get("x"), &value.Get("a").At(2), &value.At(4),
                                   &value.Get("a").Get("n"), &value.Get("e").At(0)}) {
    EXPECT_EQ(missing, &JsonNullValue());
  }
  EXPECT_EQ(value.FirstString({"x", "n", "e", "f", "a"}, "none"), "false");
  EXPECT_EQ(value.FirstString({"x", "n", "e"}, "none"), "none");
  value = value.Get("a");
  EXPECT_EQ(value.At(1).number, 8);
}

}  // namespace Vantrell
