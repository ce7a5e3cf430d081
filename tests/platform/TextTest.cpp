#include <cstddef>
#include <initializer_list>
#include <string>

#include <gtest/gtest.h>

#include "platform/Text.h"

namespace velta {
namespace {

using namespace std::string_literals;

const std::string kBad = "\xEF\xBF\xBD";  // U+FFFD

std::string utf8(char32_t codePoint) {
  std::string text;
  appendUTF8(text, codePoint);
  return text;
}

std::string bytes(std::initializer_list<int> values) {
  std::string text;
  for (const int value : values) text += static_cast<char>(value);
  return text;
}

// Well-formed UTF-8, row by row of the table of the Unicode standard (3-7).
struct Row {
  int firstLow, firstHigh;    // lead byte
  int secondLow, secondHigh;  // second byte; later ones are 80 to BF
  int length;
};
constexpr Row kWellFormed[] = {
    {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

const Row* rowOf(int lead) {
  for (const Row& row : kWellFormed) {
    if (lead >= row.firstLow && lead <= row.firstHigh) return &row;
  }
  return nullptr;
}

TEST(ValidUTF8, EveryLeadAndSecondByteFollowsTheTable) {
  for (int lead = 0x80; lead <= 0xFF; ++lead) {
    for (int second = 0; second <= 0xFF; ++second) {
      const Row* row = rowOf(lead);
      const std::string tail(row != nullptr ? static_cast<std::size_t>(row->length - 2) : 0,
                             '\x80');
      const bool expected = row != nullptr && second >= row->secondLow && second <= row->secondHigh;
      EXPECT_EQ(isValidUTF8(bytes({lead, second}) + tail), expected) << lead << " " << second;
    }
  }
}

TEST(ValidUTF8, EveryLaterByteIsAContinuation) {
  for (const Row& row : kWellFormed) {
    for (int at = 2; at < row.length; ++at) {
      for (int value = 0; value <= 0xFF; ++value) {
        std::string text = bytes({row.firstLow, row.secondLow}) +
                           std::string(static_cast<std::size_t>(row.length - 2), '\x80');
        text[static_cast<std::size_t>(at)] = static_cast<char>(value);
        EXPECT_EQ(isValidUTF8(text), value >= 0x80 && value <= 0xBF);
      }
    }
  }
}

TEST(ValidUTF8, CutSequencesAreIllFormedAtEveryLength) {
  for (const char32_t codePoint : {U'é', U'會', U'😀'}) {
    const std::string whole = utf8(codePoint);
    for (std::size_t length = 1; length < whole.size(); ++length) {
      EXPECT_FALSE(isValidUTF8(whole.substr(0, length)));
    }
  }
}

TEST(ValidUTF8, EveryScalarValueIsValidAndReadsBack) {
  for (char32_t c = 0; c <= 0x10FFFF; c += (c < 0x3000 ? 1 : 61)) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    const std::string text = utf8(c);
    ASSERT_TRUE(isValidUTF8(text)) << static_cast<unsigned>(c);
    ASSERT_EQ(decodeUTF8(text), std::u32string(1, c)) << static_cast<unsigned>(c);
  }
}

TEST(ValidUTF8, FaultIsFoundAtEveryDistanceFromTheStart) {
  for (std::size_t before = 0; before < 40; ++before) {
    for (const char* good : {"a", "會"}) {
      std::string text;
      for (std::size_t i = 0; i < before; ++i) text += good;
      const std::string intact = text;
      EXPECT_TRUE(isValidUTF8(text));
      text += '\xFF';
      EXPECT_FALSE(isValidUTF8(text));
      text += intact;
      EXPECT_FALSE(isValidUTF8(text));
    }
  }
}

TEST(ValidUTF8, EmptyTextIsValid) { EXPECT_TRUE(isValidUTF8("")); }

TEST(RepairUTF8, WellFormedTextIsUnchanged) {
  const std::string text = "a會議😀\0\xEF\xBF\xBF"s;
  EXPECT_EQ(repairUTF8(text), text);
}

TEST(RepairUTF8, EachMaximalPartBecomesOneReplacement) {
  const struct {
    std::string bytes;
    std::string expected;
  } cases[] = {
      // The examples of the Unicode standard (tables 3-8 to 3-11).
      {bytes({0xC0, 0xAF, 0xE0, 0x80, 0xBF, 0xF0, 0x81, 0x82, 0x41}),
       kBad + kBad + kBad + kBad + kBad + kBad + kBad + kBad + "A"},
      {bytes({0xED, 0xA0, 0x80, 0xED, 0xBF, 0xBF, 0xED, 0xAF, 0x41}),
       kBad + kBad + kBad + kBad + kBad + kBad + kBad + kBad + "A"},
      {bytes({0xF4, 0x91, 0x92, 0x93, 0xFF, 0x41, 0x80, 0xBF, 0x42}),
       kBad + kBad + kBad + kBad + kBad + "A" + kBad + kBad + "B"},
      {bytes({0xE1, 0x80, 0xE2, 0xF0, 0x91, 0x92, 0xF1, 0xBF, 0x41}),
       kBad + kBad + kBad + kBad + "A"},
      // Sequences that the end of the text cuts.
      {"a\xE6", "a" + kBad},
      {"a\xE6\x9C", "a" + kBad},
      {"\xF0\x9F\x98", kBad},
      {"\xC3", kBad},
      // A fault between good neighbours.
      {"會\xFF議", "會" + kBad + "議"},
      {"\xE6\x9C會", kBad + "會"},
      {"\x80", kBad},
  };
  for (const auto& [input, expected] : cases) EXPECT_EQ(repairUTF8(input), expected);
}

TEST(RepairUTF8, RepairedTextIsValid) {
  // Bytes of a fixed pseudo-random sequence, mostly ill-formed.
  unsigned state = 12345;
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    for (int i = 0; i < round % 40; ++i) {
      state = state * 1664525U + 1013904223U;
      text += static_cast<char>(state >> 24);
    }
    const std::string repaired = repairUTF8(text);
    ASSERT_TRUE(isValidUTF8(repaired));
    ASSERT_EQ(repairUTF8(repaired), repaired);
    ASSERT_EQ(isValidUTF8(text), repaired == text);
  }
}

TEST(DecodeUTF8, GivesCodePoints) {
  EXPECT_EQ(decodeUTF8("aé會😀\0"s), U"aé會😀\0"s);
  EXPECT_EQ(decodeUTF8(""), U"");
}

TEST(Trim, EveryUnicodeWhiteSpaceIsTrimmed) {
  for (const char32_t c : std::initializer_list<char32_t>{
           0x09,   0x0A,   0x0B,   0x0C,   0x0D,   0x20,   0x85,   0xA0,   0x1680,
           0x2000, 0x2001, 0x2002, 0x2003, 0x2004, 0x2005, 0x2006, 0x2007, 0x2008,
           0x2009, 0x200A, 0x2028, 0x2029, 0x202F, 0x205F, 0x3000}) {
    const std::string space = utf8(c);
    std::string text = space + space;
    text += "會 議" + space;
    EXPECT_EQ(trimWhiteSpace(text), "會 議") << static_cast<unsigned>(c);
  }
}

TEST(Trim, WhatOnlyLooksEmptyStays) {
  for (const char32_t c :
       std::initializer_list<char32_t>{0x00, 0x08, 0x0E, 0x1C, 0x1F, 0x7F, 0x84, 0x86, 0x180E,
                                       0x200B, 0x200D, 0x2060, 0x2800, 0x3001, 0xFEFF}) {
    const std::string text = utf8(c);
    EXPECT_EQ(trimWhiteSpace(text), text) << static_cast<unsigned>(c);
  }
}

TEST(Trim, WhiteSpaceAloneLeavesNothing) {
  EXPECT_EQ(trimWhiteSpace(" \t　\n"), "");
  EXPECT_EQ(trimWhiteSpace(""), "");
}

TEST(Trim, InnerWhiteSpaceStays) { EXPECT_EQ(trimWhiteSpace("　a　b "), "a　b"); }

TEST(Trim, CharactersWhoseLastByteLooksLikeSpaceStay) {
  EXPECT_EQ(trimWhiteSpace("刀"), "刀");  // ends in 0x80
  EXPECT_EQ(trimWhiteSpace("à"), "à");    // ends in 0xA0
  EXPECT_EQ(trimWhiteSpace("…"), "…");    // ends in 0xA6
}

TEST(Trim, IllFormedBytesAreNoWhiteSpace) {
  EXPECT_EQ(trimWhiteSpace("\x85"), "\x85");
  EXPECT_EQ(trimWhiteSpace("\xA0 "), "\xA0");
  EXPECT_EQ(trimWhiteSpace("\xE3\x80"), "\xE3\x80");
}

TEST(Characters, CountsWhatAPersonCounts) {
  const struct {
    std::string text;
    std::size_t count;
  } cases[] = {
      {"", 0},
      {"abc", 3},
      {"會議", 2},
      {"e\u0301", 1},                    // e and a combining acute
      {"a\u0300\u0301\u0302b", 2},       // several marks on one letter
      {"👩‍👩‍👧‍👦", 1},  // a family joined by ZWJ
      {"👍🏽", 1},                   // a skin tone
      {"❤️", 1},                     // a variation selector
      {"🇹🇼", 1},                         // a flag
      {"🇹🇼🇯🇵🇺🇸", 3},                     // flags pair off
      {"🇹🇼🇯", 2},                        // an odd regional indicator stands alone
      {"\r\n", 1},                       // one line end
      {"\n\r", 2},
      {"a\r\nb", 3},
      {"각", 1},        // Hangul of three letters
      {"नि", 1},        // a spacing mark
      {"1️⃣", 1},   // a keycap
      {"\u0301", 1},    // a mark without a letter
      {"a\u200Db", 2},  // ZWJ belongs to what stands before it
      {"👩‍a", 2},  // and joins nothing that is no emoji
      {"😀😀", 2},
      {"\0\0"s, 2},
  };
  for (const auto& [text, count] : cases) EXPECT_EQ(characterCount(text), count) << text;
}

TEST(Characters, FirstCharactersNeverCutACluster) {
  EXPECT_EQ(firstCharacters("👩‍👩‍👧‍👦x", 1), "👩‍👩‍👧‍👦");
  EXPECT_EQ(firstCharacters("🇹🇼🇯🇵", 1), "🇹🇼");
  EXPECT_EQ(firstCharacters("ae\u0301b", 2), "ae\u0301");
  EXPECT_EQ(firstCharacters("\r\nab", 2), "\r\na");
  EXPECT_EQ(firstCharacters("會議記錄", 2), "會議");
}

TEST(Characters, FirstCharactersOfAShortTextAreAllOfIt) {
  EXPECT_EQ(firstCharacters("abc", 3), "abc");
  EXPECT_EQ(firstCharacters("abc", 80), "abc");
  EXPECT_EQ(firstCharacters("e\u0301", 1), "e\u0301");
  EXPECT_EQ(firstCharacters("", 5), "");
  EXPECT_EQ(firstCharacters("abc", 0), "");
}

TEST(VisibleOnOneLine, ControlCharactersAndLineBreaksShowAsReplacement) {
  for (const char32_t c :
       std::initializer_list<char32_t>{0x00, 0x07, 0x09, 0x0A, 0x0D, 0x1B, 0x1F, 0x7F, 0x80, 0x85,
                                       0x9B, 0x9F, 0x2028, 0x2029}) {
    EXPECT_EQ(visibleOnOneLine("a" + utf8(c) + "b"), "a" + kBad + "b") << static_cast<unsigned>(c);
  }
}

TEST(VisibleOnOneLine, EverythingElseStays) {
  const std::string text = "a b　會議 😀 \u00A0é~\uFFFD";
  EXPECT_EQ(visibleOnOneLine(text), text);
}

TEST(VisibleOnOneLine, EachOfSeveralIsShown) {
  EXPECT_EQ(visibleOnOneLine("a\r\n\nb"), "a" + kBad + kBad + kBad + "b");
}

}  // namespace
}  // namespace velta
