#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/StoreError.h"
#include "platform/Text.h"
#include "store/Store.h"
#include "store/TestStore.h"

namespace velta {
namespace {

using test::column;
using test::TestStore;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::vector<std::string> lineIds(const JSONObject& result) {
  return column(result, "hits", "line_id");
}
std::vector<std::string> texts(const JSONObject& result) { return column(result, "hits", "text"); }

// A meeting's member "lines" of these texts, one a second, all by Amy.
std::string linesOf(const std::vector<std::string>& lines) {
  std::string list;
  for (std::size_t number = 0; number < lines.size(); ++number) {
    list += (number == 0 ? "" : ", ") + std::string(R"({"id": "L)") + std::to_string(number + 1) +
            R"(", "speaker": "Amy", "t_start": )" + std::to_string(number) + R"(, "text": ")" +
            lines[number] + R"("})";
  }
  return R"("lines": [)" + list + "]";
}

class SearchTranscripts : public testing::Test {
 protected:
  std::string errorOf(const std::string& query) {
    try {
      store_.searchFor(query);
    } catch (const StoreError& error) {
      EXPECT_EQ(error.kind(), StoreError::Kind::value);
      return error.what();
    }
    return "nothing was thrown";
  }

  TestStore store_;
};

TEST_F(SearchTranscripts, WritesAHitWithAllMembersInOrder) {
  store_.add("m", R"("title": "Sync", "date": "2026-01-02", "lines": [{"id": "L9",
      "speaker": "Amy", "t_start": 3725.9, "text": "the Budget"}])");
  EXPECT_EQ(writeCompact(store_.searchFor("budget")),
            R"({"query":"budget","hits":[{"meeting_id":"m","meeting_title":"Sync",)"
            R"("date":"2026-01-02","kind":"line","line_id":"L9","t_start":3725.9,)"
            R"("clock":"1:02:05","speaker":"Amy","section":null,"text":"the Budget"}],)"
            R"("count":1,"index":{"age_hours":0.5}})");
}

TEST_F(SearchTranscripts, WritesAClockOfMinutesBelowOneHour) {
  store_.add("m", R"("lines": [{"id": "L1", "t_start": 65, "text": "x"}])");
  EXPECT_THAT(column(store_.searchFor("x"), "hits", "clock"), ElementsAre("01:05"));
  EXPECT_THAT(column(store_.searchFor("x"), "hits", "t_start"), ElementsAre("65.0"));
}

TEST_F(SearchTranscripts, WritesNullForWhatADigestItemLacks) {
  store_.add("m", R"("digest": [{"id": "D1", "section": "decisions", "text": "Budget"}])");
  EXPECT_EQ(writeCompact((*store_.searchFor("budget").getArray("hits"))[0]),
            R"({"meeting_id":"m","meeting_title":"","date":null,"kind":"digest","line_id":"D1",)"
            R"("t_start":null,"clock":null,"speaker":null,"section":"decisions","text":"Budget"})");
}

TEST_F(SearchTranscripts, RefusesAQueryWithoutWords) {
  const std::string message = "query is empty. Pass one or more words, for example 押金 or 電輔車";
  EXPECT_EQ(errorOf(""), message);
  EXPECT_EQ(errorOf("   "), message);
  EXPECT_EQ(errorOf(" \t\r\n"), message);
}

TEST_F(SearchTranscripts, RefusesAnEmptyQueryBeforeItAsksForTheStatus) {
  store_.statusError = "no index";
  EXPECT_THAT(errorOf(" "), testing::StartsWith("query is empty"));
}

TEST_F(SearchTranscripts, FailsWithTheErrorOfTheStatus) {
  store_.statusError = "no index";
  EXPECT_THROW(store_.searchFor("x"), StoreError);
}

TEST_F(SearchTranscripts, TakesWordsJoinedByAnIdeographicSpaceForOne) {
  store_.add("m", linesOf({"押金　合約", "合約，押金"}));
  EXPECT_THAT(lineIds(store_.searchFor("押金　合約")), ElementsAre("L1"));
  EXPECT_THAT(lineIds(store_.searchFor("　")), ElementsAre("L1"));
}

TEST_F(SearchTranscripts, SplitsTheQueryAtFourCharactersOnly) {
  store_.add("m", linesOf({"one two"}));
  for (const std::string blank : {" ", "\t", "\n", "\r"})
    EXPECT_THAT(lineIds(store_.searchFor("two" + blank + "one")), ElementsAre("L1")) << blank;
  for (const std::string other : {"\v", "\f", "\u0085", "\u00A0", "\u2028", "\u3000"})
    EXPECT_THAT(lineIds(store_.searchFor("two" + other + "one")), IsEmpty()) << other;
}

TEST_F(SearchTranscripts, NeedsEveryWordInTheSameLine) {
  store_.add("m", linesOf({"alpha beta", "alpha", "beta", "BETA then ALPHA"}));
  EXPECT_THAT(lineIds(store_.searchFor("alpha\tbeta")), ElementsAre("L1", "L4"));
}

