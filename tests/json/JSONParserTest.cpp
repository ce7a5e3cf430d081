#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"

namespace velta {
namespace {

using namespace std::string_literals;

// The message that parsing `bytes` fails with, or "" when it does not fail.
std::string faultOf(std::string_view bytes) {
  try {
    parseJSON(bytes);
  } catch (const JSONParseError& error) {
    return error.what();
  }
  return "";
}

// The text of a string value whose JSON text is `inner` between quotes.
std::string stringOf(const std::string& inner) {
  return std::string(parseJSON("\"" + inner + "\"").asString().value());
}

struct Fault {
  std::string bytes;
  std::string message;
};

TEST(JSONParser, TellsEveryFaultWithItsPlace) {
  const std::vector<Fault> faults = {
      {"", "unexpected end at byte 0"},
      {"  ", "unexpected end at byte 2"},
      {"{} x", "trailing characters at byte 3"},
      {"1 2", "trailing characters at byte 2"},
      {"[]]", "trailing characters at byte 2"},
      {R"("a""b")", "trailing characters at byte 3"},
      {"1\v", "trailing characters at byte 1"},
      {"t", "expected true at byte 0"},
      {" tru", "expected true at byte 1"},
      {"True", "unexpected character at byte 0"},
      {"[fals]", "expected false at byte 1"},
      {"nul", "expected null at byte 0"},
      {"nulL", "expected null at byte 0"},
      {"nullx", "trailing characters at byte 4"},
      {"{", "unexpected end in object at byte 1"},
      {"{ ", "unexpected end in object at byte 2"},
      {"{x", "expected a key at byte 1"},
      {"{1:2}", "expected a key at byte 1"},
      {"{,", "expected a key at byte 1"},
      {"{\"a\"", "expected : at byte 4"},
      {"{\"a\" ", "expected : at byte 5"},
      {"{\"a\" 1", "expected : at byte 5"},
      {"{\"a\"=1}", "expected : at byte 4"},
      {"{\"a\":", "unexpected end at byte 5"},
      {"{\"a\": ", "unexpected end at byte 6"},
      {"{\"a\":}", "unexpected character at byte 5"},
      {"{\"a\":1", "unexpected end in object at byte 6"},
      {"{\"a\":1 ", "unexpected end in object at byte 7"},
      {"{\"a\":1]", "expected , or } at byte 6"},
      {R"({"a":1 "b":2})", "expected , or } at byte 7"},
      {"{\"a\":1,", "unexpected end in object at byte 7"},
      {"{\"a\":1, ", "unexpected end in object at byte 8"},
      {"{\"a\":1,}", "expected a key at byte 7"},
      {"{\"a\":1,,", "expected a key at byte 7"},
      {"[", "unexpected end in array at byte 1"},
      {"[ ", "unexpected end in array at byte 2"},
      {"[,1]", "unexpected character at byte 1"},
      {"[1", "unexpected end in array at byte 2"},
      {"[1 ", "unexpected end in array at byte 3"},
      {"[1}", "expected , or ] at byte 2"},
      {"[1 2]", "expected , or ] at byte 3"},
      {"[1,", "unexpected end in array at byte 3"},
      {"[1, ", "unexpected end in array at byte 4"},
      {"[1,]", "unexpected character at byte 3"},
      {"[[1,2],[3", "unexpected end in array at byte 9"},
      {"[{\"a\":[", "unexpected end in array at byte 7"},
      {"\"", "unterminated string at byte 1"},
      {"\"abc", "unterminated string at byte 4"},
      {"\"ab\xE4\xBD", "unterminated string at byte 5"},
      {"\"a\\n", "unterminated string at byte 4"},
      {"\"a\\", "unterminated string at byte 3"},
      {R"("a\")", "unterminated string at byte 4"},
      {"{\"a", "unterminated string at byte 3"},
      {R"("\x")", "bad escape at byte 2"},
      {R"("ab\N")", "bad escape at byte 4"},
      {R"("\u12")", "bad \\u escape at byte 3"},
      {R"("\u")", "bad \\u escape at byte 3"},
      {R"("\u123)", "bad \\u escape at byte 3"},
      {R"("\u12G4")", "bad \\u escape at byte 3"},
      {R"("\u+123")", "bad \\u escape at byte 3"},
      {R"("\u-123")", "bad \\u escape at byte 3"},
      {R"("\u 123")", "bad \\u escape at byte 3"},
      {R"("\u0x12")", "bad \\u escape at byte 3"},
      {R"("\U0041")", "bad escape at byte 2"},
      {R"("\ud83d\u12")", "bad \\u escape at byte 9"},
      {R"("\ud83d\x")", "bad escape at byte 8"},
      {"x", "unexpected character at byte 0"},
      {"'a'", "unexpected character at byte 0"},
      {"]", "unexpected character at byte 0"},
      {"\xEF\xBB\xBF{}", "unexpected character at byte 0"},
      {"\0"s, "unexpected character at byte 0"},
      {"[NaN]", "unexpected character at byte 1"},
      {"Infinity", "unexpected character at byte 0"},
      {"-", "bad number - at byte 1"},
      {"-Infinity", "bad number - at byte 1"},
      {"-x", "bad number - at byte 1"},
      {"1-2", "bad number 1-2 at byte 3"},
      {"--1", "bad number --1 at byte 3"},
      {"+-1", "bad number +-1 at byte 3"},
      {"+", "bad number + at byte 1"},
      {".", "bad number . at byte 1"},
      {"e5", "bad number e5 at byte 2"},
      {"1e", "bad number 1e at byte 2"},
      {"1e+", "bad number 1e+ at byte 3"},
      {"1.2.3", "bad number 1.2.3 at byte 5"},
      {"[1.5.]", "bad number 1.5. at byte 5"},
      {"{\"a\": 1e5e}", "bad number 1e5e at byte 10"},
      {"0x10", "trailing characters at byte 1"},
  };
  for (const Fault& fault : faults) EXPECT_EQ(faultOf(fault.bytes), fault.message) << fault.bytes;
}

TEST(JSONParser, FaultsFarIntoTheInputHaveTheirPlace) {
  const std::string spaces(1000, ' ');
  EXPECT_EQ(faultOf(spaces), "unexpected end at byte 1000");
  EXPECT_EQ(faultOf("[" + spaces + "1" + spaces + "x"), "expected , or ] at byte 2002");
  EXPECT_EQ(faultOf("\"" + std::string(999, 'a')), "unterminated string at byte 1000");
  EXPECT_EQ(faultOf("\"" + std::string(999, 'a') + "\\q"), "bad escape at byte 1001");
}

TEST(JSONParser, ReadsTheWords) {
  EXPECT_EQ(parseJSON("true"), JSON(true));
  EXPECT_EQ(parseJSON("false"), JSON(false));
  EXPECT_EQ(parseJSON("null"), JSON());
}

TEST(JSONParser, SkipsFourKindsOfWhiteSpaceAnywhere) {
  for (const std::size_t count : {0U, 1U, 2U, 15U, 16U, 17U, 100U}) {
    std::string space;
    for (std::size_t i = 0; i < count; ++i) space += " \t\r\n"[i % 4];
    std::string text;
    for (const char* token : {"", "{", "\"a\"", ":", "[", "1", ",", "{", "}", ",", "[", "]", "]",
                              ",", "\"b\"", ":", "null", "}"}) {
      text += token + space;
    }
    EXPECT_EQ(parseJSON(text),
              JSON(JSONObject{{"a", JSON::Array{1, JSONObject{}, JSON::Array{}}}, {"b", nullptr}}));
  }
}

TEST(JSONParser, IntegersAreWhatFits64BitsWithoutFractionOrExponent) {
  const std::vector<std::pair<std::string, std::int64_t>> cases = {
      {"0", 0},
      {"12", 12},
      {"-0", 0},
      {"-12", -12},
      {"007", 7},
      {"-007", -7},
      {"999999999999999999", 999999999999999999},
      {"1000000000000000000", 1000000000000000000},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"000000000000000000000000000000012", 12}};
  for (const auto& [text, value] : cases) EXPECT_EQ(parseJSON(text).asInt(), value) << text;
}

TEST(JSONParser, EveryOtherNumberIsTheNearestDouble) {
  const std::vector<std::pair<std::string, double>> cases = {
      {"1.0", 1.0},
      {"12.0", 12.0},
      {"1e3", 1000.0},
      {"1E3", 1000.0},
      {"1e+3", 1000.0},
      {"+1", 1.0},
      {"1.", 1.0},
      {".5", 0.5},
      {"-.5", -0.5},
      {"-1.5", -1.5},
      {"0.1", 0.1},
      {"123.456", 123.456},
      {"9007199254740992.0", 9007199254740992.0},
      {"9007199254740993.0", 9007199254740992.0},
      {"9007199254740993.1", 9007199254740994.0},
      {"0.000000000000000001", 1e-18},
      {"3.141592653589793238462643", 3.141592653589793},
      {"9223372036854775808", 9223372036854775808.0},
      {"-9223372036854775809", -9223372036854775808.0},
      {"123456789012345678901234567890", 123456789012345678901234567890.0},
      {"1e22", 1e22},
      {"1e23", 1e23},
      {"2.2250738585072011e-308", 2.2250738585072011e-308},
      {"5e-324", 5e-324},
      {"1e-400", 0.0},
      {"1e400", HUGE_VAL},
      {"-1e400", -HUGE_VAL}};
  for (const auto& [text, value] : cases) EXPECT_EQ(parseJSON(text).asDouble(), value) << text;
  EXPECT_TRUE(std::signbit(*parseJSON("-0.0").asDouble()));
  EXPECT_TRUE(std::signbit(*parseJSON("-0e5").asDouble()));
}

// Digits of every count, with a point at every place or without one, before whatever may follow and
// at every distance from the end of the input, where fewer bytes can be looked at together.
TEST(JSONParser, NumbersOfEveryLengthAreReadAlikeWhereverTheyStand) {
  const std::string digits = "98765432109876543210";
  for (std::size_t count = 1; count <= digits.size(); ++count) {
    for (std::size_t point = 0; point < count; ++point) {
      for (const char* sign : {"", "-"}) {
        std::string number = sign + digits.substr(0, count);
        if (point > 0) number.insert(number.size() - point, ".");
        const JSON alone = parseJSON(number);
        if (point > 0 || count > 18) {
          ASSERT_EQ(alone.asNumber(), std::strtod(number.c_str(), nullptr)) << number;
        } else {
          ASSERT_EQ(alone.asInt(), std::strtoll(number.c_str(), nullptr, 10)) << number;
        }
        for (const char* next : {",", " ", "]", "\n", "x", "\"", ".", "e", "-", "\xC3\xA9"}) {
          for (std::size_t rest = 0; rest < 12; ++rest) {
            // In exact memory, so that a sanitizer sees a read behind it.
            const std::string text = "[" + number + next + std::string(rest, ' ');
            const std::vector<char> bytes(text.begin(), text.end());
            const std::string fault = faultOf({bytes.data(), bytes.size()});
            const auto place = [&](std::size_t i) { return " at byte " + std::to_string(i); };
            const std::size_t behind = 1 + number.size();
            const std::string expected =
                *next == ','                    ? "unexpected end in array" + place(text.size())
                : *next == ' ' || *next == '\n' ? "unexpected end in array" + place(text.size())
                : *next == ']'                  ? ""
                : *next == 'e'                  ? "bad number " + number + "e" + place(behind + 1)
                : *next == '-'                  ? "bad number " + number + "-" + place(behind + 1)
                : *next == '.' && point > 0     ? "bad number " + number + "." + place(behind + 1)
                : *next == '.'                  ? "unexpected end in array" + place(text.size())
                                                : "expected , or ]" + place(behind);
            ASSERT_EQ(fault, expected) << text;
          }
        }
      }
    }
  }
}

TEST(JSONParser, ANumberEndsAtTheEndOfTheInputEvenInTheMiddleOfABuffer) {
  const std::string_view buffer = "12345";
  EXPECT_EQ(parseJSON(buffer.substr(0, 3)), JSON(123));
  EXPECT_EQ(parseJSON(std::string_view("1.2345").substr(0, 4)), JSON(1.23));
}

TEST(JSONParser, ReadsEveryEscape) {
  EXPECT_EQ(stringOf(R"(\"\\\/\b\f\n\r\t)"), "\"\\/\b\f\n\r\t");
  EXPECT_EQ(stringOf(R"(a\u0041\u00e9\u4F60\uABCD\uabcd)"), "aAé你\uABCD\uABCD");
  EXPECT_EQ(stringOf(R"(\u0000)"), "\0"s);
  EXPECT_EQ(stringOf(R"(\\u0041)"), "\\u0041");
}

TEST(JSONParser, SurrogatePairsAreOneCodePoint) {
  EXPECT_EQ(stringOf(R"(\ud83d\ude00)"), "\U0001F600");
  EXPECT_EQ(stringOf(R"(\uD800\uDC00\uDBFF\uDFFF)"), "\U00010000\U0010FFFF");
}

TEST(JSONParser, LoneSurrogatesAreReplaced) {
  EXPECT_EQ(stringOf(R"(\ud83d)"), "\uFFFD");
  EXPECT_EQ(stringOf(R"(\ude00)"), "\uFFFD");
  EXPECT_EQ(stringOf(R"(\ud83dA)"),
            "\uFFFD"
            "A");
  EXPECT_EQ(stringOf(R"(\ud83d\n)"), "\uFFFD\n");
  EXPECT_EQ(stringOf(R"(\ude00\ud83d)"), "\uFFFD\uFFFD");
}

TEST(JSONParser, HighSurrogateBeforeAnotherEscapeIsDropped) {
  EXPECT_EQ(stringOf(R"(\ud83d\u0041)"), "A");
  EXPECT_EQ(stringOf(R"(\ud83d\u0041\ude00)"), "A\uFFFD");
}

TEST(JSONParser, ASecondHighSurrogateStandsAlone) {
  EXPECT_EQ(stringOf(R"(\ud83d\ud83d\ude00)"), "\uFFFD\uFFFD");
}

TEST(JSONParser, RawControlBytesAreTaken) {
  EXPECT_EQ(stringOf("a\n\t\x01\x7F\0b"s), "a\n\t\x01\x7F\0b"s);
}

TEST(JSONParser, EachMaximalIllFormedPartBecomesOneReplacement) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"\xFF", "\uFFFD"},
      {"a\x80z", "a\uFFFDz"},
      {"\xC0\xAF", "\uFFFD\uFFFD"},
      {"\xC3", "\uFFFD"},
      {"\xE4\xBD", "\uFFFD"},
      {"\xE4\xBDz", "\uFFFDz"},
      {"\xE0\x80\x80", "\uFFFD\uFFFD\uFFFD"},
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
      {"\xF0\x9F\x98", "\uFFFD"},
      {"\xF0\x9F\x98\xE4\xBD\xA0", "\uFFFD你"},
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xF5\x80", "\uFFFD\uFFFD"},
      {"你\xFF好\xE4", "你\uFFFD好\uFFFD"},
      {"plain text of more than a block\xFE", "plain text of more than a block\uFFFD"}};
  for (const auto& [bytes, text] : cases) {
    EXPECT_EQ(stringOf(bytes), text);
    EXPECT_EQ(stringOf(bytes + "\\n"), text + "\n");
    EXPECT_EQ(parseJSON("{\"" + bytes + "\":1}").asObject()->keys().at(0), text);
  }
}

