// Sessions with clients and surroundings that do not behave.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "session/Calls.h"
#include "support/DataHome.h"
#include "support/ServerProcess.h"

namespace velta {
namespace {

using test::DataHome;
using test::onHome;
using test::runProgram;
using test::ServerProcess;
using test::toolCall;
using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

const std::string kParseError =
    R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error"}})";

std::string pingOf(const std::string& id) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"method":"ping"})";
}

std::string pongOf(const std::string& id) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":{}})";
}

// A recording with `lines` lines of text.
void addRecording(const DataHome& home, const std::string& folder, int lines = 1) {
  std::string notes = R"({"title":")" + folder +
                      R"(","started_at":"2026-10-12T15:30:00+08:00","speakers":[],"lines":[)";
  for (int i = 0; i < lines; ++i)
    notes += std::string(i ? "," : "") + R"({"speaker":"Arlo","text":"deposit )" +
             std::string(200, 'x') + "\"}";
  home.write("recordings/" + folder + "/notes.json", notes + "]}");
}

void letReadTranscripts(const DataHome& home) {
  home.write("agents.json", R"({"agents":{"claude-code":{"tools":{"read_transcripts":true}}}})");
}

std::int64_t meetingCount(ServerProcess& server) {
  const JSON answer = parseJSON(server.ask(toolCall("list_meetings")));
  return answer.asObject()
      ->getObject("result")
      ->getObject("structuredContent")
      ->getInt("count")
      .value();
}

// input

TEST(HostileSession, IllFormedUTF8IsRepairedInStringsAndRefusedOutside) {
  const DataHome home;
  ServerProcess server(onHome(home));
  EXPECT_EQ(server.ask(pingOf("\"\xff\xfe\xe9\x9b\"")), pongOf("\"\uFFFD\uFFFD\uFFFD\""));
  EXPECT_EQ(server.ask("\xff\xfe{}"), kParseError);
  EXPECT_EQ(server.ask(std::string("\0\0", 2)), kParseError);
  EXPECT_EQ(server.finish().status, 0);
}

TEST(HostileSession, LineOfTenMegabytesIsAnswered) {
  const DataHome home;
  ServerProcess server(onHome(home));
  std::string id = "\"";
  id.resize(10'000'000, 'a');
  id += '"';
  EXPECT_TRUE(server.ask(pingOf(id)) == pongOf(id));
  const std::string call =
      server.ask(toolCall("search_transcripts", R"({"query":)" + id + R"(,"limit":[]})"));
  EXPECT_THAT(call.substr(0, 200), HasSubstr("argument limit must be an integer, got []"));
  EXPECT_EQ(server.ask(pingOf("1")), pongOf("1"));
}

TEST(HostileSession, MillionBracketsDoNotKillIt) {
  const DataHome home;
  ServerProcess server(onHome(home));
  const std::string open(1'000'000, '[');
  const std::string close(1'000'000, ']');
  EXPECT_EQ(server.ask(open), kParseError);
  EXPECT_EQ(server.ask(open + close), kParseError);
  EXPECT_TRUE(server.ask(pingOf(open + close)) == pongOf(open + close));
  EXPECT_THAT(server.ask(toolCall("list_meetings", R"({"query":)" + open + close + "}")),
              HasSubstr("argument query must be a string, got [[[["));
  EXPECT_EQ(server.ask(pingOf("1")), pongOf("1"));
  EXPECT_EQ(server.finish().status, 0);
}

TEST(HostileSession, MillionNestedObjectsDoNotKillIt) {
  const DataHome home;
  ServerProcess server(onHome(home));
  std::string nested;
  for (int i = 0; i < 1'000'000; ++i) nested += R"({"a":)";
  nested += "1" + std::string(1'000'000, '}');
  EXPECT_TRUE(server.ask(pingOf(nested)) == pongOf(nested));
  EXPECT_EQ(server.finish().status, 0);
}

