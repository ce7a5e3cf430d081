#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Files.h"

namespace velta {
namespace {

using namespace std::string_literals;

std::string inQuotes(std::string_view text) {
  std::string out;
  appendQuoted(out, text);
  return out;
}

TEST(JSONWriter, WritesScalars) {
  EXPECT_EQ(writeCompact(JSON()), "null");
  EXPECT_EQ(writeCompact(JSON(true)), "true");
  EXPECT_EQ(writeCompact(JSON(false)), "false");
  EXPECT_EQ(writeCompact(JSON(10)), "10");
  EXPECT_EQ(writeCompact(JSON(std::numeric_limits<std::int64_t>::min())), "-9223372036854775808");
  EXPECT_EQ(writeCompact(JSON("a/é你\x7F")), "\"a/é你\x7F\"");
}

TEST(JSONWriter, DoublesHaveAPointOrAnExponentAndTheShortestDigits) {
  const std::vector<std::pair<double, std::string>> cases = {
      {0.0, "0.0"},
      {-0.0, "-0.0"},
      {1.0, "1.0"},
      {-1.0, "-1.0"},
      {0.5, "0.5"},
      {0.1, "0.1"},
      {0.25, "0.25"},
      {0.125, "0.125"},
      {-12.34, "-12.34"},
      {1.005, "1.005"},
      {0.001, "0.001"},
      {0.0001, "0.0001"},
      {0.00012, "0.00012"},
      {0.00009999, "9.999e-05"},
      {1e-5, "1e-05"},
      {1.5e-7, "1.5e-07"},
      {1e-10, "1e-10"},
      {0.1 + 0.2, "0.30000000000000004"},
      {1.0 / 3.0, "0.3333333333333333"},
      {100000.0, "100000.0"},
      {123456.789, "123456.789"},
      {999999999999.999, "999999999999.999"},
      {1e12, "1000000000000.0"},
      {1234567890123.25, "1234567890123.25"},
      {1e15, "1000000000000000.0"},
      {9007199254740993.0, "9007199254740992.0"},
      {9999999999999998.0, "9999999999999998.0"},
      {1e16, "1e+16"},
      {1.5e16, "1.5e+16"},
      {-1e16, "-1e+16"},
      {1e22, "1e+22"},
      {1e100, "1e+100"},
      {5e-324, "5e-324"},
      {1.7976931348623157e308, "1.7976931348623157e+308"},
      {-2.2250738585072014e-308, "-2.2250738585072014e-308"}};
  for (const auto& [value, text] : cases) EXPECT_EQ(writeCompact(JSON(value)), text);
}

TEST(JSONWriter, NonFiniteDoublesAreBareWords) {
  EXPECT_EQ(writeCompact(JSON(std::nan(""))), "NaN");
  EXPECT_EQ(writeCompact(JSON(-std::nan(""))), "NaN");
  EXPECT_EQ(writeCompact(JSON(HUGE_VAL)), "Infinity");
  EXPECT_EQ(writeCompact(JSON(-HUGE_VAL)), "-Infinity");
}

// The fewest digits of a decimal that reads back as `value`.
int shortestDigits(double value) {
  for (int digits = 1;; ++digits) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*e", digits - 1, value);
    if (std::strtod(text.data(), nullptr) == value) return digits;
  }
}

// Digits of a decimal text without the zeros at both ends.
int significantDigits(std::string text) {
  text = text.substr(0, text.find('e'));
  std::erase_if(text, [](char c) { return c == '-' || c == '.'; });
  const std::size_t first = text.find_first_not_of('0');
  return first == std::string::npos ? 1 : static_cast<int>(text.find_last_not_of('0') - first) + 1;
}

TEST(JSONWriter, EveryDoubleReadsBackAndNoneIsLongerThanNeeded) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    const auto bits = random();
    std::vector<double> values = {std::bit_cast<double>(bits)};
    for (const double scale : {1.0, 10.0, 100.0, 1000.0, 10000.0, 1048576.0}) {
      values.push_back(static_cast<double>(static_cast<std::int32_t>(bits)) / scale);
      values.push_back(static_cast<double>(static_cast<std::int64_t>(bits >> 8)) / scale);
    }
    for (const double value : values) {
      if (!std::isfinite(value)) continue;
      const std::string text = writeCompact(JSON(value));
      ASSERT_EQ(std::bit_cast<std::uint64_t>(*parseJSON(text).asDouble()),
                std::bit_cast<std::uint64_t>(value))
          << text;
      ASSERT_EQ(significantDigits(text), shortestDigits(value)) << text;
    }
  }
}

TEST(JSONWriter, EscapesWhatMustBeEscapedAndNothingElse) {
  EXPECT_EQ(inQuotes("\"\\\b\t\n\f\r"), R"("\"\\\b\t\n\f\r")");
  EXPECT_EQ(inQuotes("\t\x01"), "\"\\t\\u0001\"");
  EXPECT_EQ(inQuotes("\0\x0B\x1F"s), R"("\u0000\u000b\u001f")");
  EXPECT_EQ(inQuotes(" /\x7Fé你😀\u2028"), "\" /\x7Fé你😀\u2028\"");
  EXPECT_EQ(inQuotes(""), "\"\"");
}