TEST(JSONParser, AnEscapeCutsAnIllFormedPart) {
  EXPECT_EQ(stringOf("\xE4\\u0041\xBD"), "\uFFFDA\uFFFD");
  EXPECT_EQ(stringOf("\xF0\x9F\\ud83d\\ude00"), "\uFFFD\U0001F600");
}

TEST(JSONParser, AStringEndsWhereverItsQuoteLies) {
  for (std::size_t length = 0; length < 70; ++length) {
    const std::string plain(length, 'a');
    const auto around = [&](const std::string& middle) { return (plain + middle).append(plain); };
    EXPECT_EQ(stringOf(plain), plain);
    EXPECT_EQ(stringOf(around(R"(\n)")), around("\n"));
    EXPECT_EQ(stringOf(around("你")), around("你"));
    EXPECT_EQ(stringOf(around(R"(你\")")), around("你\""));
    EXPECT_EQ(parseJSON("[\"" + plain + "\",1]"), JSON(JSON::Array{plain, 1}));
  }
}

TEST(JSONParser, ARepeatedKeyKeepsItsFirstPlaceAndTakesTheLastValue) {
  const JSON value = parseJSON(R"({"b":1,"a":2,"b":3})");
  EXPECT_EQ(writeCompact(value), R"({"b":3,"a":2})");
  EXPECT_EQ(writeCompact(parseJSON(R"({"a":1,"\u0061":2})")), R"({"a":2})");
}

