#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "index/FoldedText.h"
#include "meetings/TextNorm.h"

namespace velta {
namespace {

constexpr std::size_t npos = FoldedNeedle::npos;

std::size_t find(std::string needle, std::string_view haystack, std::size_t from = 0) {
  return FoldedNeedle(std::move(needle)).find(haystack, from);
}

TEST(FoldedNeedle, FindsCapitalsForSmallLetters) {
  EXPECT_EQ(find("okr", "the OKR"), 4u);
  EXPECT_EQ(find("okr", "the Okr"), 4u);
  EXPECT_EQ(find("okr", "the okr"), 4u);
}

TEST(FoldedNeedle, FoldsNothingButTheLettersOfASCII) {
  EXPECT_EQ(find("ä", "Ä"), npos);
  EXPECT_EQ(find("[", "{"), npos);  // differ in the bit in which cases differ
  EXPECT_EQ(find("`", "@"), npos);
  EXPECT_EQ(find("ａ", "Ａ"), npos);  // full width
}

TEST(FoldedNeedle, FindsChineseByItsBytes) {
  EXPECT_EQ(find("押金", "退還押金嗎"), 6u);
  EXPECT_EQ(find("押金", "退還押"), npos);
}

TEST(FoldedNeedle, StartsWhereItIsTold) {
  EXPECT_EQ(find("a", "aba", 1), 2u);
  EXPECT_EQ(find("a", "aba", 3), npos);
  EXPECT_EQ(find("a", "aba", 99), npos);
}

TEST(FoldedNeedle, FindsAnOverlappingOccurrence) { EXPECT_EQ(find("aab", "aaab"), 1u); }

TEST(FoldedNeedle, FindsTheEmptyTextEverywhere) {
  EXPECT_EQ(find("", ""), 0u);
  EXPECT_EQ(find("", "abc", 2), 2u);
  EXPECT_EQ(find("", "abc", 3), 3u);
  EXPECT_EQ(find("", "abc", 4), npos);
}

TEST(FoldedNeedle, FindsNothingInAShorterText) {
  EXPECT_EQ(find("abc", "ab"), npos);
  EXPECT_EQ(find("abc", ""), npos);
}

TEST(FoldedNeedle, FindsWhatLiesAcrossTheWindowsOfTheScan) {
  const std::string needle = "window";
  for (std::size_t before = 500; before < 1600; ++before) {
    const std::string haystack = std::string(before, 'x') + "WinDow" + "tail";
    ASSERT_EQ(find(needle, haystack), before);
  }
}

TEST(QueryToken, FindsTheFirstOfItsVariants) {
  const QueryToken token({"電車", "电车"});
  EXPECT_EQ(token.find("x电车電車"), 1u);
  EXPECT_EQ(token.find("x电车電車", 2), 7u);
  EXPECT_EQ(token.find("x电车電車", 8), npos);
}

TEST(QueryToken, WithoutVariantsIsNowhere) { EXPECT_FALSE(QueryToken({}).isIn("abc")); }

// Text of few different characters, so that near misses are common.
class RandomText {
 public:
  explicit RandomText(unsigned seed) : random_(seed) {}

  std::string operator()(std::size_t characters) {
    static const std::vector<std::string> kCharacters = {"a",  "A",  "b",  "B",  "z",  "[", " ",
                                                         "金", "押", "錢", "钱", "，", "é", "😀"};
    std::string text;
    for (std::size_t i = 0; i < characters; ++i) text += kCharacters[below(kCharacters.size())];
    return text;
  }

  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_);
  }

 private:
  std::mt19937 random_;
};

std::size_t naiveFind(const std::vector<std::string>& needles, std::string_view haystack,
                      std::size_t from) {
  const std::string lowered = lowerASCII(haystack);
  std::size_t first = npos;
  for (const std::string& needle : needles) first = std::min(first, lowered.find(needle, from));
  return first;
}

TEST(QueryToken, FindsWhatANaiveSearchFinds) {
  RandomText random(1);
  std::size_t found = 0;
  for (int round = 0; round < 20'000; ++round) {
    const std::string haystack = random(random.below(round % 10 == 0 ? 2000 : 60));
    std::vector<std::string> needles;
    for (std::size_t i = random.below(3) + 1; i > 0; --i) {
      needles.push_back(lowerASCII(random(random.below(4) + 1)));
    }
    const std::size_t from = random.below(haystack.size() + 2);
    const std::size_t expected = naiveFind(needles, haystack, from);
    ASSERT_EQ(QueryToken(needles).find(haystack, from), expected)
        << haystack << " / " << needles[0];
    ASSERT_EQ(FoldedNeedle(needles[0]).find(haystack, from),
              naiveFind({needles[0]}, haystack, from));
    if (expected != npos) ++found;
  }
  EXPECT_GT(found, 2000u);  // the rounds say something about both outcomes
  EXPECT_LT(found, 18'000u);
}

// All occurrences of a word whose other variant, and whose other case, never come: time in
// proportion to the text, where a scan to the end for each occurrence would take minutes.
TEST(QueryToken, GoesFromMatchToMatchInLinearTime) {
  std::string haystack;
  for (int i = 0; i < 1'000'000; ++i) haystack += "B ";
  const QueryToken token({"b", "押金"});
  std::size_t matches = 0;
  for (auto at = token.find(haystack); at != npos; at = token.find(haystack, at + 1)) ++matches;
  EXPECT_EQ(matches, 1'000'000u);
}

}  // namespace
}  // namespace velta
