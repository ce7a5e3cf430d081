#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "meetings/TextNorm.h"
#include "platform/Time.h"
#include "support/TimeZone.h"

namespace velta {
namespace {

// Noon of a day in UTC.
Instant day(int year, int month, int dayOfMonth) {
  const std::chrono::year_month_day date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(dayOfMonth))};
  return Instant(std::chrono::sys_days(date)) + std::chrono::hours(12);
}

std::string inlineTime(std::string_view text) {
  const auto match = inlineTimePattern().search(text);
  return match ? std::string(match->group(1)) : "none";
}

TEST(TextNorm, LowerASCIILeavesEverythingButTheASCIICapitals) {
  EXPECT_EQ(lowerASCII("Hello 世界 ÄB"), "hello 世界 Äb");
  EXPECT_EQ(lowerASCII("AZ[@`az{ＡÉ"), "az[@`az{ＡÉ");
  EXPECT_EQ(lowerASCII(""), "");
}

TEST(TextNorm, LowerASCIILeavesIllFormedBytes) {
  EXPECT_EQ(lowerASCII("\xC3\xFF\x80X"), "\xC3\xFF\x80x");
}

TEST(TextNorm, LowerASCIIInPlaceIsTheSameRule) {
  std::string text = "會議 With Amy";
  lowerASCIIInPlace(text);
  EXPECT_EQ(text, "會議 with amy");
}

TEST(TextNorm, SpeakerLineNeedsTwoSpacesBeforeTheTime) {
  const auto match = speakerLinePattern().search("@Amy  1:02:03");
  ASSERT_TRUE(match);
  EXPECT_EQ(match->group(1), "Amy");
  EXPECT_EQ(match->group(2), "1:02:03");
  EXPECT_FALSE(speakerLinePattern().matches("@Amy 1:02:03"));
}

TEST(TextNorm, SpeakerLineMayHaveANameOfTwoWordsAndTrailingSpaces) {
  const std::string line = "@Amy Chen   12:05  ";
  const auto match = speakerLinePattern().search(line);
  ASSERT_TRUE(match);
  EXPECT_EQ(match->group(1), "Amy Chen");
  EXPECT_EQ(match->group(2), "12:05");
}

TEST(TextNorm, SpeakerLineTakesUnicodeWhiteSpaceButASCIIDigitsOnly) {
  EXPECT_TRUE(speakerLinePattern().matches("@小美\u3000\u300012:05"));
  EXPECT_TRUE(speakerLinePattern().matches("@小美\t 12:05"));
  EXPECT_FALSE(speakerLinePattern().matches("@Amy  １２:05"));
  EXPECT_FALSE(speakerLinePattern().matches(" @Amy  12:05"));
  EXPECT_FALSE(speakerLinePattern().matches("@Amy  12:05 x"));
  EXPECT_FALSE(speakerLinePattern().matches("@  12:05"));
}

TEST(TextNorm, HeadingHasOneToFourMarksAndASpace) {
  const auto match = headingPattern().search("## 決議 and more");
  ASSERT_TRUE(match);
  EXPECT_EQ(match->group(1), "##");
  EXPECT_EQ(match->group(2), "決議 and more");
  EXPECT_TRUE(headingPattern().matches("# a"));
  EXPECT_TRUE(headingPattern().matches("#### a"));
  EXPECT_TRUE(headingPattern().matches("# "));
  EXPECT_FALSE(headingPattern().matches("##### a"));
  EXPECT_FALSE(headingPattern().matches("#a"));
  EXPECT_FALSE(headingPattern().matches(" # a"));
}

TEST(TextNorm, InlineTimeTouchesNoDigitAndNoColon) {
  EXPECT_EQ(inlineTime("at 12:30 we agreed"), "12:30");
  EXPECT_EQ(inlineTime("12:30:45:10"), "none");
  EXPECT_EQ(inlineTime("x1:23"), "1:23");
  EXPECT_EQ(inlineTime("2024-01-02"), "none");
  EXPECT_EQ(inlineTime("於1:02:03說"), "1:02:03");
  EXPECT_EQ(inlineTime("123:45 then 1:05"), "1:05");
  EXPECT_EQ(inlineTime("1:5"), "none");
}

TEST(TextNorm, UUIDIsTheWholeTextInEitherCase) {
  EXPECT_TRUE(uuidPattern().matches("0190f3c2-7b1A-4c8d-9e2f-ABCDEFabcdef"));
  EXPECT_FALSE(uuidPattern().matches("0190f3c2-7b1a-4c8d-9e2f-abcdefabcdef\n"));
  EXPECT_FALSE(uuidPattern().matches("x0190f3c2-7b1a-4c8d-9e2f-abcdefabcdef"));
  EXPECT_FALSE(uuidPattern().matches("0190f3c27b1a4c8d9e2fabcdefabcdef"));
}

TEST(TextNorm, PatternsMayBeUsedFromSeveralThreads) {
  std::vector<std::thread> threads;
  std::vector<int> found(4, 0);
  threads.reserve(found.size());
  for (int& count : found) {
    threads.emplace_back([&count] {
      for (int i = 0; i < 1000; ++i) count += inlineTimePattern().matches("at 12:30") ? 1 : 0;
    });
  }
  for (auto& thread : threads) thread.join();
  for (const int count : found) EXPECT_EQ(count, 1000);
}