// Texts of every length and with every number of members: those of a small object lie in its own
// memory.
struct ParsedTexts {
  static constexpr std::array<std::size_t, 9> kLengths = {0, 1, 14, 15, 16, 200, 1023, 1024, 1025};

  explicit ParsedTexts(std::size_t members) {
    std::string bytes = "{";
    for (std::size_t i = 0; i < members; ++i) {
      texts.emplace_back(kLengths[i % kLengths.size()], static_cast<char>('a' + i % 26));
      bytes += (i == 0 ? "" : ",") + ("\"" + keyOf(i)) + "\":\"" + texts.back() + "\"";
    }
    object = *parseJSON(bytes + "}").asObject();
    value = parseJSON(bytes + "}");
  }
  static std::string keyOf(std::size_t i) { return "key " + std::to_string(i); }

  std::vector<std::string> texts;
  JSONObject object;  // a copy of the value
  JSON value;
};

TEST(ParsedTexts, AreReadCopiedAndCompared) {
  for (std::size_t members = 0; members < 40; ++members) {
    const ParsedTexts parsed(members);
    ASSERT_EQ(parsed.value.asObject()->size(), members);
    ASSERT_EQ(*parsed.value.asObject(), parsed.object);
    for (std::size_t i = 0; i < members; ++i) {
      ASSERT_EQ(parsed.object.getString(ParsedTexts::keyOf(i)), parsed.texts[i]);
    }
  }
}