TEST(JSONWriter, EscapesAreFoundAtEveryPlaceOfALongText) {
  for (std::size_t before = 0; before < 40; ++before) {
    for (std::size_t after = 0; after < 40; after += 3) {
      const auto around = [&](const std::string& middle) {
        return std::string(before, 'a').append(middle).append(after, 'z');
      };
      EXPECT_EQ(inQuotes(around("\n")), "\"" + around("\\n") + "\"");
    }
  }
}

TEST(JSONWriter, LongTextsOfEscapesComeOutWhole) {
  for (const std::size_t length : {2047U, 2048U, 2049U, 4096U, 100000U}) {
    std::string expected = "\"";
    for (std::size_t i = 0; i < length; ++i) expected += "\\u0001";
    EXPECT_EQ(inQuotes(std::string(length, '\x01')), expected + "\"");
    EXPECT_EQ(inQuotes(std::string(length, 'a')), "\"" + std::string(length, 'a') + "\"");
  }
}

TEST(JSONWriter, CompactHasNoWhiteSpace) {
  EXPECT_EQ(
      writeCompact(JSONObject{
          {"a", JSON::Array{1, "b c", JSON::Array{}}}, {"d", JSONObject{}}, {"e\n", nullptr}}),
      R"({"a":[1,"b c",[]],"d":{},"e\n":null})");
}

TEST(JSONWriter, IndentedBreaksLinesAroundEveryElement) {
  const JSONObject object{{"a", JSON::Array{1, JSONObject{{"b", 2.0}}}}, {"c", "d"}};
  EXPECT_EQ(writeIndented(object, 2), R"({
  "a": [
    1,
    {
      "b": 2.0
    }
  ],
  "c": "d"
})");
  EXPECT_EQ(writeIndented(JSON(JSON::Array{1, 2}), 1), "[\n 1,\n 2\n]");
  EXPECT_EQ(writeIndented(JSON(JSON::Array{1, 2}), 0), "[\n1,\n2\n]");
  EXPECT_EQ(writeIndented(JSON(5), 2), "5");
}

TEST(JSONWriter, IndentedKeepsEmptyContainersOnTheirLine) {
  EXPECT_EQ(writeIndented(JSONObject{{"a", JSON::Array{}}, {"b", JSONObject{}}}, 2),
            "{\n  \"a\": [],\n  \"b\": {}\n}");
  EXPECT_EQ(writeIndented(JSONObject{}, 2), "{}");
}

TEST(JSONWriter, AppendsBehindWhatIsThere) {
  std::string out = "x";
  appendCompact(out, JSON(JSON::Array{1}));
  appendCompact(out, JSONObject{{"a", 1}});
  appendIndented(out, JSON(JSON::Array{}), 2);
  appendIndented(out, JSONObject{{"a", 1}}, 1);
  appendIndentedQuoted(out, {}, 2);
  appendQuoted(out, "q");
  EXPECT_EQ(out, "x[1]{\"a\":1}[]{\n \"a\": 1\n}\"{}\"\"q\"");
}

// Values at random, small in number and size but of all kinds.
class RandomValues {
 public:
  JSON next(int depth = 4) {
    switch (pick(depth > 0 ? 8 : 6)) {
      case 0:
        return nullptr;
      case 1:
        return pick(2) == 1;
      case 2:
        return static_cast<std::int64_t>(random_()) >> pick(64);
      case 3:
        return pick(100000) / 1000.0;
      case 4:
        return std::ldexp(static_cast<double>(random_()), pick(400) - 200);
      case 5:
        return text();
      case 6: {
        JSON::Array array;
        for (int i = pick(6); i > 0; --i) array.push_back(next(depth - 1));
        return array;
      }
      default: {
        JSONObject object;
        for (int i = pick(24); i > 0; --i) object.set(text(), next(depth - 1));
        return object;
      }
    }
  }

 private:
  int pick(int count) { return static_cast<int>(random_() % static_cast<unsigned>(count)); }
  std::string text() {
    static const std::vector<std::string> kPieces = {"a", "speaker", "\"", "\\", "\n", "\x02",
                                                     "é", "你好",    "😀",  "/",  " ",  "\0"s};
    std::string text;
    for (int i = pick(12); i > 0; --i) {
      text += kPieces[static_cast<std::size_t>(pick(static_cast<int>(kPieces.size())))];
    }
    return text;
  }
  std::mt19937_64 random_{42};
};

TEST(JSONWriter, WhatIsWrittenReadsBackAsTheSameValue) {
  RandomValues values;
  for (int i = 0; i < 500; ++i) {
    const JSON value = values.next();
    const std::string compact = writeCompact(value);
    ASSERT_EQ(parseJSON(compact), value) << compact;
    ASSERT_EQ(writeCompact(parseJSON(compact)), compact);
    ASSERT_EQ(parseJSON(writeIndented(value, 2)), value);
    ASSERT_EQ(JSON(value), value);
  }
}

