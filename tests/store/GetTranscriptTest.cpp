#include <cstddef>
#include <cstdint>
#include <limits>
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
using testing::SizeIs;

constexpr std::string_view kNoLines =
    "This meeting has no transcript lines in that range. Legacy meetings marked raw may have none; "
    "try get_meeting for the digest";

class GetTranscript : public testing::Test {
 protected:
  // Adds the meeting "m" with a line at each of these seconds.
  void addLinesAt(const std::vector<std::string>& seconds) {
    std::string lines;
    for (const std::string& second : seconds) {
      lines += lines.empty() ? "" : ",";
      lines += R"({"id": "x", "t_start": )" + second + "}";
    }
    store_.add("m", R"("lines": [)" + lines + "]");
  }

  // Adds the meeting "m" with a line a second from 0 on.
  void addLines(int count) {
    std::vector<std::string> seconds;
    seconds.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) seconds.push_back(std::to_string(i));
    addLinesAt(seconds);
  }

  std::vector<std::string> startsBetween(std::optional<double> from, std::optional<double> to,
                                         std::int64_t limit = 0) const {
    return column(read(from, to, limit), "lines", "t_start");
  }

  JSONObject read(std::optional<double> from, std::optional<double> to,
                  std::int64_t limit = 0) const {
    return store_.transcript({.id = "m", .fromSec = from, .toSec = to, .limit = limit});
  }

  // How many lines a limit lets through, and whether more were there.
  void expectLimit(std::int64_t limit, std::int64_t count, bool truncated) const {
    const JSONObject result = read({}, {}, limit);
    EXPECT_EQ(result.getInt("count"), count) << limit;
    EXPECT_THAT(*result.getArray("lines"), SizeIs(static_cast<std::size_t>(count))) << limit;
    EXPECT_EQ(result.getBool("truncated"), truncated) << limit;
  }

  TestStore store_;
};

TEST_F(GetTranscript, WritesAllMembersInOrder) {
  store_.add("m", R"("title": "Sync", "date": "2026-01-02",
                     "lines": [{"id": "L1", "t_start": 0, "t_end": 2.5, "speaker": "Amy",
                                "text": "Hi\nthere"},
                               {"id": "a", "t_start": 7384, "text": "好"}])");
  EXPECT_EQ(writeCompact(store_.transcript({.id = "m"})),
            R"({"id":"m","title":"Sync","date":"2026-01-02","lines":[)"
            R"({"line_id":"L1","t_start":0.0,"t_end":2.5,"clock":"00:00","speaker":"Amy",)"
            R"("text":"Hi\nthere"},)"
            R"({"line_id":"a","t_start":7384.0,"t_end":null,"clock":"2:03:04","speaker":"?",)"
            R"("text":"好"}],"count":2,"truncated":false,"index":{"age_hours":0.5}})");
}

TEST_F(GetTranscript, MeetingWithoutLinesHasTheNote) {
  store_.add("m");
  EXPECT_EQ(writeCompact(store_.transcript({.id = "m"})),
            R"({"id":"m","title":"","date":null,"lines":[],"count":0,"truncated":false,)"
            R"("index":{"age_hours":0.5},"note":")" +
                std::string(kNoLines) + R"("})");
}

TEST_F(GetTranscript, TextIsReturnedWhole) {
  const std::string text(5000, 'x');
  store_.add("m", R"("lines": [{"id": "L1", "text": ")" + text + R"("}])");
  EXPECT_THAT(column(store_.transcript({.id = "m"}), "lines", "text"), ElementsAre(text));
}

// --- ranges

TEST_F(GetTranscript, BothEndsOfTheRangeAreInclusive) {
  addLinesAt({"0", "9.999", "10", "15", "20", "20.001", "30"});
  EXPECT_THAT(startsBetween(10, 20), ElementsAre("10.0", "15.0", "20.0"));
  EXPECT_THAT(startsBetween(10, 10), ElementsAre("10.0"));
  EXPECT_THAT(startsBetween(11, 14), IsEmpty());
}

TEST_F(GetTranscript, AbsentEndIsOpen) {
  addLinesAt({"-5", "0", "10", "20"});
  EXPECT_THAT(startsBetween({}, 0), ElementsAre("-5.0", "0.0"));
  EXPECT_THAT(startsBetween(10, {}), ElementsAre("10.0", "20.0"));
  EXPECT_THAT(startsBetween({}, {}), ElementsAre("-5.0", "0.0", "10.0", "20.0"));
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_THAT(startsBetween(-kInfinity, kInfinity), SizeIs(4));
  EXPECT_THAT(startsBetween(kInfinity, {}), IsEmpty());
}

TEST_F(GetTranscript, LineThatReachesIntoTheRangeButStartsBeforeItIsNotInIt) {
  store_.add("m",
             R"("lines": [{"id": "L1", "t_start": 0, "t_end": 100}, {"id": "L2", "t_start": 50}])");
  EXPECT_THAT(startsBetween(10, 60), ElementsAre("50.0"));
}

