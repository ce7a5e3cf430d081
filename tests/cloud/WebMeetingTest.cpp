#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cloud/FakeService.h"
#include "cloud/WebMeeting.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"

namespace velta {
namespace {

using test::uuidOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string kUUID = uuidOf(7);

Meeting meetingOf(const std::string& text) {
  return webMeeting(kUUID, std::move(*parseJSON(text).asObject()));
}

std::string idSectionText(const Meeting::Digest& item) {
  return item.id + " " + item.section + ": " + item.text;
}

std::vector<std::string> digestOf(const Meeting& meeting) {
  std::vector<std::string> items;
  for (const auto& item : meeting.digestItems()) items.push_back(idSectionText(item));
  return items;
}

TEST(WebMeeting, OfNothingHasItsIdAndSource) {
  const Meeting meeting = meetingOf("{}");
  EXPECT_EQ(meeting.id, "cloud-" + kUUID);
  EXPECT_EQ(meeting.source, "cloud");
  EXPECT_EQ(meeting.cloudId, kUUID);
  EXPECT_EQ(meeting.title, "");
  EXPECT_EQ(meeting.date, std::nullopt);
  EXPECT_EQ(meeting.startedAt, std::nullopt);
  EXPECT_EQ(meeting.durationSec, std::nullopt);
  EXPECT_EQ(meeting.verdict, "");
  EXPECT_THAT(meeting.people.unpack(), IsEmpty());
  EXPECT_TRUE(meeting.notes.empty());
  EXPECT_TRUE(meeting.lines.empty());
  EXPECT_THAT(meeting.digestItems(), IsEmpty());
  EXPECT_THAT(meeting.tags, IsEmpty());
  EXPECT_THAT(meeting.files, IsEmpty());
  EXPECT_EQ(meeting.visibilityHint, std::nullopt);
  EXPECT_EQ(meeting.status, std::nullopt);
}

TEST(WebMeeting, TheIdIsTheOneAskedForWhateverTheServiceWrites) {
  EXPECT_EQ(meetingOf(R"({"id": "SOMETHING-ELSE", "source": "recordings"})").id, "cloud-" + kUUID);
  EXPECT_EQ(meetingOf(R"({"source": "recordings"})").source, "cloud");
}

TEST(WebMeeting, TheTitleIsTheFirstThatSaysAnything) {
  EXPECT_EQ(meetingOf(R"({"title": "A", "title_suggestion": "B"})").title, "A");
  EXPECT_EQ(meetingOf(R"({"title": "", "title_suggestion": "B"})").title, "B");
  EXPECT_EQ(meetingOf(R"({"title": null, "title_suggestion": "B"})").title, "B");
  EXPECT_EQ(meetingOf(R"({"title": 5, "title_suggestion": "B"})").title, "B");
  EXPECT_EQ(meetingOf(R"({"title_suggestion": ["B"]})").title, "");
}

TEST(WebMeeting, TheStartIsAsWrittenElseTheCreation) {
  EXPECT_EQ(meetingOf(R"({"started_at": "2026-10-12T07:30:00Z", "created_at": "x"})").startedAt,
            "2026-10-12T07:30:00Z");
  EXPECT_EQ(meetingOf(R"({"started_at": "", "created_at": "soon"})").startedAt, "soon");
  EXPECT_EQ(meetingOf(R"({"started_at": 5})").startedAt, std::nullopt);
}

TEST(WebMeeting, TheDateIsTheFirstThatIsWritten) {
  const std::string all =
      R"("date": "2026-01-01", "started_at": "2026-02-02T00:00:00Z", "created_at": "2026-03-03")";
  EXPECT_EQ(meetingOf("{" + all + "}").date, "2026-01-01");
  EXPECT_EQ(
      meetingOf(R"({"date": "soon", "started_at": "on 2026-02-02T01:00", "created_at": "x"})").date,
      "2026-02-02");
  EXPECT_EQ(meetingOf(R"({"date": 20260101, "created_at": "2026-03-03T09:00:00+08:00"})").date,
            "2026-03-03");
  EXPECT_EQ(meetingOf(R"({"date": "12 October", "created_at": ""})").date, std::nullopt);
}

TEST(WebMeeting, TheDurationIsItsOwnElseTheEndOfTheLastLine) {
  const std::string lines = R"("transcript": [{"t_start": 0, "t_end": 4}, {"t_end": 9.5}])";
  EXPECT_EQ(meetingOf(R"({"duration_sec": 90, )" + lines + "}").durationSec, 90.0);
  EXPECT_EQ(meetingOf(R"({"duration_sec": 90.5, )" + lines + "}").durationSec, 90.5);
  EXPECT_EQ(meetingOf("{" + lines + "}").durationSec, 9.5);
  EXPECT_EQ(meetingOf(R"({"duration_sec": "90", )" + lines + "}").durationSec, 9.5);
  EXPECT_EQ(meetingOf(R"({"duration_sec": null, )" + lines + "}").durationSec, 9.5);
  EXPECT_EQ(meetingOf(R"({"transcript": [{"t_start": 3}]})").durationSec, std::nullopt);
}

TEST(WebMeeting, PeopleAreTheObjectsOfItsSpeakers) {
  const Meeting meeting = meetingOf(
      R"({"speakers": [{"name": "Ann", "talk_sec": 12}, "Ben", 5, null, {"name": "Cho"}],
          "people": [{"name": "Nobody"}]})");
  ASSERT_EQ(meeting.people.unpack().size(), 2U);
  EXPECT_EQ(writeCompact(meeting.people.unpack()[0]), R"({"name":"Ann","talk_sec":12})");
  EXPECT_EQ(meeting.people.unpack()[1].getString("name"), "Cho");
  EXPECT_THAT(meetingOf(R"({"speakers": {"name": "Ann"}})").people.unpack(), IsEmpty());
}

TEST(WebMeeting, LinesFollowTheRulesOfRecordings) {
  const Meeting meeting = meetingOf(R"({"transcript": [
      {"id": "a", "t_start": 1, "t_end": 2.5, "speaker": "Ann", "text": "one"},
      "no line", {}, {"id": "a", "text": "again"}, {"id": "", "t_start": "3", "speaker": 4}]})");
  ASSERT_EQ(meeting.lines.size(), 4U);
  const Meeting::Line first = meeting.lines.line(0);
  EXPECT_EQ(first.id, "a");
  EXPECT_EQ(first.tStart, 1);
  EXPECT_EQ(first.tEnd, 2.5);
  EXPECT_EQ(first.speaker, "Ann");
  EXPECT_EQ(first.text, "one");
  EXPECT_EQ(meeting.lines.id(1), "L2");
  EXPECT_EQ(meeting.lines.speaker(1), "?");
  EXPECT_EQ(meeting.lines.text(1), "");
  EXPECT_EQ(meeting.lines.id(2), "a-2");
  EXPECT_EQ(meeting.lines.id(3), "L4");
  EXPECT_EQ(meeting.lines.tStart(3), 0);
  EXPECT_EQ(meeting.lines.tEnd(3), std::nullopt);
}

