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

using test::column;
using test::storeErrorOf;
using test::TestStore;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view kNobody =
    "Nobody by that name in the visible meetings. Names are as written in each meeting; try a "
    "shorter part of the name";

std::vector<std::string> meetingIds(const JSONObject& result) {
  return column(result, "meetings", "meeting_id");
}

// A member of the first meeting of the answer as compact JSON.
std::string first(const JSONObject& result, std::string_view key) {
  return writeCompact(*result.getArray("meetings")->front().asObject()->get(key));
}

class GetPerson : public testing::Test {
 protected:
  // Adds a meeting in which only `person`, a JSON object, takes part.
  void addPerson(const std::string& id, const std::string& person, const std::string& more = "") {
    store_.add(id, R"("people": [)" + person + "]" + (more.empty() ? "" : ", " + more));
  }

  TestStore store_;
};

TEST_F(GetPerson, WritesAllMembersInOrder) {
  store_.add("new", R"("title": "Second", "date": "2026-02-01",
                       "people": [{"talk_share": 0.25, "name": "Bo"},
                                  {"talk_share": 0.75, "talk_sec": 60, "role": "PM",
                                   "name": "Amy Wu"}],
                       "notes": {"decisions": [{"text": "Go", "owner": "Amy", "t": 65}]})");
  store_.add("old", R"("title": "First", "date": "2026-01-01",
                       "people": [{"name": "AMY", "role": "CEO", "talk_sec": 30.5,
                                   "talk_share": 50}],
                       "notes": {"viewpoints": [{"speaker": "amy", "points": [
                                     {"text": "p", "t_start": 7384}, "plain"]}]})");
  EXPECT_EQ(
      writeCompact(store_.person("Amy")),
      R"({"name":"Amy","meetings":[)"
      R"({"meeting_id":"old","title":"First","date":"2026-01-01","name_in_meeting":"AMY",)"
      R"("role":"CEO","talk_sec":30.5,"talk_share":50,)"
      R"("viewpoints":[{"text":"p","t_start":7384,"clock":"2:03:04"},"plain"],)"
      R"("decisions_owned":[]},)"
      R"({"meeting_id":"new","title":"Second","date":"2026-02-01","name_in_meeting":"Amy Wu",)"
      R"("role":"PM","talk_sec":60,"talk_share":0.75,"viewpoints":[],)"
      R"("decisions_owned":[{"text":"Go","owner":"Amy","t":65,"clock":"01:05"}]}],)"
      R"("meeting_count":2,"total_talk_sec":90.5,"talk_share_trend":[)"
      R"({"date":"2026-01-01","meeting_id":"old","talk_share":50},)"
      R"({"date":"2026-02-01","meeting_id":"new","talk_share":0.75}],)"
      R"("index":{"age_hours":0.5}})");
}

// --- whom a name finds

TEST_F(GetPerson, EmptyNameFails) {
  addPerson("m", R"({"name": "Amy"})");
  EXPECT_EQ(storeErrorOf([&] { store_.person(""); }), "name is empty");
}

TEST_F(GetPerson, EmptyNameIsToldBeforeAStaleIndex) {
  store_.statusError = "too old";
  EXPECT_EQ(storeErrorOf([&] { store_.person(""); }), "name is empty");
  EXPECT_EQ(storeErrorOf([&] { store_.person("Amy"); }), "too old");
}

TEST_F(GetPerson, PartOfANameInAnyCaseFindsThePerson) {
  addPerson("m", R"({"name": "Amy Wu"})");
  for (const std::string name : {"Amy Wu", "amy", "WU", "my w"}) {
    EXPECT_EQ(first(store_.person(name), "name_in_meeting"), R"("Amy Wu")") << name;
    EXPECT_EQ(store_.person(name).getString("name"), name);  // as asked
  }
  EXPECT_THAT(meetingIds(store_.person("Amy  Wu")), IsEmpty());
}

