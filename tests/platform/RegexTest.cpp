#include <atomic>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Regex.h"
#include "platform/Text.h"

namespace velta {
namespace {

std::string firstMatch(const Regex& regex, std::string_view subject) {
  const auto match = regex.search(subject);
  return match ? std::string(match->group(0)) : "(none)";
}

TEST(Regex, GroupsAreViewsIntoTheSubject) {
  const Regex date("([0-9]{4})-([0-9]{2})-([0-9]{2})");
  const std::string subject = "會議 2026-10-12 下午";
  const auto match = date.search(subject);
  ASSERT_TRUE(match);
  EXPECT_EQ(match->group(0), "2026-10-12");
  EXPECT_EQ(match->group(1), "2026");
  EXPECT_EQ(match->group(3), "12");
  EXPECT_EQ(match->begin(), 7U);
  EXPECT_EQ(match->end(), 17U);
  EXPECT_EQ(match->group(1).data(), subject.data() + 7);
}

TEST(Regex, GroupThatTookNoPartIsEmpty) {
  const Regex clock("([0-9]+):([0-9]+)(?::([0-9]+))?(x)?");
  const auto match = clock.search("1:02");
  ASSERT_TRUE(match);
  EXPECT_EQ(match->group(2), "02");
  EXPECT_EQ(match->group(3), "");
  EXPECT_EQ(match->group(4), "");
  EXPECT_EQ(match->group(99), "");
}

TEST(Regex, NoMatchIsAbsent) {
  EXPECT_FALSE(Regex("x").search("abc"));
  EXPECT_FALSE(Regex("x").matches(""));
  EXPECT_TRUE(Regex("b").matches("abc"));
}

TEST(Regex, SearchStartsWhereItIsTold) {
  const Regex letter("a");
  EXPECT_EQ(letter.search("abca", 1)->begin(), 3U);
  EXPECT_FALSE(letter.search("abca", 4));
}

TEST(Regex, LookBehindSeesWhatStandsBeforeTheStart) {
  const Regex clock("(?<![0-9:])([0-9]{1,2}:[0-9]{2}(?::[0-9]{2})?)(?![0-9:])");
  EXPECT_EQ(firstMatch(clock, "at 12:34, then"), "12:34");
  EXPECT_EQ(firstMatch(clock, "1:02:03"), "1:02:03");
  EXPECT_EQ(firstMatch(clock, "112:34"), "(none)");
  EXPECT_EQ(firstMatch(clock, "12:345"), "(none)");
  EXPECT_EQ(firstMatch(clock, "會12:34議"), "12:34");
  EXPECT_FALSE(clock.search("112:34", 1));
}

TEST(Regex, LazyQuantifierTakesTheShortestRun) {
  const Regex speaker(R"(^@(.+?)\s{2,}([0-9]{1,2}:[0-9]{2}(?::[0-9]{2})?)\s*$)");
  const auto match = speaker.search("@王 小明  00:12  ");
  ASSERT_TRUE(match);
  EXPECT_EQ(match->group(1), "王 小明");
  EXPECT_EQ(match->group(2), "00:12");
}

TEST(Regex, WhiteSpaceIsUnicode) {
  const Regex space("^\\s$");
  for (const char32_t c :
       std::initializer_list<char32_t>{0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x20, 0x85, 0xA0, 0x1680,
                                       0x2003, 0x2028, 0x2029, 0x202F, 0x205F, 0x3000}) {
    std::string text;
    appendUTF8(text, c);
    EXPECT_TRUE(space.matches(text)) << static_cast<unsigned>(c);
  }
  EXPECT_FALSE(space.matches("\u200B"));
  EXPECT_FALSE(space.matches("a"));
}

TEST(Regex, DollarIsTheVeryEnd) {
  const Regex end("b$");
  EXPECT_TRUE(end.matches("ab"));
  EXPECT_FALSE(end.matches("ab\n"));
  EXPECT_FALSE(end.matches("b\na"));
  EXPECT_FALSE(end.matches("ab\r\n"));
}

TEST(Regex, CaretIsTheVeryStart) {
  const Regex start("^b");
  EXPECT_TRUE(start.matches("bc"));
  EXPECT_FALSE(start.matches("a\nb"));
}

TEST(Regex, DotStopsAtEveryLineEnd) {
  const Regex anything("^.*");
  for (const char* end : {"\n", "\r", "\u0085", "\u2028", "\u2029"}) {
    EXPECT_EQ(firstMatch(anything, "會議" + std::string(end) + "b"), "會議") << end;
  }
  EXPECT_EQ(firstMatch(anything, "會議\tb"), "會議\tb");
}

TEST(Regex, ClassesTakeCodePointRanges) {
  const Regex separator(R"([^A-Za-z0-9\x{4e00}-\x{9fff}]+)");
  EXPECT_EQ(separator.replaceAll("週會 — 2026/10（上）😀!", "-"), "週會-2026-10-上-");
}

TEST(Regex, MatchingIsCaseSensitive) { EXPECT_FALSE(Regex("abc").matches("ABC")); }

TEST(Regex, BrokenPatternIsRefused) {
  EXPECT_THROW(Regex("(unclosed"), std::invalid_argument);
  EXPECT_THROW(Regex("[z-a]"), std::invalid_argument);
}

TEST(Regex, EmptySubjectCanMatch) {
  EXPECT_TRUE(Regex("^$").matches(""));
  EXPECT_TRUE(Regex("^$").matches(std::string_view()));
  EXPECT_TRUE(Regex("").matches("abc"));
}

TEST(Regex, ZeroBytesAreText) {
  const std::string subject("a\0b", 3);
  EXPECT_EQ(Regex("^a.b$").search(subject)->end(), 3U);
}

TEST(Regex, MovedExpressionStillMatches) {
  Regex first("a+");
  const Regex second = std::move(first);
  EXPECT_EQ(firstMatch(second, "baaa"), "aaa");
}

TEST(RegexReplaceAll, EveryMatchIsReplaced) {
  EXPECT_EQ(Regex("a+").replaceAll("caaataa", "x"), "cxtx");
  EXPECT_EQ(Regex("z").replaceAll("abc", "x"), "abc");
  EXPECT_EQ(Regex("a").replaceAll("", "x"), "");
  EXPECT_EQ(Regex(".+").replaceAll("abc", ""), "");
}

TEST(RegexReplaceAll, ReplacementIsLiteral) {
  EXPECT_EQ(Regex("(a)").replaceAll("a", "$1\\1&"), "$1\\1&");
}

TEST(RegexReplaceAll, EmptyMatchesStandBetweenCharacters) {
  EXPECT_EQ(Regex("x*").replaceAll("ab", "-"), "-a-b-");
  EXPECT_EQ(Regex("x*").replaceAll("會é", "-"), "-會-é-");
}

TEST(Regex, OneExpressionServesManyThreads) {
  const Regex date("([0-9]{4})-([0-9]{2})-([0-9]{2})");
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&date, &wrong, thread] {
      const std::string year = std::to_string(2000 + thread);
      const std::string subject = "x " + year + "-01-02 y";
      for (int i = 0; i < 2000; ++i) {
        const auto match = date.search(subject);
        if (!match || match->group(1) != year) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace velta
