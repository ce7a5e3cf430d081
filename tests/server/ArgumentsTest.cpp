#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "config/StoreError.h"
#include "json/JSONParser.h"
#include "server/Arguments.h"

namespace velta {
namespace {

JSONObject object(std::string_view text) { return *parseJSON(text).asObject(); }

// What the reader says about the arguments, "" when it takes them.
template <class Read>
std::string complaint(std::string_view text, Read read) {
  const JSONObject arguments = object(text);
  try {
    read(Arguments(arguments));
  } catch (const StoreError& error) {
    EXPECT_EQ(error.kind(), StoreError::Kind::value);
    return error.what();
  }
  return "";
}

std::string integerComplaint(std::string_view text) {
  return complaint(text, [](const Arguments& arguments) { arguments.integer("limit", 20); });
}

std::int64_t integerOf(std::string_view value) {
  const JSONObject arguments = object("{\"limit\":" + std::string(value) + "}");
  return Arguments(arguments).integer("limit", 20);
}

bool booleanOf(std::string_view value) {
  const JSONObject arguments = object("{\"flag\":" + std::string(value) + "}");
  return Arguments(arguments).boolean("flag", true);
}

std::optional<double> numberOf(std::string_view value) {
  const JSONObject arguments = object("{\"from_sec\":" + std::string(value) + "}");
  return Arguments(arguments).optionalNumber("from_sec");
}

TEST(Arguments, RequiredStringIsTakenAsItIs) {
  const JSONObject arguments = object(R"({"query":" 押金 ","empty":""})");
  EXPECT_EQ(Arguments(arguments).requiredString("query"), " 押金 ");
  EXPECT_EQ(Arguments(arguments).requiredString("empty"), "");
}

TEST(Arguments, RequiredStringThatIsAbsentOrNullIsMissed) {
  const auto read = [](const Arguments& arguments) { arguments.requiredString("query"); };
  EXPECT_EQ(complaint("{}", read), "argument query is required");
  EXPECT_EQ(complaint(R"({"query":null})", read), "argument query is required");
}

TEST(Arguments, StringOfAnotherKindIsShownAsCompactJSON) {
  const auto required = [](const Arguments& arguments) { arguments.requiredString("query"); };
  EXPECT_EQ(complaint(R"({"query": 5.0})", required), "argument query must be a string, got 5.0");
  const auto optional = [](const Arguments& arguments) { arguments.optionalString("query"); };
  EXPECT_EQ(complaint(R"({"query": {"a": [1, "x\n", null]}})", optional),
            R"(argument query must be a string, got {"a":[1,"x\n",null]})");
}

TEST(Arguments, OptionalStringThatIsAbsentOrNullIsAbsent) {
  const JSONObject arguments = object(R"({"a":null,"b":"","c":"x"})");
  EXPECT_EQ(Arguments(arguments).optionalString("a"), std::nullopt);
  EXPECT_EQ(Arguments(arguments).optionalString("absent"), std::nullopt);
  EXPECT_EQ(Arguments(arguments).optionalString("b"), "");
  EXPECT_EQ(Arguments(arguments).optionalString("c"), "x");
}

TEST(Arguments, EmptyFilterIsAbsent) {
  const JSONObject arguments = object(R"({"person":"","speaker":" "})");
  EXPECT_EQ(Arguments(arguments).optionalFilter("person"), std::nullopt);
  EXPECT_EQ(Arguments(arguments).optionalFilter("speaker"), " ");
}

TEST(Arguments, LimitGivenAsTheTextFiveIsFive) { EXPECT_EQ(integerOf(R"("5")"), 5); }

TEST(Arguments, LimitOfFiveAndAHalfIsRefused) {
  EXPECT_EQ(integerComplaint(R"({"limit":5.5})"), "argument limit must be an integer, got 5.5");
}

TEST(Arguments, LimitOfFivePointZeroIsFive) { EXPECT_EQ(integerOf("5.0"), 5); }

TEST(Arguments, IntegerTextIsASignAndDigitsThatFit) {
  EXPECT_EQ(integerOf(R"("-7")"), -7);
  EXPECT_EQ(integerOf(R"("+7")"), 7);
  EXPECT_EQ(integerOf(R"("007")"), 7);
  EXPECT_EQ(integerOf(R"("-9223372036854775808")"), std::numeric_limits<std::int64_t>::min());
  for (const std::string_view text : {"", " 5", "5 ", "5.0", "0x10", "1e3", "+-5", "--5", "+", "-",
                                      "９", "nan", "9223372036854775808"}) {
    const std::string quoted = "\"" + std::string(text) + "\"";
    EXPECT_EQ(integerComplaint("{\"limit\":" + quoted + "}"),
              "argument limit must be an integer, got " + quoted);
  }
}

TEST(Arguments, IntegerRefusesEveryOtherKind) {
  for (const std::string_view value : {"true", "[]", "{}", "1e15", "-1e15", "0.5"}) {
    EXPECT_NE(integerComplaint("{\"limit\":" + std::string(value) + "}"), "") << value;
  }
  EXPECT_EQ(integerOf("999999999999999.0"), 999999999999999);
  EXPECT_EQ(integerOf("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
}

TEST(Arguments, IntegerThatIsAbsentOrNullIsTheDefault) {
  EXPECT_EQ(integerOf("null"), 20);
  const JSONObject none;
  EXPECT_EQ(Arguments(none).integer("limit", 400), 400);
}

TEST(Arguments, NumberIsTakenFromIntegersDoublesAndTexts) {
  EXPECT_EQ(numberOf("3"), 3.0);
  EXPECT_EQ(numberOf("2.5"), 2.5);
  EXPECT_EQ(numberOf(R"("2.5")"), 2.5);
  EXPECT_EQ(numberOf(R"("-1e3")"), -1000.0);
  EXPECT_EQ(numberOf(R"("12")"), 12.0);
  EXPECT_EQ(numberOf("null"), std::nullopt);
}

TEST(Arguments, NumberTextIsDecimal) {
  const auto read = [](const Arguments& arguments) { arguments.optionalNumber("from_sec"); };
  for (const std::string_view text :
       {"", "nan", "inf", "infinity", "0x1p3", "0x10", " 1", "1 ", "1,5", "true", "null", "1-2"}) {
    const std::string quoted = "\"" + std::string(text) + "\"";
    EXPECT_EQ(complaint("{\"from_sec\":" + quoted + "}", read),
              "argument from_sec must be a number, got " + quoted);
  }
  EXPECT_EQ(complaint(R"({"from_sec":false})", read),
            "argument from_sec must be a number, got false");
}

TEST(Arguments, IncludeDigestOfNoIsFalse) { EXPECT_FALSE(booleanOf(R"("no")")); }

TEST(Arguments, IncludeDigestOfMaybeIsRefused) {
  const auto read = [](const Arguments& arguments) { arguments.boolean("include_digest", true); };
  EXPECT_EQ(complaint(R"({"include_digest":"maybe"})", read),
            R"(argument include_digest must be a boolean, got "maybe")");
}

TEST(Arguments, BooleanWordsAreTakenInAnyCase) {
  for (const std::string_view word : {"true", "TRUE", "1", "yes", "Yes", "on", "oN"})
    EXPECT_TRUE(booleanOf("\"" + std::string(word) + "\"")) << word;
  for (const std::string_view word : {"false", "FALSE", "0", "no", "NO", "off", "Off"})
    EXPECT_FALSE(booleanOf("\"" + std::string(word) + "\"")) << word;
}

TEST(Arguments, BooleanIsZeroOrOneOfEitherKindOfNumber) {
  EXPECT_FALSE(booleanOf("0"));
  EXPECT_FALSE(booleanOf("0.0"));
  EXPECT_TRUE(booleanOf("1"));
  EXPECT_TRUE(booleanOf("1.0"));
  EXPECT_TRUE(booleanOf("true"));
  EXPECT_TRUE(booleanOf("null"));  // the default
  const auto read = [](const Arguments& arguments) { arguments.boolean("flag", true); };
  for (const std::string_view value : {"2", "-1", "0.5", "[]", R"("")", R"(" yes")"}) {
    EXPECT_EQ(complaint("{\"flag\":" + std::string(value) + "}", read),
              "argument flag must be a boolean, got " + std::string(value));
  }
}

TEST(Arguments, ListOfStringsHoldsNothingElse) {
  const JSONObject arguments = object(R"({"a":["x","y"],"empty":[],"none":null})");
  EXPECT_EQ(Arguments(arguments).optionalStrings("a"), (std::vector<std::string>{"x", "y"}));
  EXPECT_EQ(Arguments(arguments).optionalStrings("empty"), std::vector<std::string>());
  EXPECT_EQ(Arguments(arguments).optionalStrings("none"), std::nullopt);
  const auto read = [](const Arguments& given) { given.optionalStrings("sections"); };
  EXPECT_EQ(complaint(R"({"sections":["x", 1]})", read),
            R"(argument sections must be a list of strings, got ["x",1])");
  EXPECT_EQ(complaint(R"({"sections":"x"})", read),
            R"(argument sections must be a list of strings, got "x")");
}

}  // namespace
}  // namespace velta