TEST(WebMeeting, ATranscriptOfAnotherKindHasNoLines) {
  for (const char* transcript : {"null", "5", R"("text")", R"({"text": "one"})", "[]"}) {
    const std::string text = std::string(R"({"transcript": )") + transcript + "}";
    EXPECT_TRUE(meetingOf(text).lines.empty()) << transcript;
  }
  EXPECT_TRUE(meetingOf(R"({"lines": [{"text": "one"}]})").lines.empty());
}

TEST(WebMeeting, NotesAreWhatTheServiceWritesOfThemInAFixedOrder) {
  const Meeting meeting = meetingOf(R"({"user_notes": "mine", "quotes": ["q"], "topics": ["t"],
      "open_questions": ["?"], "viewpoints": [], "chapters": [{"title": "c"}],
      "decisions": [{"text": "d", "owner": "Ann", "next": "go"}], "summary": "s", "verdict": "v",
      "title": "T", "rev": "1", "status": "done", "speakers": [], "transcript": [],
      "tags": ["x"], "visibility": "shared", "secret": 1, "positions": ["p"]})");
  EXPECT_EQ(writeCompact(meeting.notes.unpack()),
            R"({"verdict":"v","summary":"s","decisions":[{"text":"d","owner":"Ann","next":"go"}],)"
            R"("chapters":[{"title":"c"}],"viewpoints":[],"open_questions":["?"],"topics":["t"],)"
            R"("quotes":["q"],"user_notes":"mine"})");
}

TEST(WebMeeting, NotesThatAreNullAreLeftOut) {
  const Meeting meeting = meetingOf(R"({"verdict": null, "summary": "", "decisions": null,
      "user_notes": null})");
  EXPECT_EQ(writeCompact(meeting.notes.unpack()), R"({"summary":""})");
}

TEST(WebMeeting, TheVerdictIsTextOnly) {
  EXPECT_EQ(meetingOf(R"({"verdict": "go ahead"})").verdict, "go ahead");
  EXPECT_EQ(meetingOf(R"({"verdict": ["go", "ahead"]})").verdict, "");
  EXPECT_EQ(meetingOf(R"({"verdict": null})").verdict, "");
}

TEST(WebMeeting, DigestItemsFollowTheRulesOfRecordings) {
  const Meeting meeting = meetingOf(R"({
      "viewpoints": [{"speaker": "Ann", "points": ["p1", {"text": "p2", "t": 8}]}],
      "chapters": [{"title": "Start", "t_start": 5}],
      "open_questions": [{"question": "Why?", "positions": ["yes", "no"]}, ""],
      "decisions": ["ship it", {"text": "test", "owner": "Ben", "next": "soon"}],
      "topics": ["no item"], "quotes": [{"text": "no item"}], "summary": "no item"})");
  EXPECT_THAT(digestOf(meeting), ElementsAre("D1 decisions: ship it", "D2 decisions: test soon Ben",
                                             "D3 open_questions: Why? yes no", "D4 chapters: Start",
                                             "D5 viewpoints: Ann: p1", "D6 viewpoints: Ann: p2"));
  EXPECT_EQ(meeting.digestItems()[3].t, 5);
  EXPECT_EQ(meeting.digestItems()[5].t, 8);
}