std::string indentedInQuotes(const JSONObject& object, int width) {
  std::string out;
  appendIndentedQuoted(out, object, width);
  return out;
}

TEST(JSONWriter, IndentedQuotedEscapesTheEscapesToo) {
  const JSONObject object{{"a\"", "\\\n\x01"}, {"b", JSON::Array{}}, {"c", JSONObject{}}};
  EXPECT_EQ(indentedInQuotes(object, 1),
            R"("{\n \"a\\\"\": \"\\\\\\n\\u0001\",\n \"b\": [],\n \"c\": {}\n}")");
  EXPECT_EQ(indentedInQuotes({}, 2), R"("{}")");
}

TEST(JSONWriter, IndentedQuotedIsTheIndentedTextQuoted) {
  RandomValues values;
  for (int i = 0; i < 500; ++i) {
    const JSONObject object{{"a", values.next()}, {"\"\n", values.next()}};
    for (const int width : {0, 1, 2}) {
      ASSERT_EQ(indentedInQuotes(object, width), inQuotes(writeIndented(object, width)));
    }
  }
}

TEST(JSONWriter, IndentedQuotedTakesLongTextsOfEscapesAndDeepNesting) {
  for (const std::size_t length : {2047U, 2048U, 2049U, 100000U}) {
    for (const char byte : {'\x01', '"', '\\', '\n', 'a'}) {
      const JSONObject object{{"text", std::string(length, byte)}};
      EXPECT_TRUE(indentedInQuotes(object, 2) == inQuotes(writeIndented(object, 2)))
          << length << " times " << static_cast<int>(byte);
    }
  }
  const JSONObject deep{{"a", parseJSON(std::string(1000, '[') + "1" + std::string(1000, ']'))}};
  EXPECT_TRUE(indentedInQuotes(deep, 2) == inQuotes(writeIndented(deep, 2)));
}

TEST(JSONWriter, WritesAFileWithItsDirectory) {
  const std::string root = testing::TempDir() + "velta-json-writer";
  const std::string path = root + "/a/b/file.json";
  writeJSONFile(JSONObject{{"a", JSON::Array{1}}}, path, 2);
  EXPECT_EQ(readFile(path), "{\n  \"a\": [\n    1\n  ]\n}");
  writeJSONFile(JSONObject{{"a", 1}}, path, 1);
  EXPECT_EQ(readFile(path), "{\n \"a\": 1\n}");
}

TEST(JSONWriter, AFileGetsThePermissionsAskedFor) {
  const std::string path = testing::TempDir() + "velta-json-writer-key.json";
  writeJSONFile(JSONObject{}, path, 2, 0600);
  EXPECT_EQ(fileStatus(path)->permissions, 0600U);
  EXPECT_EQ(readFile(path), "{}");
}

TEST(JSONWriter, AFileThatCannotBeWrittenIsASystemError) {
  EXPECT_THROW(writeJSONFile(JSONObject{}, "/dev/null/file.json", 2), std::system_error);
}

TEST(JSONWriter, DeepNestingIsRefusedWithIndentationOnceBlanksAreNearlyAllOfIt) {
  const auto nested = [](std::size_t depth) {
    return parseJSON(std::string(depth, '[') + "1" + std::string(depth, ']'));
  };
  EXPECT_EQ(writeIndented(nested(1000), 2).size(), 2'004'001U);
  EXPECT_THROW(writeIndented(nested(100'000), 2), std::length_error);
  EXPECT_EQ(writeCompact(nested(100'000)).size(), 200'001U);
}

// The limit compares blanks with what they indent, not with what escaping makes of it: either way
// of writing refuses the same values.
TEST(JSONWriter, TheLimitOfIndentationIsTheSameInAString) {
  constexpr int kWidth = 4096;
  constexpr std::size_t kLines = 8500;  // 66 MiB of blanks
  const auto quotesOnEveryLine = [](std::size_t quotes) {
    return JSONObject{{"a", JSON::Array(kLines, std::string(quotes, '"'))}};
  };
  const JSONObject tooShort = quotesOnEveryLine(400);
  EXPECT_THROW(writeIndented(tooShort, kWidth), std::length_error);
  EXPECT_THROW(indentedInQuotes(tooShort, kWidth), std::length_error);
  std::string afterOthers(std::size_t{64} * 1024 * 1024, 'x');
  EXPECT_THROW(appendIndentedQuoted(afterOthers, tooShort, kWidth), std::length_error);
  const JSONObject longEnough = quotesOnEveryLine(600);
  EXPECT_NO_THROW(writeIndented(longEnough, kWidth));
  EXPECT_NO_THROW(indentedInQuotes(longEnough, kWidth));
}

}  // namespace
}  // namespace velta
