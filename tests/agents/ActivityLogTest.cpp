#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "agents/ActivityLog.h"
#include "agents/Agents.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Files.h"
#include "support/TemporaryFolder.h"
#include "support/TimeZone.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Outcome = ActivityLog::Outcome;

// 2025-06-01T08:15:02Z
Instant fixedClock() { return instantFromSeconds(1748765702); }

// A log in a data home of its own, with what it warned about.
struct LogHome {
  TemporaryFolder folder;
  Config config{folder.path(), {}};
  std::vector<std::string> lines;
  Warnings warnings{[this](std::string_view line) { lines.emplace_back(line); }};
  ActivityLog log{config, fixedClock, warnings};

  std::string text() const { return folder.read("activity.jsonl"); }
};

// The "args" of the record of a call with these arguments, as compact text.
std::string loggedArguments(const std::string& arguments) {
  LogHome home;
  home.log.record("a", "t", *parseJSON(arguments).asObject(), Outcome::ok, std::nullopt);
  return writeCompact(*parseJSON(home.text()).asObject()->get("args"));
}

std::string repeated(const std::string& piece, int times) {
  std::string text;
  for (int i = 0; i < times; ++i) text += piece;
  return text;
}

TEST(ActivityLog, RecordIsOneCompactLineInAFixedOrder) {
  LogHome home;
  home.log.record("claude-code", "get_meeting", {{"meeting_id", "rec-1"}, {"limit", 5}},
                  Outcome::ok, std::nullopt);
  EXPECT_EQ(home.text(),
            R"({"time":"2025-06-01T08:15:02+00:00","agent":"claude-code","tool":"get_meeting",)"
            R"("args":{"meeting_id":"rec-1","limit":5},"status":"ok"})"
            "\n");
  EXPECT_THAT(home.lines, IsEmpty());
}

TEST(ActivityLog, RecordsFollowOneAnother) {
  LogHome home;
  home.log.record("a", "one", {}, Outcome::denied, "no permission");
  home.log.record("b", "two", {}, Outcome::error, "failed");
  EXPECT_EQ(home.text(),
            R"({"time":"2025-06-01T08:15:02+00:00","agent":"a","tool":"one","args":{},)"
            R"("status":"denied","detail":"no permission"})"
            "\n"
            R"({"time":"2025-06-01T08:15:02+00:00","agent":"b","tool":"two","args":{},)"
            R"("status":"error","detail":"failed"})"
            "\n");
}

TEST(ActivityLog, TimeIsUTCWhateverTheZone) {
  const TimeZone zone("Asia/Taipei");
  LogHome home;
  home.log.record("a", "t", {}, Outcome::ok, std::nullopt);
  EXPECT_THAT(home.text(), StartsWith(R"({"time":"2025-06-01T08:15:02+00:00",)"));
}

TEST(ActivityLog, AbsentClientIsUnknownAndAnEmptyOneIsEmpty) {
  LogHome home;
  home.log.record(std::nullopt, "t", {}, Outcome::ok, std::nullopt);
  EXPECT_EQ(parseJSON(home.text()).asObject()->getString("agent"), "unknown");
  LogHome other;
  other.log.record("", "t", {}, Outcome::ok, std::nullopt);
  EXPECT_EQ(parseJSON(other.text()).asObject()->getString("agent"), "");
}

TEST(ActivityLog, LineBreaksInValuesDoNotBreakTheLine) {
  LogHome home;
  home.log.record("a\nb", "t\r\n", {{"k\n", "v\n\u2028"}}, Outcome::error, "d\n");
  EXPECT_EQ(home.text().find('\n'), home.text().size() - 1);
}

TEST(ActivityLog, ToolNameIsLoggedWhole) {
  LogHome home;
  home.log.record("a", std::string(300, 't'), {}, Outcome::error, std::nullopt);
  EXPECT_EQ(parseJSON(home.text()).asObject()->getString("tool"), std::string(300, 't'));
}

// Shortening

TEST(ActivityShortening, TextOfMoreThan80CharactersIsCut) {
  EXPECT_EQ(loggedArguments(R"({"query":")" + repeated("q", 200) + "\"}"),
            R"({"query":")" + repeated("q", 80) + "…\"}");
  EXPECT_EQ(loggedArguments(R"({"query":")" + repeated("q", 81) + "\"}"),
            R"({"query":")" + repeated("q", 80) + "…\"}");
}

TEST(ActivityShortening, TextOf80CharactersStays) {
  const std::string whole = R"({"query":")" + repeated("q", 80) + "\"}";
  EXPECT_EQ(loggedArguments(whole), whole);
}

TEST(ActivityShortening, CharactersAreWhatAPersonCounts) {
  const std::string whole = R"({"query":")" + repeated("👩‍👩‍👧", 80) + "\"}";
  EXPECT_EQ(loggedArguments(whole), whole);
  EXPECT_EQ(loggedArguments(R"({"query":")" + repeated("會", 81) + "\"}"),
            R"({"query":")" + repeated("會", 80) + "…\"}");
  EXPECT_EQ(loggedArguments(R"({"query":")" + repeated("e\u0301", 81) + "\"}"),
            R"({"query":")" + repeated("e\u0301", 80) + "…\"}");
}