TEST_F(SearchTranscripts, NeedsARepeatedWordOnce) {
  store_.add("m", linesOf({"alpha beta", "alpha", "beta", "BETA then ALPHA"}));
  std::string query = "alpha beta";
  for (int i = 0; i < 20000; ++i) query += i % 2 == 0 ? " alpha" : " ALPHA";
  EXPECT_THAT(lineIds(store_.searchFor(query)), ElementsAre("L1", "L4"));
}

TEST_F(SearchTranscripts, NeverMatchesAcrossLines) {
  store_.add("m", linesOf({"al", "pha", "押", "金"}));
  EXPECT_THAT(lineIds(store_.searchFor("alpha")), IsEmpty());
  EXPECT_THAT(lineIds(store_.searchFor("押金")), IsEmpty());
}

TEST_F(SearchTranscripts, FindsALineOnceHoweverOftenItHoldsTheWord) {
  store_.add("m", linesOf({"xx x x", "", "x"}));
  EXPECT_THAT(lineIds(store_.searchFor("x")), ElementsAre("L1", "L3"));
}

TEST_F(SearchTranscripts, FindsWordsInALineThatHoldsALineFeed) {
  store_.add("m", linesOf({"one\\ntwo"}));
  EXPECT_THAT(lineIds(store_.searchFor("two one")), ElementsAre("L1"));
}

TEST_F(SearchTranscripts, FindsEitherScriptByEither) {
  store_.add("m", linesOf({"電輔車的費用", "电辅车的费用"}));
  EXPECT_THAT(lineIds(store_.searchFor("电辅车")), ElementsAre("L1", "L2"));
  EXPECT_THAT(lineIds(store_.searchFor("電輔車")), ElementsAre("L1", "L2"));
}

TEST_F(SearchTranscripts, FiltersLinesBySpeakerWithoutCase) {
  store_.add("m", R"("lines": [{"id": "L1", "speaker": "Amy Chen", "text": "x"},
      {"id": "L2", "speaker": "Bob", "text": "x"}, {"id": "L3", "text": "x"}])");
  const auto spokenBy = [&](const std::string& speaker) {
    return lineIds(store_.search({.query = "x", .speaker = speaker, .readTranscripts = true}));
  };
  EXPECT_THAT(spokenBy("AMY"), ElementsAre("L1"));
  EXPECT_THAT(spokenBy("b"), ElementsAre("L2"));
  EXPECT_THAT(spokenBy("?"), ElementsAre("L3"));
  EXPECT_THAT(spokenBy("nobody"), IsEmpty());
  EXPECT_THAT(spokenBy(""), ElementsAre("L1", "L2", "L3"));
}

TEST_F(SearchTranscripts, AppliesTheSpeakerFilterToLinesOnly) {
  store_.add("m", R"("lines": [{"id": "L1", "speaker": "Amy", "text": "x"}],
      "digest": [{"id": "D1", "text": "x"}])");
  EXPECT_THAT(lineIds(store_.search({.query = "x", .speaker = "Bob", .readTranscripts = true})),
              ElementsAre("D1"));
}

TEST_F(SearchTranscripts, FiltersByDate) {
  store_.add("undated", linesOf({"x"}));
  store_.add("one", R"("date": "2026-01-01", )" + linesOf({"x"}));
  store_.add("two", R"("date": "2026-01-02", )" + linesOf({"x"}));
  const auto found = [&](const std::string& from, const std::string& to) {
    return column(
        store_.search({.query = "x", .dateFrom = from, .dateTo = to, .readTranscripts = true}),
        "hits", "meeting_id");
  };
  EXPECT_THAT(found("2026-01-01", ""), ElementsAre("two", "one"));
  EXPECT_THAT(found("", "2026-01-01"), ElementsAre("one"));
  EXPECT_THAT(found("", ""), ElementsAre("two", "one", "undated"));
}

TEST_F(SearchTranscripts, InterleavesTheMeetingsOfOneDayByTime) {
  store_.add("late", R"("date": "2026-01-01", "started_at": "2026-01-01T10:00", "lines": [
      {"id": "late 5", "t_start": 5, "text": "x"}, {"id": "late 1", "t_start": 1, "text": "x"}])");
  store_.add("early", R"("date": "2026-01-01", "started_at": "2026-01-01T09:00", "lines": [
      {"id": "early 3", "t_start": 3, "text": "x"}, {"id": "early 5", "t_start": 5, "text": "x"}],
      "digest": [{"id": "no time", "text": "x"}])");
  store_.add("older", R"("date": "2025-01-01", "lines": [{"id": "older 0", "text": "x"}])");
  store_.add("undated", R"("lines": [{"id": "undated 0", "text": "x"}])");
  EXPECT_THAT(lineIds(store_.searchFor("x")), ElementsAre("no time", "late 1", "early 3", "late 5",
                                                          "early 5", "older 0", "undated 0"));
}

TEST_F(SearchTranscripts, BreaksTiesByPlaceInTheMeeting) {
  store_.add("m", R"("lines": [{"id": "L1", "t_start": 7, "text": "x"},
      {"id": "L2", "t_start": 7, "text": "x"}], "digest": [{"id": "D1", "t": 7, "text": "x"}])");
  EXPECT_THAT(lineIds(store_.searchFor("x")), ElementsAre("L1", "L2", "D1"));
}

