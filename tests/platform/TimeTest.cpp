#include <chrono>
#include <tuple>

#include <gtest/gtest.h>

#include "platform/Time.h"
#include "support/TimeZone.h"

namespace velta {
namespace {

auto fieldsOf(const CivilTime& time) {
  return std::tuple(time.year, time.month, time.day, time.hour, time.minute, time.second,
                    time.utcOffsetSeconds);
}

Instant at(double secondsFromEpoch) { return instantFromSeconds(secondsFromEpoch); }

TEST(Time, EpochInUTC) { EXPECT_EQ(fieldsOf(utcTime(at(0))), std::tuple(1970, 1, 1, 0, 0, 0, 0)); }

TEST(Time, FractionsOfASecondRoundDownAlsoBeforeTheEpoch) {
  EXPECT_EQ(fieldsOf(utcTime(at(59.999))), std::tuple(1970, 1, 1, 0, 0, 59, 0));
  EXPECT_EQ(fieldsOf(utcTime(at(-0.5))), std::tuple(1969, 12, 31, 23, 59, 59, 0));
}

TEST(Time, LeapDaysExist) {
  EXPECT_EQ(fieldsOf(utcTime(at(951782400))), std::tuple(2000, 2, 29, 0, 0, 0, 0));
  EXPECT_EQ(fieldsOf(utcTime(at(1709164800))), std::tuple(2024, 2, 29, 0, 0, 0, 0));
}

TEST(Time, TimesBeyond32BitsExist) {
  EXPECT_EQ(fieldsOf(utcTime(at(4102444800))), std::tuple(2100, 1, 1, 0, 0, 0, 0));
}

TEST(Time, LocalTimeIsOfTheCurrentZone) {
  const double sinceEpoch = 1791790200;  // 2026-10-12T07:30:00Z
  {
    const TimeZone zone("Asia/Taipei");
    EXPECT_EQ(fieldsOf(localTime(at(sinceEpoch))), std::tuple(2026, 10, 12, 15, 30, 0, 8 * 3600));
  }
  {
    const TimeZone zone("America/New_York");
    EXPECT_EQ(fieldsOf(localTime(at(sinceEpoch))), std::tuple(2026, 10, 12, 3, 30, 0, -4 * 3600));
  }
  {
    const TimeZone zone("UTC");
    EXPECT_EQ(fieldsOf(localTime(at(sinceEpoch))), std::tuple(2026, 10, 12, 7, 30, 0, 0));
  }
}

TEST(Time, OffsetFollowsDaylightSaving) {
  const TimeZone zone("America/New_York");
  EXPECT_EQ(localTime(at(1767225600)).utcOffsetSeconds, -5 * 3600);  // 2026-01-01
  EXPECT_EQ(localTime(at(1782864000)).utcOffsetSeconds, -4 * 3600);  // 2026-07-01
}

TEST(Time, OffsetsNeedNotBeWholeHours) {
  const TimeZone zone("Asia/Kathmandu");
  EXPECT_EQ(localTime(at(1791790200)).utcOffsetSeconds, 5 * 3600 + 45 * 60);
}

TEST(Time, LocalDayDiffersFromUTCsAroundMidnight) {
  const TimeZone zone("Asia/Taipei");
  const Instant evening = at(1767196800);  // 2025-12-31T16:00:00Z
  EXPECT_EQ(utcTime(evening).day, 31);
  EXPECT_EQ(fieldsOf(localTime(evening)), std::tuple(2026, 1, 1, 0, 0, 0, 8 * 3600));
}

TEST(Time, SecondsReadBack) {
  for (const double sinceEpoch : {0.0, -1.5, 1791790200.25, 951782400.0}) {
    EXPECT_DOUBLE_EQ(secondsSinceEpoch(instantFromSeconds(sinceEpoch)), sinceEpoch);
  }
}

TEST(Time, SystemClockAdvances) {
  const Instant first = systemNow();
  EXPECT_GE(systemNow(), first);
  EXPECT_GT(secondsSinceEpoch(first), 1.7e9);
}

}  // namespace
}  // namespace velta
