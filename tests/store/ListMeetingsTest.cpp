#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/StoreError.h"
#include "store/Store.h"
#include "store/TestStore.h"

namespace velta {
namespace {

using test::column;
using test::TestStore;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> ids(const JSONObject& result) { return column(result, "meetings", "id"); }

class ListMeetings : public testing::Test {
 protected:
  TestStore store_;
};

TEST_F(ListMeetings, WritesASummaryWithAllMembersInOrder) {
  store_.add("m",
             R"("title": "Sync", "date": "2026-01-02", "started_at": "2026-01-02T10:00:00",
                "duration_sec": 90, "verdict": "Go", "people": [{"name": "Amy"}, {"role": "PM"},
                {"name": "阿明"}], "tags": ["its own"],
                "notes": {"decisions": ["a", {}], "open_questions": [1, 2, 3]})",
             "shared", {"agents", "x"});
  EXPECT_EQ(writeCompact(store_.list()),
            R"({"meetings":[{"id":"m","title":"Sync","date":"2026-01-02",)"
            R"("started_at":"2026-01-02T10:00:00","duration_sec":90.0,"source":"recordings",)"
            R"("visibility":"shared","verdict":"Go","people":["Amy","阿明"],"tags":["agents","x"],)"
            R"("decision_count":2,"open_question_count":3}],"count":1,"index":{"age_hours":0.5}})");
}

TEST_F(ListMeetings, WritesNullForWhatIsUnknown) {
  store_.add("m", R"("notes": {"decisions": "none", "open_questions": {"a": 1}})");
  EXPECT_EQ(writeCompact((*store_.list().getArray("meetings"))[0]),
            R"({"id":"m","title":"","date":null,"started_at":null,"duration_sec":null,)"
            R"("source":"recordings","visibility":"work","verdict":"","people":[],"tags":[],)"
            R"("decision_count":0,"open_question_count":0})");
}

TEST_F(ListMeetings, SortsNewestFirstAndUndatedLast) {
  store_.add("undated");
  store_.add("old", R"("date": "2025-01-01")");
  store_.add("no start", R"("date": "2026-01-01")");
  store_.add("morning", R"("date": "2026-01-01", "started_at": "2026-01-01T09:00")");
  store_.add("evening", R"("date": "2026-01-01", "started_at": "2026-01-01T19:00")");
  store_.add("no start either", R"("date": "2026-01-01")");
  EXPECT_THAT(ids(store_.list()),
              ElementsAre("evening", "morning", "no start", "no start either", "old", "undated"));
}

TEST_F(ListMeetings, TakesTwentyForNoLimitAndKeepsItBetweenOneAndTwoHundred) {
  for (int number = 0; number < 250; ++number) store_.add(std::to_string(number));
  const auto count = [&](std::int64_t limit) {
    const JSONObject result = store_.list({.limit = limit});
    EXPECT_EQ(static_cast<std::int64_t>(ids(result).size()), result.getInt("count"));
    return *result.getInt("count");
  };
  EXPECT_EQ(count(0), 20);
  EXPECT_EQ(count(1000), 200);
  EXPECT_EQ(count(-5), 1);
  EXPECT_EQ(count(7), 7);
  EXPECT_EQ(count(std::numeric_limits<std::int64_t>::min()), 1);
  EXPECT_EQ(count(std::numeric_limits<std::int64_t>::max()), 200);
  EXPECT_EQ(store_.list({}).getInt("count"), 20);
}

TEST_F(ListMeetings, MatchesEveryWordInTitleVerdictNotesOrDigest) {
  store_.add("a", R"("title": "Budget 會議", "verdict": "Approved")");
  store_.add("b", R"("title": "Budget")");
  store_.add("c", R"("digest": [{"id": "D1", "text": "budget approved"}])");
  EXPECT_THAT(ids(store_.list({.query = "BUDGET"})), ElementsAre("a", "b", "c"));
  EXPECT_THAT(ids(store_.list({.query = " budget\tapproved\r\n"})), ElementsAre("a", "c"));
  EXPECT_THAT(ids(store_.list({.query = "会议"})), ElementsAre("a"));
}

TEST_F(ListMeetings, DoesNotMatchTheTranscript) {
  store_.add("a", R"("lines": [{"id": "L1", "text": "budget"}])");
  EXPECT_THAT(ids(store_.list({.query = "budget"})), IsEmpty());
}

TEST_F(ListMeetings, TakesAQueryWithoutWordsForNone) {
  store_.add("a");
  EXPECT_THAT(ids(store_.list({.query = ""})), ElementsAre("a"));
  EXPECT_THAT(ids(store_.list({.query = "  "})), ElementsAre("a"));
}

TEST_F(ListMeetings, DoesNotSplitAtAnIdeographicSpace) {
  store_.add("together", R"("title": "押金　合約")");
  store_.add("apart", R"("title": "合約押金")");
  EXPECT_THAT(ids(store_.list({.query = "押金　合約"})), ElementsAre("together"));
  EXPECT_THAT(ids(store_.list({.query = "押金 合約"})), ElementsAre("together", "apart"));
}

TEST_F(ListMeetings, MatchesAPersonInTheWholePeopleList) {
  store_.add("a", R"("people": [{"name": "Amy Chen", "role": "Designer"}])");
  store_.add("b", R"("people": [{"name": "陳大文"}])");
  EXPECT_THAT(ids(store_.list({.person = "amy"})), ElementsAre("a"));
  EXPECT_THAT(ids(store_.list({.person = "DESIGNER"})), ElementsAre("a"));
  EXPECT_THAT(ids(store_.list({.person = "陈大文"})), ElementsAre("b"));
  EXPECT_THAT(ids(store_.list({.person = "name"})), ElementsAre("a", "b"));
  EXPECT_THAT(ids(store_.list({.person = "Amy Wang"})), IsEmpty());
  EXPECT_THAT(ids(store_.list({.person = ""})), ElementsAre("a", "b"));
}

TEST_F(ListMeetings, FiltersByDate) {
  store_.add("undated");
  store_.add("one", R"("date": "2026-01-01")");
  store_.add("two", R"("date": "2026-01-02")");
  store_.add("three", R"("date": "2026-01-03")");
  EXPECT_THAT(ids(store_.list({.dateFrom = "2026-01-02"})), ElementsAre("three", "two"));
  EXPECT_THAT(ids(store_.list({.dateTo = "2026-01-02"})), ElementsAre("two", "one"));
  EXPECT_THAT(ids(store_.list({.dateFrom = "", .dateTo = ""})),
              ElementsAre("three", "two", "one", "undated"));
}

TEST_F(ListMeetings, ShowsOnlyWhatTheCallerMaySee) {
  store_.add("a", "", "work");
  store_.add("b", "", "private");
  store_.access.allowed = {"work"};
  EXPECT_THAT(ids(store_.list()), ElementsAre("a"));
}

TEST_F(ListMeetings, SaysThatNothingMatched) {
  store_.add("a");
  EXPECT_EQ(writeCompact(store_.list({.query = "nowhere"})),
            R"({"meetings":[],"count":0,"index":{"age_hours":0.5},"note":"No meeting matched. Try )"
            R"(fewer words, a wider date range, or search_transcripts for exact phrases"})");
}

TEST_F(ListMeetings, SaysThatNothingIsVisible) {
  store_.add("a");
  store_.access.allowed = {};
  EXPECT_EQ(store_.list().getString("note"), store_.access.noneVisibleMessage(store_.home.index));
}

TEST_F(ListMeetings, FailsWithTheErrorOfTheStatus) {
  store_.statusError = "no index";
  EXPECT_THROW(store_.list(), StoreError);
}

}  // namespace
}  // namespace velta