TEST_F(GetPerson, SimplifiedNameFindsThePersonWrittenInTraditionalCharacters) {
  addPerson("m", R"({"name": "陳麗華"})",
            R"("notes": {"viewpoints": [{"speaker": "陳麗華", "points": ["p"]}],
                         "decisions": [{"owner": "陳麗華"}]})");
  const JSONObject result = store_.person("陈丽华");
  EXPECT_EQ(result.getString("name"), "陈丽华");
  EXPECT_EQ(first(result, "name_in_meeting"), R"("陳麗華")");
  EXPECT_EQ(first(result, "viewpoints"), R"(["p"])");
  EXPECT_EQ(first(result, "decisions_owned"), R"([{"owner":"陳麗華"}])");
}

TEST_F(GetPerson, TraditionalNameFindsThePersonWrittenInSimplifiedCharacters) {
  addPerson("m", R"({"name": "陈丽华"})");
  EXPECT_EQ(first(store_.person("陳麗華"), "name_in_meeting"), R"("陈丽华")");
}

TEST_F(GetPerson, FirstOfTheMatchingPeopleIsTheOne) {
  addPerson("m", R"({"name": "Bo", "role": "amy's boss"}, {"name": "Amy Wu", "role": "a"},
                    {"name": "Amy Chen", "role": "b"})");
  EXPECT_EQ(first(store_.person("amy"), "name_in_meeting"), R"("Amy Wu")");
}

TEST_F(GetPerson, MeetingThatMatchesOnlyThroughARoleHasNullsAndATrendEntry) {
  addPerson("m", R"({"name": "Bo", "role": "Amy's assistant", "talk_sec": 50, "talk_share": 0.5})",
            R"("title": "T", "date": "2026-01-01")");
  EXPECT_EQ(writeCompact(store_.person("Amy")),
            R"({"name":"Amy","meetings":[{"meeting_id":"m","title":"T","date":"2026-01-01",)"
            R"("name_in_meeting":null,"role":null,"talk_sec":null,"talk_share":null,)"
            R"("viewpoints":[],"decisions_owned":[]}],"meeting_count":1,"total_talk_sec":0.0,)"
            R"("talk_share_trend":[{"date":"2026-01-01","meeting_id":"m","talk_share":null}],)"
            R"("index":{"age_hours":0.5}})");
}

TEST_F(GetPerson, KeyOfThePeopleListSelectsEveryMeetingWithPeople) {
  addPerson("a", R"({"name": "Bo", "role": "PM"})");
  addPerson("b", R"({"name": "Mei", "role": 5})");
  store_.add("nobody");
  EXPECT_THAT(meetingIds(store_.person("role")), ElementsAre("a", "b"));
}

TEST_F(GetPerson, NameThatIsNoTextIsNobody) {
  addPerson("m", R"({"name": 12345, "role": "x"})");
  EXPECT_EQ(first(store_.person("12345"), "name_in_meeting"), "null");
}

TEST_F(GetPerson, PersonOfTheNotesAloneIsNotFound) {
  store_.add("m", R"("notes": {"people": [{"name": "Amy"}], "decisions": [{"owner": "Amy"}]})");
  EXPECT_THAT(meetingIds(store_.person("Amy")), IsEmpty());
}

// --- what is told

TEST_F(GetPerson, MembersAreCopiedAsStoredOrNull) {
  addPerson("m", R"({"name": "Amy", "role": ["a", {"t": 5}], "talk_sec": "long",
                     "talk_share": "40%"})");
  const JSONObject result = store_.person("Amy");
  EXPECT_EQ(first(result, "role"), R"(["a",{"t":5}])");
  EXPECT_EQ(first(result, "talk_sec"), R"("long")");
  EXPECT_EQ(first(result, "talk_share"), R"("40%")");
  EXPECT_THAT(column(result, "talk_share_trend", "talk_share"), ElementsAre("40%"));
}

TEST_F(GetPerson, ViewpointsAreTheFlatListOfThePointsOfAllThatMatch) {
  addPerson("m", R"({"name": "Amy"})",
            R"("notes": {"viewpoints": [
                {"speaker": "Amy", "points": [{"text": "a", "t_start": 5}, "b"]},
                {"speaker": "Bo", "points": ["not hers"]},
                {"speaker": "Amy Wu", "points": [{"clock": "?", "t": 3600}]},
                {"speaker": "Amy", "points": "no list"}, {"speaker": "Amy"},
                {"speaker": 5, "points": ["not hers"]}, {"points": ["not hers"]}, "Amy",
                {"speaker": "amy", "points": [{"sub": [{"t": 61}]}]}]})");
  EXPECT_EQ(first(store_.person("Amy"), "viewpoints"),
            R"([{"text":"a","t_start":5,"clock":"00:05"},"b",{"clock":"1:00:00","t":3600},)"
            R"({"sub":[{"t":61,"clock":"01:01"}]}])");
}