TEST_F(GetTranscript, RangeThatEndsBeforeItBeginsHasNoLinesAndTheNote) {
  for (const bool sorted : {true, false}) {
    addLinesAt(sorted ? std::vector<std::string>{"0", "10", "20"}
                      : std::vector<std::string>{"20", "0", "10"});
    const JSONObject result = read(20, 0);
    EXPECT_EQ(result.getInt("count"), 0);
    EXPECT_EQ(result.getBool("truncated"), false);
    EXPECT_EQ(result.getString("note"), kNoLines);
    EXPECT_EQ(result.keys().back(), "note");
  }
}

TEST_F(GetTranscript, LinesOfOneTimeComeAllAndInTheirOrder) {
  store_.add("m", R"("lines": [{"id": "z", "t_start": 5}, {"id": "a", "t_start": 5},
                               {"id": "m", "t_start": 5}])");
  EXPECT_THAT(column(read(5, 5), "lines", "line_id"), ElementsAre("z", "a", "m"));
}

TEST_F(GetTranscript, TranscriptOutOfTimeOrderKeepsItsOrder) {
  addLinesAt({"30", "10", "50", "20", "5", "40"});
  EXPECT_THAT(startsBetween({}, {}), ElementsAre("30.0", "10.0", "50.0", "20.0", "5.0", "40.0"));
  EXPECT_THAT(startsBetween(10, 30), ElementsAre("30.0", "10.0", "20.0"));
  EXPECT_THAT(startsBetween(35, {}), ElementsAre("50.0", "40.0"));
  EXPECT_THAT(startsBetween({}, 10), ElementsAre("10.0", "5.0"));
}

TEST_F(GetTranscript, RangesAreTheSameWhetherLinesAreInTimeOrderOrNot) {
  for (const bool sorted : {true, false}) {
    std::vector<std::string> seconds = {"0", "1", "1", "2", "4", "8"};
    if (!sorted) seconds = {"8", "1", "0", "4", "2", "1"};
    addLinesAt(seconds);
    for (double from = -1; from < 10; from += 0.5) {
      for (double to = -1; to < 10; to += 0.5) {
        std::vector<std::string> expected;
        for (const std::string& second : seconds) {
          const double start = std::stod(second);
          if (start >= from && start <= to) expected.push_back(second + ".0");
        }
        EXPECT_EQ(startsBetween(from, to), expected) << from << " to " << to;
      }
    }
  }
}

// --- limits

TEST_F(GetTranscript, LimitOfFiveThousandReturnsTwoThousandLinesAndIsTruncated) {
  addLines(2001);
  expectLimit(5000, 2000, true);
  expectLimit(2001, 2000, true);
  expectLimit(2000, 2000, true);
  expectLimit(std::numeric_limits<std::int64_t>::max(), 2000, true);
}

TEST_F(GetTranscript, LimitOfZeroReturnsUpToFourHundredLines) {
  addLines(401);
  expectLimit(0, 400, true);
  EXPECT_EQ(store_.transcript({.id = "m"}).getInt("count"), 400);  // no limit given
}

TEST_F(GetTranscript, LimitIsAtLeastOne) {
  addLines(3);
  expectLimit(-5, 1, true);
  expectLimit(std::numeric_limits<std::int64_t>::min(), 1, true);
  expectLimit(1, 1, true);
}

TEST_F(GetTranscript, TruncatedOnlyWhenTheLimitLeftALineOfTheRangeOut) {
  addLines(10);
  EXPECT_EQ(read(2, 5, 4).getBool("truncated"), false);  // line 6 is outside
  EXPECT_EQ(read(2, 5, 3).getBool("truncated"), true);
  EXPECT_EQ(read(6, {}, 4).getBool("truncated"), false);
  expectLimit(10, 10, false);
  expectLimit(9, 9, true);
  EXPECT_THAT(startsBetween(2, 9, 3), ElementsAre("2.0", "3.0", "4.0"));
}

TEST_F(GetTranscript, TruncatedIsExactOutOfTimeOrderToo) {
  addLinesAt({"5", "100", "6", "200", "7", "300"});
  EXPECT_EQ(read(0, 10, 3).getBool("truncated"), false);
  EXPECT_EQ(read(0, 10, 2).getBool("truncated"), true);
  EXPECT_EQ(read(100, {}, 2).getBool("truncated"), true);
}

// --- access

TEST_F(GetTranscript, HiddenMeetingAndMissingMeetingAreToldAlike) {
  store_.add("hidden", R"("lines": [{"id": "L1", "text": "secret"}])", "secret");
  for (const std::string id : {"hidden", "missing"}) {
    EXPECT_EQ(storeErrorOf([&] { store_.transcript({.id = id}); }),
              "No meeting with id '" + id +
                  "' is available to this client. Next step: call list_meetings to get valid ids");
  }
}

TEST_F(GetTranscript, StaleIndexIsToldBeforeTheIdIsLookedUp) {
  store_.statusError = "too old";
  EXPECT_EQ(storeErrorOf([&] { store_.transcript({.id = "missing"}); }), "too old");
}

}  // namespace
}  // namespace velta
