#include <cstddef>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "meetings/Meeting.h"

namespace velta {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The meeting of {"id":"m","source":"web", ...members}.
Meeting meetingWith(const std::string& members) {
  auto meeting = Meeting::fromJSON(parseJSON(R"({"id":"m","source":"web",)" + members + "}"));
  EXPECT_TRUE(meeting);
  return meeting.value_or(Meeting());
}

TEST(Meeting, WithoutAStringIdOrSourceThereIsNone) {
  for (const char* text : {R"({"source":"web"})", R"({"id":5,"source":"web"})", R"({"id":"m"})",
                           R"({"id":"m","source":null})", R"("m")", "[]", "null", "5"}) {
    EXPECT_FALSE(Meeting::fromJSON(parseJSON(text))) << text;
  }
}

TEST(Meeting, OfIdAndSourceOnlyIsOtherwiseEmpty) {
  const auto meeting = Meeting::fromJSON(parseJSON(R"({"id":"m","source":"web"})"));
  ASSERT_TRUE(meeting);
  EXPECT_EQ(meeting->id, "m");
  EXPECT_EQ(meeting->source, "web");
  EXPECT_EQ(meeting->title, "");
  EXPECT_EQ(meeting->verdict, "");
  EXPECT_TRUE(meeting->notes.empty());
  EXPECT_TRUE(meeting->lines.empty());
  EXPECT_EQ(meeting->date, std::nullopt);
  EXPECT_EQ(meeting->visibilityHint, std::nullopt);
}

TEST(Meeting, DurationIsANumberOfEitherKindAndNeverAString) {
  EXPECT_EQ(meetingWith(R"("duration_sec":90)").durationSec, 90.0);
  EXPECT_EQ(meetingWith(R"("duration_sec":90.0)").durationSec, 90.0);
  EXPECT_EQ(meetingWith(R"("duration_sec":"90")").durationSec, std::nullopt);
}

TEST(Meeting, LinesThatAreNoneAreSkippedOneByOne) {
  const Meeting meeting =
      meetingWith(R"("lines":["x",{"text":"no id"},{"id":7},{"id":"a","text":"yes"}])");
  ASSERT_EQ(meeting.lines.size(), 1U);
  EXPECT_EQ(meeting.lines.id(0), "a");
  EXPECT_EQ(meeting.lines.text(0), "yes");
}

TEST(Meeting, ALineHasDefaults) {
  const Meeting meeting =
      meetingWith(R"("lines":[{"id":"a"},{"id":"b","speaker":5,"t_start":"3"}])");
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(meeting.lines.speaker(i), "?");
    EXPECT_EQ(meeting.lines.tStart(i), 0.0);
    EXPECT_EQ(meeting.lines.tEnd(i), std::nullopt);
    EXPECT_EQ(meeting.lines.text(i), "");
  }
}

TEST(Meeting, LineIdsStayAsGiven) {
  const Meeting meeting = meetingWith(R"("lines":[{"id":"a"},{"id":"a"},{"id":""}])");
  EXPECT_EQ(meeting.lines.id(1), "a");
  EXPECT_EQ(meeting.lines.id(2), "");
}

TEST(Meeting, DigestItemsWithoutAStringIdAreSkipped) {
  const Meeting meeting = meetingWith(
      R"("digest":[1,{"text":"x"},{"id":"D1","section":"s","text":"t","t":3},{"id":"D2"}])");
  ASSERT_EQ(meeting.digestItems().size(), 2U);
  EXPECT_EQ(meeting.digestItems()[0].section, "s");
  EXPECT_EQ(meeting.digestItems()[0].text, "t");
  EXPECT_EQ(meeting.digestItems()[0].t, 3.0);
  EXPECT_EQ(meeting.digestItems()[1].section, "");
  EXPECT_EQ(meeting.digestItems()[1].t, std::nullopt);
}

TEST(Meeting, ListsKeepTheElementsOfTheirKindInOrder) {
  const Meeting meeting =
      meetingWith(R"("tags":[1,"a","b"],"files":[null,"f"],"people":["x",{"name":"Amy"},[]])");
  EXPECT_THAT(meeting.tags, ElementsAre("a", "b"));
  EXPECT_THAT(meeting.files, ElementsAre("f"));
  ASSERT_EQ(meeting.people.unpack().size(), 1U);
  EXPECT_EQ(meeting.people.unpack()[0].getString("name"), "Amy");
}

TEST(Meeting, AValueOfAnotherKindCountsAsAbsent) {
  const Meeting meeting = meetingWith(
      R"("title":1,"date":[],"started_at":{},"verdict":true,"people":{},"notes":[],"lines":{},)"
      R"("digest":"x","visibility_hint":1,"tags":"a","files":5,"cloud_id":null,"status":false,"else":1)");
  EXPECT_EQ(meeting.title, "");
  EXPECT_EQ(meeting.date, std::nullopt);
  EXPECT_EQ(meeting.startedAt, std::nullopt);
  EXPECT_EQ(meeting.verdict, "");
  EXPECT_TRUE(meeting.people.empty());
  EXPECT_TRUE(meeting.notes.empty());
  EXPECT_TRUE(meeting.lines.empty());
  EXPECT_TRUE(meeting.digestItems().empty());
  EXPECT_EQ(meeting.visibilityHint, std::nullopt);
  EXPECT_THAT(meeting.tags, IsEmpty());
  EXPECT_THAT(meeting.files, IsEmpty());
  EXPECT_EQ(meeting.cloudId, std::nullopt);
  EXPECT_EQ(meeting.status, std::nullopt);
}

TEST(Meeting, CanonicalFormReadsBackAsItself) {
  const std::string text =
      R"({"id":"m","source":"web","title":"週會","date":"2025-03-14","started_at":"2025-03-14T01:00:00Z",)"
      R"("duration_sec":90.5,"verdict":"go","people":[{"name":"Amy","talk_sec":3}],)"
      R"("notes":{"decisions":[{"text":"x"}]},)"
      R"("lines":[{"id":"a","t_start":1.0,"t_end":2.0,"speaker":"Amy","text":"好"},)"
      R"({"id":"a","t_start":3.0,"speaker":"?","text":""}],)"
      R"("digest":[{"id":"D1","section":"decisions","text":"x","t":1.0},{"id":"D2","section":"","text":"y"}],)"
      R"("visibility_hint":"work","tags":["a"],"files":["/f"],"cloud_id":"u","status":"uploading"})";
  const auto meeting = Meeting::fromJSON(parseJSON(text));
  ASSERT_TRUE(meeting);
  EXPECT_EQ(writeCompact(meeting->toJSON()), text);
}

TEST(Meeting, CanonicalFormOmitsAbsentOptionals) {
  const auto meeting = Meeting::fromJSON(parseJSON(R"({"id":"m","source":"web"})"));
  ASSERT_TRUE(meeting);
  EXPECT_EQ(writeCompact(meeting->toJSON()),
            R"({"id":"m","source":"web","title":"","verdict":"","people":[],"notes":{},"lines":[],)"
            R"("digest":[],"tags":[],"files":[]})");
}

TEST(Meeting, ACopyIsIndependent) {
  Meeting original = meetingWith(R"("lines":[{"id":"a","text":"one"}],"tags":["x"])");
  const Meeting copy = original;
  original.lines.clear();
  original.tags.clear();
  EXPECT_EQ(copy.lines.text(0), "one");
  EXPECT_THAT(copy.tags, ElementsAre("x"));
}

}  // namespace
}  // namespace velta