TEST_F(GetPerson, DecisionsOwnedAreThoseWithTheNameAsOwner) {
  addPerson("m", R"({"name": "Amy"})",
            R"("notes": {"decisions": [{"text": "a", "owner": "AMY", "t_start": 65},
                {"text": "by Amy", "owner": "Bo"}, {"text": "b", "owner": "Bo and Amy"},
                {"text": "no owner"}, "Amy", {"owner": ["Amy"]}]})");
  EXPECT_EQ(first(store_.person("Amy"), "decisions_owned"),
            R"([{"text":"a","owner":"AMY","t_start":65,"clock":"01:05"},)"
            R"({"text":"b","owner":"Bo and Amy"}])");
}

TEST_F(GetPerson, NotesOfOtherKindsHoldNothing) {
  addPerson("m", R"({"name": "Amy"})",
            R"("notes": {"viewpoints": {"speaker": "Amy", "points": ["p"]}, "decisions": "Amy"})");
  EXPECT_EQ(first(store_.person("Amy"), "viewpoints"), "[]");
  EXPECT_EQ(first(store_.person("Amy"), "decisions_owned"), "[]");
}

TEST_F(GetPerson, OwnedDecisionsAreToldWithoutThePersonInThePeopleList) {
  addPerson("m", R"({"name": "Bo", "role": "for Amy"})",
            R"("notes": {"decisions": [{"owner": "Amy"}]})");
  EXPECT_EQ(first(store_.person("Amy"), "name_in_meeting"), "null");
  EXPECT_EQ(first(store_.person("Amy"), "decisions_owned"), R"([{"owner":"Amy"}])");
}

TEST_F(GetPerson, TotalIsTheSumOfTheNumericTalkTimes) {
  addPerson("integer", R"({"name": "Amy", "talk_sec": 60})");
  addPerson("double", R"({"name": "Amy", "talk_sec": 0.5})");
  addPerson("text", R"({"name": "Amy", "talk_sec": "100"})");
  addPerson("none", R"({"name": "Amy"})");
  addPerson("null", R"({"name": "Amy", "talk_sec": null})");
  addPerson("other", R"({"name": "Bo", "role": "Amy", "talk_sec": 1000})");
  EXPECT_EQ(writeCompact(*store_.person("Amy").get("total_talk_sec")), "60.5");
}

TEST_F(GetPerson, NumbersThatJSONCannotWriteAreNullAndCountForNothing) {
  addPerson("m", R"({"name": "Amy", "talk_sec": 1e400, "talk_share": -1e400, "role": [1e400]})",
            R"("notes": {"viewpoints": [{"speaker": "Amy", "points": [{"t": 1e400}]}],
                         "decisions": [{"owner": "Amy", "cost": 1e400}]})");
  addPerson("n", R"({"name": "Amy", "talk_sec": 5})");
  const JSONObject result = store_.person("Amy");
  EXPECT_EQ(first(result, "talk_sec"), "null");
  EXPECT_EQ(first(result, "talk_share"), "null");
  EXPECT_EQ(first(result, "role"), "[null]");
  EXPECT_EQ(first(result, "viewpoints"), R"([{"t":null}])");
  EXPECT_EQ(first(result, "decisions_owned"), R"([{"owner":"Amy","cost":null}])");
  EXPECT_THAT(column(result, "talk_share_trend", "talk_share"), ElementsAre("null", "null"));
  EXPECT_EQ(writeCompact(*result.get("total_talk_sec")), "5.0");
}

TEST_F(GetPerson, TotalBeyondADoubleIsNull) {
  addPerson("a", R"({"name": "Amy", "talk_sec": 1.7e308})");
  addPerson("b", R"({"name": "Amy", "talk_sec": 1.7e308})");
  EXPECT_EQ(writeCompact(*store_.person("Amy").get("total_talk_sec")), "null");
}

// --- order

