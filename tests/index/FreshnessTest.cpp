#include <chrono>
#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "config/StoreError.h"
#include "index/Freshness.h"
#include "index/TestHome.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "support/TimeZone.h"

namespace velta {
namespace {

using test::TestHome;

const TimeZone kTaipei("Asia/Taipei");

JSONObject objectOf(const std::string& text) { return *parseJSON(text).asObject(); }

// An index of one meeting, built at a fixed time and looked at some hours later.
class Freshness : public testing::Test {
 protected:
  Freshness() {
    home_.record("a");
    home_.refresh();
  }

  JSONObject after(double hours, const std::string& configFile) {
    const JSONObject loaded = objectOf(configFile);
    return freshness(home_.index, home_.config, instantAfter(hours), &loaded);
  }

  Instant instantAfter(double hours) const {
    return home_.now + std::chrono::milliseconds(std::llround(hours * 3'600'000));
  }

  std::string warningAfter(double hours, const std::string& configFile) {
    return std::string(after(hours, configFile).getString("warning").value_or("none"));
  }

  TestHome home_;
};

std::string messageOf(const TestHome& home) {
  try {
    freshness(home.index, home.config, home.now);
  } catch (const StoreError& error) {
    EXPECT_EQ(error.kind(), StoreError::Kind::index);
    return error.what();
  }
  return "nothing was thrown";
}

TEST(FreshnessOfNothing, IsAnErrorBeforeTheFirstBuild) {
  const TestHome home;
  EXPECT_EQ(messageOf(home),
            "No index yet. Next step: the server reads the sources on start; call again, and if "
            "this repeats check mcp-config.json at " +
                home.folder.file("mcp-config.json"));
}

TEST(FreshnessOfNothing, IsAnErrorForAnEmptyIndex) {
  TestHome home;
  home.refresh();
  EXPECT_EQ(messageOf(home),
            "The index is empty. Most likely no source in mcp-config.json points at existing notes."
            " Next step: add a source (see mcp/config.example.json) to " +
                home.folder.file("mcp-config.json") +
                ", then call again; the server re-reads the sources on every call");
}

TEST_F(Freshness, TellsWhenTheIndexWasBuiltAndItsAgeInHours) {
  EXPECT_EQ(writeCompact(after(0, "{}")),
            R"({"indexed_at":"2026-09-21T22:13:20+0800","age_hours":0.0})");
}

TEST_F(Freshness, RoundsTheAgeToATenthWithTiesToEven) {
  EXPECT_EQ(after(0.25, "{}").getNumber("age_hours"), 0.2);
  EXPECT_EQ(after(0.75, "{}").getNumber("age_hours"), 0.8);
  EXPECT_EQ(after(1.26, "{}").getNumber("age_hours"), 1.3);
}

TEST_F(Freshness, WarnsBeyondTheLimitOnly) {
  EXPECT_EQ(warningAfter(72, "{}"), "none");
  EXPECT_EQ(
      warningAfter(72.04, "{}"),
      "The index is 72 hours old (limit 72). Newer meetings may be missing. Next step: call "
      "again; the server re-reads the sources when a file changed, or restart the MCP server");
  EXPECT_EQ(after(72.04, "{}").getNumber("age_hours"), 72.0);
}

TEST_F(Freshness, RoundsTheAgeOfTheWarningHalvesAwayFromZero) {
  EXPECT_EQ(warningAfter(72.5, "{}").substr(0, 35), "The index is 73 hours old (limit 72");
}

TEST_F(Freshness, ShowsAFractionalLimitTruncated) {
  EXPECT_EQ(warningAfter(1.6, R"({"stale_after_hours": 1.5})").substr(0, 34),
            "The index is 2 hours old (limit 1)");
  EXPECT_EQ(warningAfter(1.4, R"({"stale_after_hours": 1.5})"), "none");
}

TEST_F(Freshness, TakesTheDefaultForALimitOfAnotherKind) {
  for (const char* limit : {R"("1")", "true", "null", "[1]"}) {
    EXPECT_EQ(warningAfter(71, std::string(R"({"stale_after_hours": )") + limit + "}"), "none");
    EXPECT_NE(warningAfter(73, std::string(R"({"stale_after_hours": )") + limit + "}"), "none");
  }
}

TEST_F(Freshness, KnowsNoLimitThatCannotBeShown) {
  for (const double limit :
       {-std::numeric_limits<double>::infinity(), -1e300, std::nan(""), 1e19}) {
    JSONObject configFile;
    configFile.set("stale_after_hours", limit);
    const JSONObject status = freshness(home_.index, home_.config, instantAfter(1000), &configFile);
    EXPECT_FALSE(status.has("warning")) << limit;
  }
}

TEST_F(Freshness, TakesANegativeLimitAsItStands) {
  EXPECT_EQ(warningAfter(1, R"({"stale_after_hours": -1})").substr(0, 35),
            "The index is 1 hours old (limit -1)");
}

TEST_F(Freshness, LoadsTheConfigurationWhenNoneIsPassedWithoutWritingIt) {
  home_.configure(R"({"stale_after_hours": 3})");
  EXPECT_TRUE(freshness(home_.index, home_.config, instantAfter(4)).has("warning"));
  home_.remove("mcp-config.json");
  EXPECT_FALSE(freshness(home_.index, home_.config, instantAfter(4)).has("warning"));
  EXPECT_FALSE(home_.folder.has("mcp-config.json"));
}

TEST(WebMeetingsStatus, CopiesWhatIsThereInItsOwnOrder) {
  JSONObject status = objectOf(R"({"age_hours": 1.0})");
  addWebMeetings(status, objectOf(R"({"note": "n", "kind": "left out", "ok": true, "unfinished": 2,
      "at": "t", "connected": true, "merged_into_local": 1, "indexed": 5})"));
  EXPECT_EQ(writeCompact(status),
            R"({"age_hours":1.0,"web_meetings":{"connected":true,"ok":true,"at":"t","indexed":5,)"
            R"("merged_into_local":1,"unfinished":2,"note":"n"}})");
}

TEST(WebMeetingsStatus, AppendsItsWarningWhereThereIsNone) {
  JSONObject status = objectOf(R"({"age_hours": 1.0})");
  addWebMeetings(status, objectOf(R"({"ok": false, "warning": "no network"})"));
  EXPECT_EQ(writeCompact(status),
            R"({"age_hours":1.0,"web_meetings":{"ok":false},"warning":"no network"})");
}

TEST(WebMeetingsStatus, JoinsItsWarningToTheOneThatIsThere) {
  JSONObject status = objectOf(R"({"warning": "old"})");
  addWebMeetings(status, objectOf(R"({"warning": "no network"})"));
  EXPECT_EQ(writeCompact(status), R"({"warning":"old Also: no network","web_meetings":{}})");
}

}  // namespace
}  // namespace velta
