#include <gtest/gtest.h>

#include "config/Dates.h"
#include "support/TimeZone.h"

namespace velta {
namespace {

Instant at(double secondsFromEpoch) { return instantFromSeconds(secondsFromEpoch); }

const Instant kAutumn = at(1791790205);   // 2026-10-12T07:30:05Z
const Instant kNewYear = at(1767196800);  // 2025-12-31T16:00:00Z

TEST(UTCStamp, IsUTCWhateverTheZone) {
  for (const char* name : {"Asia/Taipei", "America/New_York", "UTC"}) {
    const TimeZone zone(name);
    EXPECT_EQ(utcStamp(kAutumn), "2026-10-12T07:30:05+00:00") << name;
  }
}

TEST(UTCStamp, FractionsAreCutOff) { EXPECT_EQ(utcStamp(at(59.999)), "1970-01-01T00:00:59+00:00"); }

TEST(UTCStamp, SmallFieldsArePadded) {
  EXPECT_EQ(utcStamp(at(94784523)), "1973-01-02T01:02:03+00:00");
}

TEST(LocalDay, IsTheDayOfTheZone) {
  {
    const TimeZone zone("Asia/Taipei");
    EXPECT_EQ(localDay(kNewYear), "2026-01-01");
  }
  {
    const TimeZone zone("America/New_York");
    EXPECT_EQ(localDay(kNewYear), "2025-12-31");
  }
}

TEST(LocalStamp, HasANumericOffsetWithoutAColon) {
  {
    const TimeZone zone("Asia/Taipei");
    EXPECT_EQ(localStamp(kAutumn), "2026-10-12T15:30:05+0800");
  }
  {
    const TimeZone zone("America/New_York");
    EXPECT_EQ(localStamp(kAutumn), "2026-10-12T03:30:05-0400");
    EXPECT_EQ(localStamp(kNewYear), "2025-12-31T11:00:00-0500");
  }
  {
    const TimeZone zone("UTC");
    EXPECT_EQ(localStamp(kAutumn), "2026-10-12T07:30:05+0000");
  }
  {
    const TimeZone zone("Asia/Kathmandu");
    EXPECT_EQ(localStamp(kAutumn), "2026-10-12T13:15:05+0545");
  }
  {
    const TimeZone zone("America/St_Johns");
    EXPECT_EQ(localStamp(kAutumn), "2026-10-12T05:00:05-0230");
  }
}

TEST(LocalFormatted, FieldsTakeAsManyDigitsAsLetters) {
  const TimeZone zone("UTC");
  const Instant early = at(94784523);  // 1973-01-02T01:02:03Z
  EXPECT_EQ(localFormatted(early, "yyyyMMdd-HHmmss"), "19730102-010203");
  EXPECT_EQ(localFormatted(early, "d.M.y H:m:s"), "2.1.1973 1:2:3");
  EXPECT_EQ(localFormatted(kAutumn, "yyyy-MM-dd HH:mm"), "2026-10-12 07:30");
}

TEST(LocalFormatted, QuotedTextStandsForItself) {
  const TimeZone zone("UTC");
  EXPECT_EQ(localFormatted(kAutumn, "'yyyy dd'yyyy'T'HH"), "yyyy dd2026T07");
  EXPECT_EQ(localFormatted(kAutumn, "''dd"), "12");
  EXPECT_EQ(localFormatted(kAutumn, "dd'never closed"), "12never closed");
}

TEST(LocalFormatted, OtherCharactersStandForThemselves) {
  const TimeZone zone("UTC");
  EXPECT_EQ(localFormatted(kAutumn, "yyyy年MM月dd日 %Q"), "2026年10月12日 %Q");
  EXPECT_EQ(localFormatted(kAutumn, ""), "");
}

}  // namespace
}  // namespace velta
