#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/Store.h"
#include "store/TestStore.h"

namespace velta {
namespace {

using test::storeErrorOf;
using test::TestStore;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kLegacyNote =
    "Legacy meeting: decisions and viewpoints come from the written digest and carry no timestamp. "
    "For evidence, use chapters (with times) or search_transcripts / get_transcript";

class GetMeeting : public testing::Test {
 protected:
  // Adds the meeting "m" with these notes.
  void addNotes(const std::string& notes) { store_.add("m", R"("notes": )" + notes); }

  // A section of "m" as compact JSON.
  std::string section(std::string_view name) const {
    return writeCompact(*store_.meeting("m").get(name));
  }

  // The members between "index" and "transcript_lines".
  std::vector<std::string> sectionNames(
      const std::optional<std::vector<std::string>>& asked = {}) const {
    const auto keys = store_.meeting("m", asked).keys();
    return {std::find(keys.begin(), keys.end(), "index") + 1,
            std::find(keys.begin(), keys.end(), "transcript_lines")};
  }

  TestStore store_;
};

TEST_F(GetMeeting, WritesAllMembersAndSectionsInOrder) {
  // The notes hold the sections in an order of their own.
  store_.add("m",
             R"("title": "Sync", "date": "2026-01-02", "started_at": "2026-01-02T10:00:00",
                "duration_sec": 90, "verdict": "not this one",
                "people": [{"role": "PM", "name": "Amy"}],
                "lines": [{"id": "L1"}, {"id": "L2"}],
                "digest": [{"id": "D1", "section": "decisions", "text": "Go", "t": 65},
                           {"id": "D2", "section": "Notes", "text": "more"}],
                "notes": {"user_notes": "mine", "quotes": [{"speaker": "Amy", "text": "q"}],
                          "topics": ["money"], "open_questions": [{"question": "When?", "t": 5}],
                          "viewpoints": [{"speaker": "Amy", "points": [{"t_start": 7384}]}],
                          "chapters": [{"t_start": 0, "title": "Start"}],
                          "decisions": [{"owner": "Amy", "t": 3599.9}], "summary": "S",
                          "verdict": "Go"})",
             "shared", {"agents", "x"});
  EXPECT_EQ(
      writeCompact(store_.meeting("m")),
      R"({"id":"m","title":"Sync","date":"2026-01-02","started_at":"2026-01-02T10:00:00",)"
      R"("duration_sec":90.0,"source":"recordings","visibility":"shared","tags":["agents","x"],)"
      R"("index":{"age_hours":0.5},"verdict":"Go","summary":"S",)"
      R"("decisions":[{"owner":"Amy","t":3599.9,"clock":"59:59"}],)"
      R"("chapters":[{"t_start":0,"title":"Start","clock":"00:00"}],)"
      R"("viewpoints":[{"speaker":"Amy","points":[{"t_start":7384,"clock":"2:03:04"}]}],)"
      R"("open_questions":[{"question":"When?","t":5,"clock":"00:05"}],"topics":["money"],)"
      R"("quotes":[{"speaker":"Amy","text":"q"}],"people":[{"role":"PM","name":"Amy"}],)"
      R"("digest":[{"section":"decisions","t":65.0,"clock":"01:05","text":"Go"},)"
      R"({"section":"Notes","text":"more"}],"user_notes":"mine","transcript_lines":2})");
}

TEST_F(GetMeeting, WritesNullForWhatIsUnknownAndNoSectionThatIsNotThere) {
  store_.add("m");
  EXPECT_EQ(writeCompact(store_.meeting("m")),
            R"({"id":"m","title":"","date":null,"started_at":null,"duration_sec":null,)"
            R"("source":"recordings","visibility":"work","tags":[],"index":{"age_hours":0.5},)"
            R"("transcript_lines":0})");
}

// --- which sections

TEST_F(GetMeeting, AbsentSectionsMeanAllAndAnEmptyListMeansNone) {
  addNotes(R"({"verdict": "v", "summary": "s", "topics": []})");
  EXPECT_THAT(sectionNames(), ElementsAre("verdict", "summary", "topics"));
  EXPECT_THAT(sectionNames(std::vector<std::string>{}), ElementsAre());
}

TEST_F(GetMeeting, SectionsComeInTheirOwnOrderAndOnceHoweverTheyAreAskedFor) {
  addNotes(R"({"verdict": "v", "summary": "s", "topics": [], "quotes": []})");
  EXPECT_THAT(sectionNames({{"topics"}}), ElementsAre("topics"));
  EXPECT_THAT(sectionNames({{"quotes", "verdict", "quotes", "topics"}}),
              ElementsAre("verdict", "topics", "quotes"));
}

TEST_F(GetMeeting, UnknownNamesInSectionsAreIgnored) {
  addNotes(R"({"summary": "s", "agenda": "a", "Verdict": "v", "": "e"})");
  EXPECT_THAT(sectionNames({{"agenda", "Verdict", "", "summary", "Summary", "title"}}),
              ElementsAre("summary"));
  EXPECT_THAT(sectionNames({{"agenda"}}), ElementsAre());
}

TEST_F(GetMeeting, SectionThatTheMeetingLacksIsLeftOutEvenWhenAskedFor) {
  addNotes(R"({"summary": "s"})");
  EXPECT_THAT(sectionNames({{"summary", "decisions", "people", "digest"}}), ElementsAre("summary"));
}

TEST_F(GetMeeting, SectionIsCopiedWhateverItHolds) {
  addNotes(R"({"verdict": null, "summary": [], "decisions": {"a": 1.50}, "topics": false,
               "quotes": 7, "user_notes": ""})");
  EXPECT_EQ(writeCompact(store_.meeting(
                "m", {{"verdict", "summary", "decisions", "topics", "quotes", "user_notes"}})),
            R"({"id":"m","title":"","date":null,"started_at":null,"duration_sec":null,)"
            R"("source":"recordings","visibility":"work","tags":[],"index":{"age_hours":0.5},)"
            R"("verdict":null,"summary":[],"decisions":{"a":1.5},"topics":false,"quotes":7,)"
            R"("user_notes":"","transcript_lines":0})");
}

