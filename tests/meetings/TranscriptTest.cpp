#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "meetings/Meeting.h"

namespace velta {
namespace {

using testing::ElementsAre;

Meeting::Transcript withIds(const std::vector<std::string>& ids) {
  Meeting::Transcript lines;
  for (const auto& id : ids) lines.append(id, 0, std::nullopt, "?", "");
  return lines;
}

std::vector<std::string> idsOf(const Meeting::Transcript& lines) {
  std::vector<std::string> ids;
  for (std::size_t i = 0; i < lines.size(); ++i) ids.push_back(lines.id(i));
  return ids;
}

std::vector<std::string> settled(const std::vector<std::string>& ids) {
  Meeting::Transcript lines = withIds(ids);
  lines.settleIds();
  return idsOf(lines);
}

TEST(Transcript, LinesWithoutIdsAreNumbered) {
  EXPECT_THAT(settled({"", "", ""}), ElementsAre("L1", "L2", "L3"));
}

TEST(Transcript, GivenIdsStay) {
  EXPECT_THAT(settled({"b", "a", "句"}), ElementsAre("b", "a", "句"));
}

TEST(Transcript, ALaterLineWithATakenIdGetsASuffix) {
  EXPECT_THAT(settled({"a", "a", "b", "a"}), ElementsAre("a", "a-2", "b", "a-3"));
}

TEST(Transcript, GivenIdsWinOverMadeOnes) {
  EXPECT_THAT(settled({"", "L1", ""}), ElementsAre("L1-2", "L1", "L3"));
  EXPECT_THAT(settled({"", "L1", "L1-2"}), ElementsAre("L1-3", "L1", "L1-2"));
  EXPECT_THAT(settled({"a", "a", "a-2"}), ElementsAre("a", "a-3", "a-2"));
  EXPECT_THAT(settled({"L1", "", "", "L3"}), ElementsAre("L1", "L2", "L3-2", "L3"));
}

TEST(Transcript, AGivenNumberThatIsNotTheLinesOwnIsKept) {
  EXPECT_THAT(settled({"L2", "L1"}), ElementsAre("L2", "L1"));
  EXPECT_THAT(settled({"L01", "L", "L3"}), ElementsAre("L01", "L", "L3"));
}

TEST(Transcript, GivenNumbersMixWithMadeOnes) {
  EXPECT_THAT(settled({"L1", "", "L3"}), ElementsAre("L1", "L2", "L3"));
  EXPECT_THAT(settled({"L1", "L2", "x", "L4"}), ElementsAre("L1", "L2", "x", "L4"));
  EXPECT_THAT(settled({"L1", "L2", "L2"}), ElementsAre("L1", "L2", "L2-2"));
}

TEST(Transcript, NumbersAreRightBeyondOneDigit) {
  const std::vector<std::string> ids = settled(std::vector<std::string>(120));
  EXPECT_EQ(ids[9], "L10");
  EXPECT_EQ(ids[99], "L100");
  std::vector<std::string> given;
  for (int i = 1; i <= 120; ++i) given.push_back("L" + std::to_string(i));
  EXPECT_EQ(settled(given), given);
}

TEST(Transcript, AscendingIdsAreKept) {
  std::vector<std::string> given;
  for (int i = 1; i <= 120; ++i) given.push_back("s" + std::to_string(i));
  EXPECT_EQ(settled(given), given);
}

TEST(Transcript, ManyLinesWithOneIdAreSettledInLinearTime) {
  const std::vector<std::string> ids = settled(std::vector<std::string>(100000, "a"));
  EXPECT_EQ(ids.front(), "a");
  EXPECT_EQ(ids.back(), "a-100000");
}

TEST(Transcript, KeepIdsLeavesRepeatedAndEmptyOnes) {
  Meeting::Transcript lines = withIds({"a", "", "a"});
  lines.keepIds();
  EXPECT_THAT(idsOf(lines), ElementsAre("a", "", "a"));
}

TEST(Transcript, KeepIdsOfOneEmptyIdIsNotANumber) {
  Meeting::Transcript lines = withIds({""});
  lines.keepIds();
  EXPECT_THAT(idsOf(lines), ElementsAre(""));
}

TEST(Transcript, SpeakersAreListedOnceInOrderOfAppearance) {
  Meeting::Transcript lines;
  for (const char* speaker : {"Amy", "小美", "Amy", "?", "小美"}) {
    lines.append("", 1, 2, speaker, "text");
  }
  lines.settleIds();
  EXPECT_THAT(lines.speakers(), ElementsAre("Amy", "小美", "?"));
  EXPECT_EQ(lines.speakerIndex(2), 0U);
  EXPECT_EQ(lines.speaker(4), "小美");
}

TEST(Transcript, ManySpeakersAreListedOnceToo) {
  constexpr std::size_t kSpeakers = 300;
  const auto name = [](std::size_t number) { return "speaker " + std::to_string(number); };
  Meeting::Transcript lines;
  for (std::size_t i = 0; i < 3 * kSpeakers; ++i)
    lines.append("", 0, std::nullopt, name(i * 7 % kSpeakers), "");
  lines.settleIds();
  EXPECT_EQ(lines.speakers().size(), kSpeakers);
  for (std::size_t i = 0; i < lines.size(); ++i)
    ASSERT_EQ(lines.speaker(i), name(i * 7 % kSpeakers));
}

TEST(Transcript, ALineHasAllItsColumns) {
  Meeting::Transcript lines;
  lines.append("x", 1.5, 2.5, "Amy", "好的\nyes");
  lines.append("", 3, std::nullopt, "Bo", "");
  lines.settleIds();
  const Meeting::Line first = lines.line(0);
  EXPECT_EQ(first.id, "x");
  EXPECT_EQ(first.tStart, 1.5);
  EXPECT_EQ(first.tEnd, 2.5);
  EXPECT_EQ(first.speaker, "Amy");
  EXPECT_EQ(first.text, "好的\nyes");
  EXPECT_EQ(lines.line(1).tEnd, std::nullopt);
  EXPECT_EQ(lines.line(1).id, "L2");
}

TEST(Transcript, TimesThatAreNotFiniteCountAsAbsent) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  Meeting::Transcript lines;
  lines.append("", kInfinity, -kInfinity, "Amy", "hello");
  lines.settleIds();
  EXPECT_EQ(lines.tStart(0), 0);
  EXPECT_EQ(lines.tEnd(0), std::nullopt);
}

Meeting::Transcript withStarts(const std::vector<double>& starts) {
  Meeting::Transcript lines;
  for (const double start : starts) lines.append("", start, std::nullopt, "Amy", "");
  lines.settleIds();
  return lines;
}

TEST(Transcript, IsInTimeOrderWhenNoLineStartsBeforeTheOneBeforeIt) {
  EXPECT_TRUE(withStarts({}).isInTimeOrder());
  EXPECT_TRUE(withStarts({5}).isInTimeOrder());
  EXPECT_TRUE(withStarts({-1, 0, 0, 2.5}).isInTimeOrder());
  EXPECT_FALSE(withStarts({0, 2, 1}).isInTimeOrder());
  EXPECT_FALSE(withStarts({0, 2, 1, 3, 4}).isInTimeOrder());
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(withStarts({1, kInfinity}).isInTimeOrder());  // infinity counts as 0
}

TEST(Transcript, FirstLineFromATimeIsFoundWhenLinesAreInTimeOrder) {
  const Meeting::Transcript lines = withStarts({0, 5, 5, 8});
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(lines.firstFrom(-kInfinity), 0U);
  EXPECT_EQ(lines.firstFrom(0), 0U);
  EXPECT_EQ(lines.firstFrom(0.1), 1U);
  EXPECT_EQ(lines.firstFrom(5), 1U);
  EXPECT_EQ(lines.firstFrom(5.1), 3U);
  EXPECT_EQ(lines.firstFrom(9), 4U);
  EXPECT_EQ(withStarts({}).firstFrom(0), 0U);
}

TEST(Transcript, EveryLineMayBeTheFirstFromATimeWhenLinesAreOutOfOrder) {
  EXPECT_EQ(withStarts({8, 5, 0}).firstFrom(100), 0U);
}

TEST(Transcript, IsInTimeOrderAgainAfterClear) {
  Meeting::Transcript lines = withStarts({2, 1});
  lines.clear();
  EXPECT_TRUE(lines.isInTimeOrder());
}

TEST(Transcript, IsEmptyAfterClear) {
  Meeting::Transcript lines = withIds({"a"});
  lines.clear();
  EXPECT_TRUE(lines.empty());
  EXPECT_TRUE(lines.speakers().empty());
  lines.append("", 0, std::nullopt, "Bo", "new");
  lines.settleIds();
  EXPECT_EQ(lines.speaker(0), "Bo");
  EXPECT_EQ(lines.id(0), "L1");
}

}  // namespace
}  // namespace velta
