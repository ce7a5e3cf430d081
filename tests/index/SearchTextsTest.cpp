#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "index/SearchTexts.h"
#include "index/TestHome.h"

namespace velta {
namespace {

using test::meetingOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

Meeting withNotes(const std::string& notes) {
  return meetingOf(R"({"id": "m", "source": "recordings", "notes": )" + notes + "}");
}

std::vector<std::string> lineIds(const std::vector<NoteText>& texts) {
  std::vector<std::string> ids;
  for (const NoteText& text : texts) ids.push_back(text.lineId);
  return ids;
}

TEST(BodyLower, JoinsTitleVerdictNotesAndDigestInThisOrder) {
  const Meeting meeting = meetingOf(R"({"id": "m", "source": "recordings",
      "title": "Weekly SYNC", "verdict": "Go",
      "notes": {"note": "N1", "summary": "S1", "topics": ["T1", {"topic": "T2"}],
                "decisions": [{"text": "D1", "owner": "Amy"}], "viewpoints": [{"points": ["P1"]}],
                "chapters": [{"title": "C1"}], "open_questions": ["Q1"], "user_notes": "U1"},
      "digest": [{"id": "D1", "text": "Digest 押金"}]})");
  EXPECT_EQ(bodyLowerOf(meeting),
            "weekly sync\ngo\nd1\namy\nq1\ns1\nu1\nc1\np1\nt1\nt2\nn1\ndigest 押金");
}

TEST(BodyLower, LeavesReferencesTranscriptPeopleAndOtherSectionsOut) {
  const Meeting meeting = meetingOf(R"({"id": "m", "source": "recordings",
      "notes": {"decisions": [{"id": "one", "line": "two", "start_line": "three", "text": "kept",
                               "inner": {"id": "four", "deep": "deeper"}}],
                "quotes": ["five"]},
      "people": [{"name": "six"}], "lines": [{"id": "L1", "text": "seven"}]})");
  EXPECT_EQ(bodyLowerOf(meeting), "\n\nkept\ndeeper");
}

TEST(BodyLower, SurvivesNestingDeeperThanTheStack) {
  Meeting meeting;
  JSON value("bottom");
  for (int depth = 0; depth < 300'000; ++depth) {
    JSON::Array around;
    around.push_back(std::move(value));
    value = JSON(std::move(around));
  }
  JSONObject notes;
  notes.set("summary", std::move(value));
  meeting.notes = std::move(notes);
  EXPECT_EQ(bodyLowerOf(meeting), "\n\nbottom");
}

TEST(NoteTexts, ComeInTheOrderOfTheSectionsAndAreNumberedInLists) {
  const auto texts = noteTextsOf(withNotes(R"({"user_notes": "mine", "quotes": ["one", "two"],
      "topics": ["t"], "summary": "s", "verdict": "v", "decisions": ["no"]})"));
  EXPECT_THAT(lineIds(texts),
              ElementsAre("verdict", "summary", "topics-1", "quotes-1", "quotes-2", "user_notes"));
  EXPECT_EQ(texts[2].section, "topics");
  EXPECT_EQ(texts[4].text, "two");
}

TEST(NoteTexts, TakeTheMeetingsVerdictBeforeThatOfTheNotes) {
  Meeting meeting = withNotes(R"({"verdict": "of the notes"})");
  EXPECT_EQ(noteTextsOf(meeting).at(0).text, "of the notes");
  meeting.verdict = "of the meeting";
  const auto texts = noteTextsOf(meeting);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0].text, "of the meeting");
}

TEST(NoteTexts, TakeTextTimeAndSpeakerOfAnObject) {
  const auto texts =
      noteTextsOf(withNotes(R"({"quotes": [{"text": "Hi", "speaker": "Amy", "t_start": 65}]})"));
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0].lineId, "quotes-1");
  EXPECT_THAT(texts[0].text, HasSubstr("Hi"));
  EXPECT_EQ(texts[0].t, 65.0);
  EXPECT_EQ(texts[0].speaker, "Amy");
}

TEST(NoteTexts, SkipEmptyTextsButCountTheirPlaces) {
  const auto texts = noteTextsOf(withNotes(R"({"summary": "", "quotes": ["", 5, {}, "last"]})"));
  EXPECT_THAT(lineIds(texts), ElementsAre("quotes-4"));
}

}  // namespace
}  // namespace velta