TEST_F(GetPerson, MeetingsComeOldestFirstAndUndatedBeforeAllDated) {
  addPerson("new", R"({"name": "Amy"})", R"("date": "2026-03-01")");
  addPerson("undated", R"({"name": "Amy"})");
  addPerson("old", R"({"name": "Amy"})", R"("date": "2025-12-31")");
  const JSONObject result = store_.person("Amy");
  EXPECT_THAT(meetingIds(result), ElementsAre("undated", "old", "new"));
  EXPECT_THAT(column(result, "talk_share_trend", "meeting_id"),
              ElementsAre("undated", "old", "new"));
  EXPECT_EQ(first(result, "date"), "null");
}

TEST_F(GetPerson, MeetingsOfOneDateComeInIndexOrder) {
  // The time of day and the id have no say.
  addPerson("z", R"({"name": "Amy"})", R"("date": "2026-01-01", "started_at": "2026-01-01T19:00")");
  addPerson("b", R"({"name": "Amy"})");
  addPerson("m", R"({"name": "Amy"})", R"("date": "2026-01-01", "started_at": "2026-01-01T09:00")");
  addPerson("a", R"({"name": "Amy"})");
  addPerson("c", R"({"name": "Amy"})", R"("date": "2026-01-01")");
  EXPECT_THAT(meetingIds(store_.person("Amy")), ElementsAre("b", "a", "z", "m", "c"));
}

// --- filters and access

TEST_F(GetPerson, DatesAreInclusiveAndDropWhatHasNoDate) {
  for (const std::string day : {"01", "02", "03"})
    addPerson(day, R"({"name": "Amy"})", R"("date": "2026-01-)" + day + "\"");
  addPerson("undated", R"({"name": "Amy"})");
  const auto between = [&](const std::optional<std::string>& from,
                           const std::optional<std::string>& to) {
    return meetingIds(store_.personIn({.name = "Amy", .dateFrom = from, .dateTo = to}));
  };
  EXPECT_THAT(between("2026-01-02", {}), ElementsAre("02", "03"));
  EXPECT_THAT(between({}, "2026-01-02"), ElementsAre("01", "02"));
  EXPECT_THAT(between("2026-01-02", "2026-01-02"), ElementsAre("02"));
  EXPECT_THAT(between("2026-01-03", "2026-01-01"), IsEmpty());
  EXPECT_THAT(between("", ""), ElementsAre("undated", "01", "02", "03"));
}

TEST_F(GetPerson, NameOfNobodyHasTheNote) {
  addPerson("m", R"({"name": "Amy"})");
  EXPECT_EQ(writeCompact(store_.person("Zed")),
            R"({"name":"Zed","meetings":[],"meeting_count":0,"total_talk_sec":0.0,)"
            R"("talk_share_trend":[],"index":{"age_hours":0.5},"note":")" +
                std::string(kNobody) + R"("})");
}

TEST_F(GetPerson, MeetingThatOnlyTheDatesLeaveOutHasTheSameNote) {
  addPerson("m", R"({"name": "Amy"})", R"("date": "2026-01-01")");
  EXPECT_EQ(store_.personIn({.name = "Amy", .dateFrom = "2027-01-01"}).getString("note"), kNobody);
}

TEST_F(GetPerson, CallerWhoSeesNoMeetingAtAllIsToldWhy) {
  store_.add("m", R"("people": [{"name": "Amy"}])", "secret");
  const JSONObject result = store_.person("Amy");
  EXPECT_THAT(meetingIds(result), IsEmpty());
  EXPECT_EQ(result.getString("note"), store_.access.noneVisibleMessage(store_.home.index).value());
}

TEST_F(GetPerson, HiddenMeetingsCountForNothing) {
  addPerson("seen", R"({"name": "Amy", "talk_sec": 5})");
  store_.add("hidden", R"("people": [{"name": "Amy", "talk_sec": 50}])", "secret");
  store_.add("tagged", R"("people": [{"name": "Amy", "talk_sec": 500}])", "work", {"private"});
  store_.access.hidePrivate = true;
  const JSONObject result = store_.person("Amy");
  EXPECT_THAT(meetingIds(result), ElementsAre("seen"));
  EXPECT_EQ(result.getNumber("total_talk_sec"), 5);
}

}  // namespace
}  // namespace velta