TEST(ParsedTexts, OutliveTheObjectThatTheyAreTakenFrom) {
  for (const std::size_t members : {1U, 9U, 15U, 16U, 30U}) {
    std::vector<JSON> taken;
    ParsedTexts parsed(members);
    for (const auto& [key, value] : *parsed.value.asObject()) taken.push_back(std::move(value));
    parsed.value = nullptr;
    for (std::size_t i = 0; i < members; ++i) ASSERT_EQ(taken[i].asString(), parsed.texts[i]);
  }
}

TEST(ParsedTexts, MayBeReplacedErasedAndMovedToOtherObjects) {
  ParsedTexts parsed(9);
  JSONObject object = std::move(*parsed.value.asObject());
  EXPECT_TRUE(parsed.value.asObject()->empty());
  const auto textOf = [](const JSONObject& of, std::size_t i) {
    return of.getString(ParsedTexts::keyOf(i));
  };
  object.set(ParsedTexts::keyOf(5), "short");
  object.erase(ParsedTexts::keyOf(6));
  JSONObject other;
  other.set(ParsedTexts::keyOf(7), std::move(*object.get(ParsedTexts::keyOf(7))));
  for (int i = 0; i < 30; ++i) object.set("more " + std::to_string(i), i);  // moves to a new block
  EXPECT_EQ(textOf(object, 3), parsed.texts[3]);
  EXPECT_EQ(textOf(object, 5), "short");
  EXPECT_EQ(textOf(object, 6), std::nullopt);
  EXPECT_TRUE(object.get(ParsedTexts::keyOf(7))->isNull());
  object = {};
  EXPECT_EQ(textOf(other, 7), parsed.texts[7]);
}