TEST(ActivityShortening, ArrayKeepsItsFirstTenElements) {
  EXPECT_EQ(loggedArguments(
                R"({"s":["1","2","3","4","5","6","7","8","9","10","11","12","13","14","15"]})"),
            R"({"s":["1","2","3","4","5","6","7","8","9","10"]})");
}

TEST(ActivityShortening, ElementsAreShortenedByTheSameRules) {
  EXPECT_EQ(
      loggedArguments(R"({"s":[")" + repeated("q", 100) + R"(",1,2.0,true,null,{"a":[1]},[]]})"),
      R"({"s":[")" + repeated("q", 80) + R"(…",1,2.0,true,null,"{\"a\":[1]}",[]]})");
  EXPECT_EQ(loggedArguments(R"({"s":[[1,2,3,4,5,6,7,8,9,10,11,12]]})"),
            R"({"s":[[1,2,3,4,5,6,7,8,9,10]]})");
}

TEST(ActivityShortening, ObjectIsLoggedAsItsText) {
  EXPECT_EQ(loggedArguments(R"({"o": {"b": 1, "a": [1, 2]}})"), R"({"o":"{\"b\":1,\"a\":[1,2]}"})");
  EXPECT_EQ(loggedArguments(R"({"o": {}})"), R"({"o":"{}"})");
}

TEST(ActivityShortening, LongObjectIsCutAt80Characters) {
  const std::string text = R"({"k":")" + repeated("v", 200) + "\"}";
  const JSON args = parseJSON(loggedArguments(R"({"o":)" + text + "}"));
  EXPECT_EQ(args.asObject()->getString("o"), text.substr(0, 80) + "…");
}

TEST(ActivityShortening, BooleansAndNumbersStay) {
  const std::string whole = R"({"a":true,"b":false,"c":-7,"d":1.5,"e":90.0})";
  EXPECT_EQ(loggedArguments(whole), whole);
}

TEST(ActivityShortening, NumbersThatJSONCannotWriteAreNull) {
  EXPECT_EQ(loggedArguments(R"({"a":1e400,"b":[1,-1e400],"c":{"d":1e999}})"),
            R"({"b":[1,null],"c":"{\"d\":null}"})");
}

TEST(ActivityShortening, NullMembersAreLeftOut) {
  EXPECT_EQ(loggedArguments(R"({"query":"q","limit":null,"person":null})"), R"({"query":"q"})");
}

TEST(ActivityShortening, DetailIsCutToo) {
  LogHome home;
  home.log.record("a", "t", {}, Outcome::error, repeated("議", 200));
  EXPECT_EQ(parseJSON(home.text()).asObject()->getString("detail"), repeated("議", 80) + "…");
}

TEST(ActivityShortening, EmptyDetailIsStillADetail) {
  LogHome home;
  home.log.record("a", "t", {}, Outcome::error, "");
  EXPECT_EQ(parseJSON(home.text()).asObject()->getString("detail"), "");
}

TEST(ActivityShortening, NestingMayBeAsDeepAsAClientLikes) {
  const int depth = 300'000;
  const std::string deep = repeated("[", depth) + repeated("]", depth);
  EXPECT_EQ(loggedArguments(R"({"s":)" + deep + "}"), R"({"s":)" + deep + "}");
}

TEST(ActivityShortening, CallersArgumentsAreUntouched) {
  LogHome home;
  const JSONObject arguments = {{"s", JSON::Array(15, JSON(repeated("q", 100)))}, {"n", nullptr}};
  const std::string before = writeCompact(arguments);
  home.log.record("a", "t", arguments, Outcome::ok, std::nullopt);
  EXPECT_EQ(writeCompact(arguments), before);
}

// The file

TEST(ActivityFile, IsReadableForTheUserOnly) {
  LogHome home;
  home.log.record("a", "t", {}, Outcome::ok, std::nullopt);
  EXPECT_EQ(fileStatus(home.folder.file("activity.jsonl"))->permissions, 0600U);
}

TEST(ActivityFile, StandsBesideAgentsFile) {
  LogHome home;
  home.config.env["MEETING_MCP_AGENTS"] = home.folder.file("not/yet/there/agents.json");
  home.log.record("a", "t", {}, Outcome::ok, std::nullopt);
  EXPECT_TRUE(home.folder.has("not/yet/there/activity.jsonl"));
  EXPECT_FALSE(home.folder.has("activity.jsonl"));
}

TEST(ActivityFile, MissingDataHomeIsMade) {
  LogHome home;
  home.config.home = home.folder.file("a/b");
  home.log.record("a", "t", {}, Outcome::ok, std::nullopt);
  EXPECT_TRUE(home.folder.has("a/b/activity.jsonl"));
}