TEST(TextNorm, ParseClockReadsMinutesAndHours) {
  EXPECT_EQ(parseClock("7:05"), 425);
  EXPECT_EQ(parseClock("12:34"), 754);
  EXPECT_EQ(parseClock("1:02:03"), 3723);
  EXPECT_EQ(parseClock("00:00"), 0);
}

TEST(TextNorm, ParseClockOfNothingIsZero) { EXPECT_EQ(parseClock(""), 0); }

TEST(TextNorm, FormatClockShowsTheHourFromOneHourOn) {
  EXPECT_EQ(formatClock(3599.9), "59:59");
  EXPECT_EQ(formatClock(3600.0), "1:00:00");
  EXPECT_EQ(formatClock(3723.0), "1:02:03");
  EXPECT_EQ(formatClock(754.0), "12:34");
  EXPECT_EQ(formatClock(5.0), "00:05");
  EXPECT_EQ(formatClock(100 * 3600.0), "100:00:00");
}

TEST(TextNorm, FormatClockCountsNegativeTimesAsZero) {
  EXPECT_EQ(formatClock(-5.0), "00:00");
  EXPECT_EQ(formatClock(-1e300), "00:00");
}

TEST(TextNorm, FormatClockOfAnAbsentTimeIsAbsent) {
  EXPECT_EQ(formatClock(std::optional<double>()), std::nullopt);
  EXPECT_EQ(formatClock(std::optional<double>(61.0)), "01:01");
}

TEST(TextNorm, FormatClockSurvivesTimesThatAreNoNumbers) {
  EXPECT_EQ(formatClock(std::nan("")), "00:00");
  EXPECT_EQ(formatClock(std::numeric_limits<double>::infinity()), "2562047788015215:30:07");
}

TEST(TextNorm, ParseClockReadsBackWhatFormatClockWrites) {
  for (int seconds = 0; seconds < 20000; seconds += 7) {
    EXPECT_EQ(parseClock(formatClock(static_cast<double>(seconds))), seconds);
  }
}

TEST(TextNorm, SlugJoinsWhatIsLeftWithHyphens) {
  EXPECT_EQ(slugify("2025-03-14 Weekly Sync (Team)"), "2025-03-14-weekly-sync-team");
  EXPECT_EQ(slugify("產品_會議 v2"), "產品-會議-v2");
  EXPECT_EQ(slugify("--A--B--"), "a-b");
  EXPECT_EQ(slugify("Ärger"), "rger");
}

TEST(TextNorm, SlugOfPunctuationIsMeeting) {
  EXPECT_EQ(slugify("!?…"), "meeting");
  EXPECT_EQ(slugify(""), "meeting");
}

TEST(TextNorm, SlugHasSixtyCharactersAndMayEndInAHyphen) {
  EXPECT_EQ(slugify(std::string(70, 'A')), std::string(60, 'a'));
  EXPECT_EQ(slugify(std::string(59, 'a') + " b"), std::string(59, 'a') + "-");
  std::string ideographs;
  std::string expected;
  for (int i = 0; i < 70; ++i) ideographs += "會";
  for (int i = 0; i < 60; ++i) expected += "會";
  EXPECT_EQ(slugify(ideographs), expected);
}

TEST(TextNorm, SlugKeepsTheLastIdeographOfTheBlockAndNothingBeyond) {
  EXPECT_EQ(slugify("一\u9FFF\u4DFF\uA000x"), "一\u9FFF-x");
}

TEST(DeriveDate, TakesAFullDateAsWritten) {
  const Instant now = day(2025, 3, 10);
  EXPECT_EQ(deriveDate({"notes", "2024-13-45"}, now), "2024-13-45");
  EXPECT_EQ(deriveDate({"Meeting of 2024-01-02T10:00Z and 2023-01-01"}, now), "2024-01-02");
}

TEST(DeriveDate, AMonthAndDayLieInThePast) {
  const Instant now = day(2025, 3, 10);
  EXPECT_EQ(deriveDate({"3-14-review"}, now), "2024-03-14");
  EXPECT_EQ(deriveDate({"3-9-review"}, now), "2025-03-09");
  EXPECT_EQ(deriveDate({"03-10-review"}, now), "2025-03-10");
  EXPECT_EQ(deriveDate({"12-31-x"}, day(2025, 1, 5)), "2024-12-31");
}

TEST(DeriveDate, AMonthOrDayOutOfRangeIsPassedOver) {
  const Instant now = day(2025, 3, 10);
  EXPECT_EQ(deriveDate({"13-01-x"}, now), std::nullopt);
  EXPECT_EQ(deriveDate({"0-1-x", "1-32-x", "1-0-x", "2-30-x"}, now), "2025-02-30");
}

TEST(DeriveDate, AFullDateInALaterTextBeatsAMonthAndDay) {
  EXPECT_EQ(deriveDate({"3-9-x", "2020-01-01"}, day(2025, 3, 10)), "2020-01-01");
}

TEST(DeriveDate, AMonthAndDayCountOnlyAtTheStartAndBeforeAHyphen) {
  const Instant now = day(2025, 3, 10);
  EXPECT_EQ(deriveDate({"x 3-9-y", "3-9", "113-9-y", "", "notes"}, now), std::nullopt);
}

TEST(DeriveDate, TheReferenceIsReadInTheLocalCalendar) {
  const TimeZone taipei("Asia/Taipei");
  // 2025-03-09 20:00 UTC is already the 10th in Taipei.
  EXPECT_EQ(deriveDate({"3-10-x"}, day(2025, 3, 9) + std::chrono::hours(8)), "2025-03-10");
}

}  // namespace
}  // namespace velta