// What the thread sanitizer is to see, where there is one.
TEST(ParsedTexts, MayEndInDifferentThreads) {
  for (int round = 0; round < 200; ++round) {
    ParsedTexts parsed(9);
    std::array<JSON, 2> taken = {std::move(*parsed.value.asObject()->get(ParsedTexts::keyOf(5))),
                                 std::move(*parsed.value.asObject()->get(ParsedTexts::keyOf(6)))};
    std::vector<std::thread> threads;
    threads.reserve(taken.size());
    for (JSON& text : taken) threads.emplace_back([&text] { text = nullptr; });
    parsed.value = nullptr;
    for (std::thread& thread : threads) thread.join();
  }
}

TEST(ParsedTexts, OfARepeatedKeyTheLastCounts) {
  const std::string last(60, 'l');
  for (const std::string before : {R"("a":"the first of two texts")", R"("a":1,"b":"another text")",
                                   R"("a":["in an array, too long"],"b":{})"}) {
    const std::string bytes = std::string("{").append(before).append(R"(,"a":")") + last + "\"}";
    const JSON value = parseJSON(bytes);
    EXPECT_EQ(value.asObject()->getString("a"), last);
    EXPECT_EQ(value.asObject()->keys().front(), "a");
  }
}

TEST(ParsedTexts, OfNestedContainersDoNotMix) {
  const auto text = [](char letter) { return std::string(20, letter); };
  const auto quoted = [&](char letter) { return "\"" + text(letter) + "\""; };
  const JSON value = parseJSON("[" + quoted('a') + R"(,{"b":)" + quoted('b') + R"(,"list":[)" +
                               quoted('c') + R"(,{"d":)" + quoted('d') + "}," + quoted('e') +
                               R"(],"f":)" + quoted('f') + "}," + quoted('g') + "]");
  const JSON expected = JSON::Array{
      text('a'),
      JSONObject{{"b", text('b')},
                 {"list", JSON::Array{text('c'), JSONObject{{"d", text('d')}}, text('e')}},
                 {"f", text('f')}},
      text('g')};
  EXPECT_EQ(value, expected);
}