TEST(ActivityFile, RemovedFileIsMadeAgain) {
  LogHome home;
  home.log.record("a", "one", {}, Outcome::ok, std::nullopt);
  fs::remove(home.folder.file("activity.jsonl"));
  home.log.record("a", "two", {}, Outcome::ok, std::nullopt);
  EXPECT_EQ(parseJSON(home.text()).asObject()->getString("tool"), "two");
}

std::string missingLine(const std::string& path, const std::string& cause) {
  return "meeting-notes MCP: could not write the activity log " + path + " (" + cause +
         "); calls still run but the Velta activity list will miss them\n";
}

TEST(ActivityFile, FileWhereTheFolderShouldBeIsOneWarning) {
  LogHome home;
  home.config.home = home.folder.write("file", "x");
  for (int i = 0; i < 3; ++i) home.log.record("a", "t", {}, Outcome::ok, std::nullopt);
  EXPECT_THAT(home.lines,
              ElementsAre(missingLine(home.folder.file("file/activity.jsonl"), "Not a directory")));
  EXPECT_EQ(home.folder.read("file"), "x");
}

TEST(ActivityFile, EachKindOfFailureIsOneWarning) {
  LogHome home;
  const std::string log = home.folder.file("activity.jsonl");
  home.folder.makeFolder("activity.jsonl");
  for (int i = 0; i < 2; ++i) home.log.record("a", "t", {}, Outcome::ok, std::nullopt);
  fs::remove(log);
  fs::create_symlink("/dev/full", log);
  for (int i = 0; i < 2; ++i) home.log.record("a", "t", {}, Outcome::ok, std::nullopt);
  if (!fileStatus("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  EXPECT_THAT(home.lines, ElementsAre(missingLine(log, "Is a directory"),
                                      missingLine(log, "No space left on device")));
}

TEST(ActivityFile, LoggingGoesOnOnceTheCauseIsGone) {
  LogHome home;
  home.folder.makeFolder("activity.jsonl");
  home.log.record("a", "lost", {}, Outcome::ok, std::nullopt);
  fs::remove(home.folder.file("activity.jsonl"));
  home.log.record("a", "kept", {}, Outcome::ok, std::nullopt);
  EXPECT_THAT(home.text(), ::testing::HasSubstr("\"kept\""));
}

TEST(Agents, RecordWritesToTheActivityLog) {
  LogHome home;
  Agents agents(home.config, fixedClock, home.warnings);
  agents.record("a", "add_term", {{"term", "會議"}}, Agents::Outcome::denied, "refused");
  EXPECT_EQ(home.text(), R"({"time":"2025-06-01T08:15:02+00:00","agent":"a","tool":"add_term",)"
                         R"("args":{"term":"會議"},"status":"denied","detail":"refused"})"
                         "\n");
}

// Several servers share one log.
constexpr int kServers = 8;
constexpr int kRecordsEach = 500;

[[noreturn]] void serveAndLog(LogHome& home, int server) {
  for (int i = 0; i < kRecordsEach; ++i) {
    // Records of very different lengths, so that a torn one would show.
    home.log.record(std::to_string(server), std::to_string(i),
                    {{"query", repeated("會議", i % 60)}, {"n", JSON::Array(10, JSON(i))}},
                    Outcome::ok, std::nullopt);
  }
  ::_exit(home.lines.empty() ? 0 : 1);
}

TEST(ActivityFile, RecordsOfSeveralProcessesAreAllWhole) {
  LogHome home;
  std::vector<pid_t> servers;
  for (int server = 0; server < kServers; ++server) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) serveAndLog(home, server);
    servers.push_back(child);
  }
  for (const pid_t server : servers) {
    int status = -1;
    ASSERT_EQ(::waitpid(server, &status, 0), server);
    EXPECT_EQ(status, 0);
  }

  std::set<std::pair<std::string, std::string>> seen;
  std::map<std::string, int> last;  // of each server, the records come in order
  const std::string text = home.text();
  std::size_t count = 0;
  for (std::size_t at = 0; at < text.size(); ++count) {
    const std::size_t end = text.find('\n', at);
    ASSERT_NE(end, std::string::npos);
    const JSON record = parseJSON(std::string_view(text).substr(at, end - at));
    ASSERT_NE(record.asObject(), nullptr);
    EXPECT_THAT(record.asObject()->keys(), ElementsAre("time", "agent", "tool", "args", "status"));
    const std::string agent(record.asObject()->getString("agent").value());
    const std::string number(record.asObject()->getString("tool").value());
    seen.emplace(agent, number);
    EXPECT_EQ(std::stoi(number), last[agent]++);
    at = end + 1;
  }
  EXPECT_EQ(count, std::size_t{kServers} * kRecordsEach);
  EXPECT_EQ(seen.size(), count);
}

}  // namespace
}  // namespace velta