TEST(HostileSession, TenThousandRequestsInOneWriteAreAnsweredInOrder) {
  const DataHome home;
  ServerProcess server(onHome(home));
  std::string requests;
  for (int i = 0; i < 10'000; ++i) requests += pingOf(std::to_string(i)) + "\n";
  ASSERT_TRUE(server.write(requests));
  for (int i = 0; i < 10'000; ++i) ASSERT_EQ(server.readLine(), pongOf(std::to_string(i)));
  EXPECT_EQ(server.finish().output, "");
}

TEST(HostileSession, LineThatArrivesByteByByteIsOneLine) {
  const DataHome home;
  ServerProcess server(onHome(home));
  for (const char byte : pingOf("1") + "\r\n") server.write(std::string(1, byte));
  EXPECT_EQ(server.readLine(), pongOf("1"));
}

TEST(HostileSession, HalfALineAtTheEndOfInputIsAnsweredLikeALine) {
  const DataHome home;
  const auto whole = runProgram(onHome(home), pingOf("1"));
  EXPECT_EQ(whole.output, pongOf("1") + "\n");
  EXPECT_EQ(whole.status, 0);
  const auto half = runProgram(onHome(home), pingOf("1").substr(0, 20));
  EXPECT_EQ(half.output, kParseError + "\n");
  EXPECT_EQ(half.status, 0);
}

TEST(HostileSession, BatchesAreParseErrorsAndNullIdsAreNotAnswered) {
  const DataHome home;
  ServerProcess server(onHome(home));
  EXPECT_EQ(server.ask("[" + pingOf("1") + "," + pingOf("2") + "]"), kParseError);
  server.writeLine(pingOf("null"));
  server.writeLine(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
  server.writeLine("\t \r");
  EXPECT_EQ(server.ask(pingOf("3")), pongOf("3"));
}

TEST(HostileSession, EveryAnswerIsOneLineWhateverTheArgumentsHold) {
  const DataHome home;
  ServerProcess server(onHome(home));
  const std::string answer = server.ask(toolCall(R"(no\nsuch\r\u2028tool)"));
  EXPECT_THAT(answer, HasSubstr(R"(Unknown tool: no\nsuch\r)"));
  EXPECT_EQ(server.ask(pingOf("1")), pongOf("1"));
}

// the other ends

TEST(HostileSession, ClientThatClosesItsEndInMidAnswerEndsTheServerWithStatusZero) {
  const DataHome home;
  letReadTranscripts(home);
  addRecording(home, "long", 1000);
  ServerProcess server(onHome(home));
  // Far more than a pipe holds, of which the client takes one line and goes.
  std::string requests = pingOf("1") + "\n";
  for (int i = 0; i < 50; ++i)
    requests += toolCall("search_transcripts", R"({"query":"deposit","limit":200})") + "\n";
  server.write(requests);
  EXPECT_EQ(server.readLine(), pongOf("1"));
  server.closeOutput();
  const auto ending = server.wait();  // its input is still open: it ends by itself
  EXPECT_EQ(ending.signal, 0);
  EXPECT_EQ(ending.status, 0);
}

TEST(HostileSession, ClientThatIsGoneBeforeTheFirstAnswerEndsTheServerWithStatusZero) {
  const DataHome home;
  ServerProcess server(onHome(home));
  server.closeOutput();
  server.writeLine(pingOf("1"));
  const auto ending = server.wait();
  EXPECT_EQ(ending.signal, 0);
  EXPECT_EQ(ending.status, 0);
}

TEST(HostileSession, StandardErrorThatNobodyReadsDoesNotStallTheProtocol) {
  const DataHome home;
  std::string sources;
  for (int i = 0; i < 500; ++i)
    sources += std::string(i ? "," : "") + R"({"type":"unknown-)" + std::to_string(i) + "\"}";
  home.write("mcp-config.json", "{\"sources\":[" + sources + "]}");
  auto options = onHome(home);
  options.errors = ServerProcess::Errors::unread;
  const auto started = std::chrono::steady_clock::now();
  ServerProcess server(options);
  EXPECT_EQ(server.ask(pingOf("1")), pongOf("1"));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
  EXPECT_THAT(server.ask(toolCall("list_meetings")), HasSubstr("The index is empty."));
  EXPECT_EQ(server.finish().status, 0);
}

TEST(HostileSession, ClosedStandardErrorIsBorne) {
  const DataHome home;
  auto options = onHome(home);
  options.errors = ServerProcess::Errors::closed;
  ServerProcess server(options);
  EXPECT_EQ(server.ask(pingOf("1")), pongOf("1"));
  EXPECT_EQ(server.finish().status, 0);
}

// files

TEST(HostileSession, DataHomeThatCannotBeWrittenIsServedAllTheSame) {
  if (::geteuid() == 0) {
    // Root writes anywhere but where a file stands in place of a folder.
    const DataHome home;
    home.write("file", "");
    auto options = onHome(home);
    options.environment["MEETING_NOTES_HOME"] = home.file("file/home");
    ServerProcess server(options);
    EXPECT_THAT(server.ask(toolCall("list_meetings")), HasSubstr("The index is empty."));
    EXPECT_THAT(server.ask(toolCall("list_meetings")), HasSubstr("The index is empty."));
    const auto ending = server.finish();
    EXPECT_EQ(ending.status, 0);
    const std::string warning = "could not write the activity log";
    const auto first = ending.errors.find(warning);
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(ending.errors.find(warning, first + 1), std::string::npos) << "warned once";
    return;
  }
  const DataHome home;
  addRecording(home, "one");
  ::chmod(home.path().c_str(), 0555);
  ServerProcess server(onHome(home));
  EXPECT_EQ(meetingCount(server), 1);
  EXPECT_EQ(meetingCount(server), 1);
  EXPECT_EQ(server.finish().status, 0);
  ::chmod(home.path().c_str(), 0755);
}

TEST(HostileSession, FifosInPlaceOfFilesHoldNothingUp) {
  const DataHome home;
  addRecording(home, "one");
  home.write("recordings/two/session.json", "{}");
  for (const char* name : {"activity.jsonl", "agents.json", "recordings/two/notes.json"})
    ASSERT_EQ(::mkfifo(home.file(name).c_str(), 0600), 0);
  ServerProcess server(onHome(home));
  EXPECT_EQ(meetingCount(server), 1);
  const auto ending = server.finish();
  EXPECT_EQ(ending.status, 0);
  EXPECT_THAT(ending.errors, HasSubstr("could not write the activity log"));
  EXPECT_THAT(ending.errors, HasSubstr("two/notes.json is not a JSON object"));
}

TEST(HostileSession, NumbersBeyondADoubleSpoilNoAnswer) {
  const DataHome home;
  home.write("recordings/one/notes.json",
             R"({"title":"huge","duration_sec":1e400,"started_at":"2026-10-12T15:30:00+08:00",)"
             R"("decisions":[{"text":"deposit","t":-1e400}],)"
             R"("lines":[{"text":"deposit","t_start":1e400,"t_end":-1e999}]})");
  letReadTranscripts(home);
  ServerProcess server(onHome(home));
  EXPECT_THAT(server.ask(toolCall("list_meetings")), HasSubstr(R"("duration_sec":null)"));
  const std::string hits = server.ask(toolCall("search_transcripts", R"({"query":"deposit"})"));
  EXPECT_THAT(hits, HasSubstr(R"("count":2)"));
  EXPECT_THAT(hits, testing::Not(HasSubstr("Infinity")));
}

TEST(HostileSession, NotesNestedTooDeeplyAreAnErrorAndNotGigabytesOfBlanks) {
  const DataHome home;
  home.write("recordings/deep/notes.json", R"({"title":"deep","summary":)" +
                                               std::string(100'000, '[') +
                                               std::string(100'000, ']') + "}");
  ServerProcess server(onHome(home));
  EXPECT_THAT(server.ask(toolCall("get_meeting", R"({"id":"rec-deep"})")),
              HasSubstr("Error executing tool get_meeting: nested too deeply"));
  EXPECT_THAT(server.ask(toolCall("get_meeting", R"({"id":"rec-deep","sections":["verdict"]})")),
              HasSubstr(R"("isError":false)"));
  server.finish();
  EXPECT_THAT(home.lines("activity.jsonl"), SizeIs(2));
}

TEST(HostileSession, NoReindexLeavesTheFirstReadCallToRefresh) {
  const DataHome home;
  addRecording(home, "one");
  auto options = onHome(home);
  options.arguments.emplace_back("--no-reindex");
  ServerProcess server(options);
  EXPECT_EQ(server.ask(pingOf("1")), pongOf("1"));
  EXPECT_THAT(server.errorsSoFar(), Not(HasSubstr("index refreshed")));
  EXPECT_EQ(meetingCount(server), 1);
}

TEST(HostileSession, AgentsFileIsReadOnEveryCall) {
  const DataHome home;
  addRecording(home, "one");
  ServerProcess server(onHome(home));
  EXPECT_EQ(meetingCount(server), 1);
  home.write("agents.json", R"({"agents":{"claude-code":{"scope":"tagged"}}})");
  EXPECT_EQ(meetingCount(server), 0);
  home.write("agents.json", R"({"agents":{"claude-code":{"tools":{"search_meetings":false}}}})");
  EXPECT_THAT(server.ask(toolCall("list_meetings")), HasSubstr("is turned off for agent"));
  home.write("agents.json", "{");
  EXPECT_EQ(meetingCount(server), 1);
  home.remove("agents.json");
  EXPECT_EQ(meetingCount(server), 1);
}

TEST(HostileSession, BrokenAgentsFileIsWarnedAboutOnce) {
  const DataHome home;
  home.write("agents.json", "[]");
  ServerProcess server(onHome(home));
  for (int i = 0; i < 3; ++i) server.ask(toolCall("no_such_tool"));
  const std::string errors = server.finish().errors;
  EXPECT_THAT(errors, StartsWith("meeting-notes MCP: " + home.file("agents.json") +
                                 " is broken (top level must be "));
  EXPECT_EQ(errors.find("is broken", errors.find("is broken") + 1), std::string::npos);
}

TEST(HostileSession, SeveralServersAtOnceKeepEveryLineOfTheLogWhole) {
  const DataHome home;
  addRecording(home, "one");
  constexpr int kServers = 4;
  constexpr int kCalls = 100;
  std::vector<std::unique_ptr<ServerProcess>> servers;
  servers.reserve(kServers);
  for (int i = 0; i < kServers; ++i)
    servers.push_back(std::make_unique<ServerProcess>(onHome(home)));
  std::string requests;
  for (int i = 0; i < kCalls; ++i) requests += toolCall("list_meetings") + "\n";
  for (const auto& server : servers) server->write(requests);
  for (const auto& server : servers) {
    for (int i = 0; i < kCalls; ++i)
      ASSERT_THAT(server->readLine().value_or("nothing"), HasSubstr(R"("isError":false)"));
    EXPECT_EQ(server->finish().status, 0);
  }
  const auto log = home.lines("activity.jsonl");
  EXPECT_THAT(log, SizeIs(kServers * kCalls));
  EXPECT_THAT(log,
              Each(AllOf(StartsWith(R"({"time":")"), testing::EndsWith("\"status\":\"ok\"}"))));
}

}  // namespace
}  // namespace velta