TEST(JSONParser, RepeatedKeysOfLargeObjectsAreMergedToo) {
  std::string text = "{";
  JSONObject expected;
  for (int i = 0; i < 100; ++i) {
    const std::string key = std::to_string(i * i % 37);
    text += (i == 0 ? "\"" : ",\"") + key + "\":" + std::to_string(i);
    expected.set(key, i);
  }
  text += "}";
  EXPECT_GT(expected.size(), 16U);
  EXPECT_EQ(parseJSON(text), JSON(expected));
}

// A second way to a value: a handler that composes it through the public interface.
class NaiveBuilder {
 public:
  void onNull() { put(nullptr); }
  void onBool(bool value) { put(value); }
  void onInt(std::int64_t value) { put(value); }
  void onDouble(double value) { put(value); }
  void onString(std::string_view value) { put(value); }
  void onKey(std::string_view key) { open_.back().key = key; }
  void onObjectBegin() { open_.push_back({JSONObject(), ""}); }
  void onArrayBegin() { open_.push_back({JSON::Array(), ""}); }
  void onObjectEnd() { close(); }
  void onArrayEnd() { close(); }

  JSON result;

 private:
  struct Open {
    JSON value;
    std::string key;
  };
  void put(JSON value) {
    if (open_.empty()) {
      result = std::move(value);
    } else if (JSON::Array* array = open_.back().value.asArray()) {
      array->push_back(std::move(value));
    } else {
      open_.back().value.asObject()->set(open_.back().key, std::move(value));
    }
  }
  void close() {
    JSON value = std::move(open_.back().value);
    open_.pop_back();
    put(std::move(value));
  }
  std::vector<Open> open_;
};

TEST(JSONParser, TheBuilderAgreesWithComposingByHand) {
  for (const std::string_view text :
       {"1", "[]", "{}", "[[],{},[[]]]", R"({"a":{"b":[1,2.5,"x",null,true]},"c":[{"d":{}}]})",
        R"([{"a":1,"b":2,"a":{"a":[]}},{"":""}])", R"({"a":[{"a":1,"a":[2]}],"b":[],"a":3})"}) {
    NaiveBuilder naive;
    parseJSONEvents(text, naive);
    EXPECT_EQ(parseJSON(text), naive.result) << text;
    EXPECT_EQ(writeCompact(parseJSON(text)), writeCompact(naive.result)) << text;
  }
}

// Writes down what it is told.
struct Recorder {
  std::string seen;
  void onNull() { seen += "null "; }
  void onBool(bool value) { seen += value ? "true " : "false "; }
  void onInt(std::int64_t value) { seen += "int " + std::to_string(value) + " "; }
  void onDouble(double value) { seen += "double " + std::to_string(value) + " "; }
  void onString(std::string_view value) { seen += "string " + std::string(value) + " "; }
  void onKey(std::string_view key) { seen += "key " + std::string(key) + " "; }
  void onObjectBegin() { seen += "{ "; }
  void onObjectEnd() { seen += "} "; }
  void onArrayBegin() { seen += "[ "; }
  void onArrayEnd() { seen += "] "; }
};

TEST(JSONParser, AHandlerSeesTheDocumentInOrder) {
  Recorder recorder;
  parseJSONEvents(R"({"a":[1,2.5,{}],"a":"\n","b":[true,null,[]]})", recorder);
  EXPECT_EQ(recorder.seen,
            "{ key a [ int 1 double 2.500000 { } ] key a string \n key b [ true null [ ] ] } ");
}

TEST(JSONParser, AHandlerSeesEverythingBeforeAFault) {
  Recorder recorder;
  EXPECT_THROW(parseJSONEvents(R"([1,"a",tru)", recorder), JSONParseError);
  EXPECT_EQ(recorder.seen, "[ int 1 string a ");
}

TEST(JSONParser, ABuilderCanBeUsedForOneValueAfterAnother) {
  JSONBuilder builder;
  parseJSONEvents("[1,{\"a\":2}]", builder);
  EXPECT_EQ(builder.take(), JSON(JSON::Array{1, JSONObject{{"a", 2}}}));
  parseJSONEvents("\"x\"", builder);
  EXPECT_EQ(builder.take(), JSON("x"));
}

}  // namespace
}  // namespace velta