TEST(WebMeeting, TagsAreTheTextsAmongItsTags) {
  EXPECT_THAT(meetingOf(R"({"tags": ["a", 5, null, "b", ["c"]]})").tags, ElementsAre("a", "b"));
  EXPECT_THAT(meetingOf(R"({"tags": "a"})").tags, IsEmpty());
}

TEST(WebMeeting, NoVisibilityIsTakenFromTheService) {
  const Meeting meeting =
      meetingOf(R"({"visibility": "shared", "visibility_hint": "shared", "verdict": "v"})");
  EXPECT_EQ(meeting.visibilityHint, std::nullopt);
  EXPECT_THAT(writeCompact(meeting.toJSON()), Not(HasSubstr("shared")));
}

TEST(WebMeeting, MembersOfTheWrongKindCountAsAbsent) {
  const std::vector<std::string> members = {
      "id",           "title",    "title_suggestion", "started_at",
      "created_at",   "date",     "transcript",       "speakers",
      "duration_sec", "tags",     "verdict",          "summary",
      "decisions",    "chapters", "viewpoints",       "open_questions",
      "topics",       "quotes",   "user_notes",       "visibility",
      "status",       "rev"};
  for (const char* value : {"null", "true", "-5", "1.5", R"("")", "[]", "{}", "[[], {}, null, 5]",
                            R"({"id": {"text": []}})", R"([{"t": "x", "text": 5, "points": 5}])"}) {
    std::string text = "{";
    for (const std::string& name : members)
      text += (text.size() == 1 ? "" : ", ") + ('"' + name + "\": " + value);
    const Meeting meeting = meetingOf(text + "}");
    EXPECT_EQ(meeting.id, "cloud-" + kUUID) << value;
    EXPECT_EQ(meeting.title, "") << value;
    EXPECT_EQ(meeting.verdict, "") << value;
    EXPECT_EQ(meeting.date, std::nullopt) << value;
    EXPECT_THAT(meeting.tags, IsEmpty()) << value;
    EXPECT_THAT(meeting.digestItems(), IsEmpty()) << value;
    // What became of it can be written and read again.
    const auto again = Meeting::fromJSON(parseJSON(writeCompact(meeting.toJSON())));
    ASSERT_TRUE(again) << value;
    EXPECT_EQ(again->toJSON(), meeting.toJSON()) << value;
  }
}

TEST(WebMeeting, NumbersBeyondEveryRangeAreNull) {
  const Meeting meeting = meetingOf(R"({"duration_sec": 1e400,
      "transcript": [{"t_start": 1e400, "t_end": -1e400, "text": "a"}, {"t_start": 1, "t_end": 6}],
      "speakers": [{"name": "Ann", "talk_sec": 1e400, "more": [[{"x": -1e400}, 5]]}],
      "chapters": [{"title": "c", "t_start": 1e400, "t": 3}],
      "summary": {"depth": [1e400]}, "topics": 1e400})");
  EXPECT_EQ(meeting.durationSec, 6.0);
  EXPECT_EQ(meeting.lines.tStart(0), 0);
  EXPECT_EQ(meeting.lines.tEnd(0), std::nullopt);
  EXPECT_EQ(writeCompact(meeting.people.unpack().front()),
            R"({"name":"Ann","talk_sec":null,"more":[[{"x":null},5]]})");
  ASSERT_EQ(meeting.digestItems().size(), 1U);
  EXPECT_EQ(meeting.digestItems().front().t, 3);
  EXPECT_EQ(writeCompact(meeting.notes.unpack()),
            R"({"summary":{"depth":[null]},"chapters":[{"title":"c","t_start":null,"t":3}]})");
  EXPECT_THAT(writeCompact(meeting.toJSON()), Not(HasSubstr("Inf")));
}

TEST(WebMeeting, NestingHasNoLimit) {
  constexpr std::size_t kDepth = 100'000;
  const std::string deep = std::string(kDepth, '[') + R"("leaf")" + std::string(kDepth, ']');
  const Meeting meeting =
      meetingOf(R"({"summary": )" + deep + R"(, "decisions": [{"text": )" + deep +
                R"(}], "speakers": [{"x": )" + deep + R"(}], "transcript": )" + deep +
                R"(, "tags": )" + deep + R"(, "ignored": )" + deep + "}");
  EXPECT_EQ(writeCompact(*meeting.notes.unpack().get("summary")), deep);
  EXPECT_EQ(meeting.people.unpack().size(), 1U);
  EXPECT_THAT(digestOf(meeting), ElementsAre("D1 decisions: leaf"));
  EXPECT_TRUE(meeting.lines.empty());
}

}  // namespace
}  // namespace velta