TEST_F(GetMeeting, ActionItemsAreNeverThere) {
  addNotes(R"({"action_items": [{"text": "secret"}], "actions": ["secret"], "summary": "s"})");
  EXPECT_THAT(sectionNames(), ElementsAre("summary"));
  EXPECT_THAT(sectionNames({{"action_items", "actions"}}), ElementsAre());
  EXPECT_THAT(writeCompact(store_.meeting("m")), Not(HasSubstr("secret")));
}

TEST_F(GetMeeting, PeopleAndDigestAreTheMeetingsOwnAndLeftOutWhenEmpty) {
  addNotes(R"({"people": [{"name": "of the notes"}], "digest": [{"text": "of the notes"}]})");
  EXPECT_THAT(sectionNames(), ElementsAre());
  store_.add("own", R"("people": [{"name": "Amy"}], "digest": [{"id": "D1", "text": "d"}],
                       "notes": {"people": [], "digest": "of the notes"})");
  const JSONObject own = store_.meeting("own", {{"people", "digest"}});
  EXPECT_EQ(writeCompact(*own.get("people")), R"([{"name":"Amy"}])");
  EXPECT_THAT(writeCompact(*own.get("digest")), HasSubstr(R"("text":"d"}])"));
}

TEST_F(GetMeeting, VerdictComesFromTheNotesElseFromTheMeeting) {
  store_.add("both", R"("verdict": "meeting", "notes": {"verdict": "notes"})");
  store_.add("one", R"("verdict": "meeting")");
  EXPECT_EQ(store_.meeting("both").getString("verdict"), "notes");
  EXPECT_EQ(store_.meeting("one").getString("verdict"), "meeting");
  EXPECT_EQ(store_.meeting("one", {{"summary"}}).getString("verdict"), std::nullopt);
}

// --- clocks

TEST_F(GetMeeting, ClockStandsAtTheEndOfEveryTimedItem) {
  addNotes(R"({"decisions": [{"t": 0, "text": "a"}, {"text": "b", "t_start": 65.9},
                             {"t": 3600}, {"t": 36000}, {"t": -5}]})");
  EXPECT_EQ(section("decisions"), R"([{"t":0,"text":"a","clock":"00:00"},)"
                                  R"({"text":"b","t_start":65.9,"clock":"01:05"},)"
                                  R"({"t":3600,"clock":"1:00:00"},{"t":36000,"clock":"10:00:00"},)"
                                  R"({"t":-5,"clock":"00:00"}])");
}

TEST_F(GetMeeting, TIsTheTimeBeforeTStart) {
  addNotes(R"({"decisions": [{"t_start": 1, "t": 2}, {"t_start": 1, "t": null},
                             {"t_start": 1, "t": "2"}]})");
  EXPECT_EQ(section("decisions"), R"([{"t_start":1,"t":2,"clock":"00:02"},)"
                                  R"({"t_start":1,"t":null,"clock":"00:01"},)"
                                  R"({"t_start":1,"t":"2","clock":"00:01"}])");
}

TEST_F(GetMeeting, ItemWithoutATimeInSecondsGetsNoClock) {
  const std::string untimed =
      R"([{"text":"a"},{"t":"5"},{"t":null},{"t_start":true},{"t_end":5},"t",5,[5]])";
  addNotes(R"({"decisions": )" + untimed + "}");
  EXPECT_EQ(section("decisions"), untimed);
}