TEST_F(SearchTranscripts, KeepsTheFirstHitsOfTheOrderWithinTheLimit) {
  std::string lines;
  for (int second = 300; second > 0; --second) {
    lines += (lines.empty() ? "" : ", ") + std::string(R"({"id": "L)") + std::to_string(second) +
             R"(", "t_start": )" + std::to_string(second) + R"(, "text": "x"})";
  }
  store_.add("m", R"("lines": [)" + lines + "]");
  const auto found = [&](std::int64_t limit) {
    return lineIds(store_.search({.query = "x", .limit = limit, .readTranscripts = true}));
  };
  EXPECT_THAT(found(3), ElementsAre("L1", "L2", "L3"));
  EXPECT_THAT(found(-5), ElementsAre("L1"));
  EXPECT_THAT(found(0), SizeIs(20));
  EXPECT_THAT(found(1000), SizeIs(200));
}

TEST_F(SearchTranscripts, CutsATextAfterFourHundredCharacters) {
  std::string family;
  for (int i = 0; i < 400; ++i) family += "👨‍👩‍👧";  // one character, 18 bytes
  store_.add("m", linesOf({std::string(400, 'x'), std::string(401, 'x'), "x" + family,
                           "x" + family.substr(18)}));
  EXPECT_THAT(texts(store_.searchFor("x")),
              ElementsAre(std::string(400, 'x'), std::string(400, 'x') + "…",
                          "x" + family.substr(18) + "…", "x" + family.substr(18)));
}

// What is searched with which permission.

class SearchKinds : public SearchTranscripts {
 protected:
  SearchKinds() {
    store_.add("m", R"("lines": [{"id": "L1", "text": "x"}], "verdict": "x",
        "notes": {"summary": ["x", "y", {"text": "x", "t": 9, "speaker": "Amy"}]},
        "digest": [{"id": "D1", "section": "decisions", "text": "x"}])");
  }

  std::vector<std::string> found(bool readTranscripts, bool includeDigest) {
    return lineIds(store_.search(
        {.query = "x", .includeDigest = includeDigest, .readTranscripts = readTranscripts}));
  }
};

TEST_F(SearchKinds, AreLinesAndDigestForWhoMayReadTranscripts) {
  EXPECT_THAT(found(true, true), ElementsAre("D1", "L1"));
  EXPECT_THAT(found(true, false), ElementsAre("L1"));
}

TEST_F(SearchKinds, AreNotesAndDigestForWhoMayNot) {
  EXPECT_THAT(found(false, true), ElementsAre("verdict", "summary-1", "D1", "summary-3"));
  EXPECT_THAT(found(false, false), ElementsAre("verdict", "summary-1", "summary-3"));
}

TEST_F(SearchKinds, SayThatTranscriptsWereNotSearched) {
  const JSONObject result = store_.search({.query = "x"});
  EXPECT_THAT(result.keys(), ElementsAre("query", "hits", "count", "index", "transcripts_searched",
                                         "transcripts_note"));
  EXPECT_EQ(result.getBool("transcripts_searched"), false);
  EXPECT_EQ(result.getString("transcripts_note"),
            "Transcript lines were not searched: this agent may read notes and digests only. Hits "
            "are kind notes or digest. To search raw lines the user turns on read_transcripts for "
            "this agent");
}

TEST_F(SearchKinds, GiveANoteItsSectionTimeAndSpeaker) {
  const JSONObject result = store_.search({.query = "x"});
  EXPECT_EQ(writeCompact((*result.getArray("hits"))[3]),
            R"({"meeting_id":"m","meeting_title":"","date":null,"kind":"notes",)"
            R"("line_id":"summary-3","t_start":9.0,"clock":"00:09","speaker":"Amy",)"
            R"("section":"summary","text":"x Amy"})");
}

TEST_F(SearchTranscripts, SaysThatNoLineMatched) {
  store_.add("m");
  const JSONObject result = store_.search({.query = " Nowhere "});
  EXPECT_EQ(result.getString("query"), " Nowhere ");
  EXPECT_EQ(result.getInt("count"), 0);
  EXPECT_THAT(result.keys(), ElementsAre("query", "hits", "count", "index", "transcripts_searched",
                                         "transcripts_note", "note"));
  EXPECT_EQ(result.getString("note"),
            "No line matched. Try a shorter word, the Simplified or Traditional form, or drop the "
            "speaker filter");
  EXPECT_THAT(store_.searchFor("nowhere").keys(),
              ElementsAre("query", "hits", "count", "index", "note"));
}

TEST_F(SearchTranscripts, SaysThatNothingIsVisible) {
  store_.add("m", linesOf({"x"}), "private");
  store_.access.allowed = {"work"};
  const JSONObject result = store_.searchFor("x");
  EXPECT_THAT(lineIds(result), IsEmpty());
  EXPECT_EQ(result.getString("note"), store_.access.noneVisibleMessage(store_.home.index));
}

}  // namespace
}  // namespace velta