TEST_F(GetMeeting, ClockThatIsThereIsOverwrittenInPlace) {
  addNotes(R"({"chapters": [{"clock": "9:99", "t": 5, "title": "a"},
                            {"clock": {"t": 7}, "t_start": 6}, {"clock": "as written"}]})");
  EXPECT_EQ(section("chapters"), R"([{"clock":"00:05","t":5,"title":"a"},)"
                                 R"({"clock":"00:06","t_start":6},{"clock":"as written"}])");
}

TEST_F(GetMeeting, ClocksAreAddedAtAnyDepth) {
  addNotes(R"({"summary": {"t": 1, "parts": [[{"t_start": 2, "in": {"t": 3}}]], "z": {"t": 4}}})");
  EXPECT_EQ(section("summary"),
            R"({"t":1,"parts":[[{"t_start":2,"in":{"t":3,"clock":"00:03"},"clock":"00:02"}]],)"
            R"("z":{"t":4,"clock":"00:04"},"clock":"00:01"})");
}

TEST_F(GetMeeting, PeopleWithATimeGetAClockToo) {
  store_.add("m", R"("people": [{"name": "Amy", "t": 5}])");
  EXPECT_EQ(section("people"), R"([{"name":"Amy","t":5,"clock":"00:05"}])");
}

TEST_F(GetMeeting, NotesNestedTwoHundredThousandLevelsDeepAreServed) {
  constexpr int kLevels = 200'000;
  std::string nested;
  for (int i = 0; i < kLevels; ++i) nested += i % 2 == 0 ? R"({"t":5,"in":)" : "[";
  nested += "0";
  for (int i = kLevels; i-- > 0;) nested += i % 2 == 0 ? "}" : "]";
  addNotes(R"({"decisions": )" + nested + "}");
  const std::string written = section("decisions");
  // Half of the levels are objects, and each of them grew by one clock.
  EXPECT_EQ(written.size(),
            nested.size() + kLevels / 2 * std::string(R"(,"clock":"00:05")").size());
  EXPECT_TRUE(written.ends_with(R"(,"clock":"00:05"}],"clock":"00:05"})"));
}

TEST_F(GetMeeting, MeetingItselfIsLeftAsItWas) {
  addNotes(R"({"decisions": [{"t": 5}]})");
  const std::string once = writeCompact(store_.meeting("m"));
  EXPECT_EQ(writeCompact(store_.meeting("m")), once);
  EXPECT_EQ(writeCompact(store_.home.entry("m").meeting->notes.unpack()),
            R"({"decisions":[{"t":5}]})");
}

TEST_F(GetMeeting, NumbersThatJSONCannotWriteAreNull) {
  store_.add("m", R"("people": [{"name": "Amy", "talk_sec": 1e400}],
                     "notes": {"decisions": [{"t": 1e400, "t_start": 5, "cost": [-1e400, 2]}],
                               "summary": 1e400})");
  EXPECT_EQ(section("people"), R"([{"name":"Amy","talk_sec":null}])");
  EXPECT_EQ(section("decisions"), R"([{"t":null,"t_start":5,"cost":[null,2],"clock":"00:05"}])");
  EXPECT_EQ(section("summary"), "null");
}

// --- the rest

TEST_F(GetMeeting, LegacyMeetingsHaveTheNoteAtTheEndAndOthersNone) {
  store_.home.index.insert(test::meetingOf(R"({"id": "old", "source": "legacy"})"), "/old", "work",
                           {}, 0);
  const JSONObject legacy = store_.meeting("old");
  EXPECT_EQ(legacy.getString("note"), kLegacyNote);
  EXPECT_EQ(legacy.keys().back(), "note");
  for (const std::string source : {"recordings", "imported", "cloud", "Legacy"}) {
    store_.home.index.insert(test::meetingOf(R"({"id": "x", "source": ")" + source + R"("})"), "/x",
                             "work", {}, 0);
    EXPECT_FALSE(store_.meeting("x").has("note")) << source;
  }
}

TEST_F(GetMeeting, HiddenMeetingAndMissingMeetingAreToldAlike) {
  store_.add("hidden", "", "secret");
  store_.add("tagged", "", "work", {"private"});
  store_.access.hidePrivate = true;
  for (const std::string id : {"hidden", "tagged", "missing", "", "it's"}) {
    EXPECT_EQ(storeErrorOf([&] { store_.meeting(id); }),
              "No meeting with id '" + id +
                  "' is available to this client. Next step: call list_meetings to get valid ids");
  }
}

TEST_F(GetMeeting, StaleIndexIsToldBeforeTheIdIsLookedUp) {
  store_.add("m");
  store_.statusError = "too old";
  EXPECT_EQ(storeErrorOf([&] { store_.meeting("m"); }), "too old");
  EXPECT_EQ(storeErrorOf([&] { store_.meeting("missing"); }), "too old");
}

}  // namespace
}  // namespace velta
