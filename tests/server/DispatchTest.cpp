#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "server/Dispatch.h"
#include "server/TestServer.h"
#include "support/TimeZone.h"

namespace velta {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;
using test::TestServer;
using test::TestServerWithMeeting;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::string_view kListChanged =
    R"({"jsonrpc":"2.0","method":"notifications/tools/list_changed"})";

constexpr std::string_view kEverything =
    R"({"tools":{"search_meetings":true,"read_notes":true,"read_transcripts":true,)"
    R"("process_recordings":true,"add_terms":true}})";

std::int64_t meetingCount(TestServer& server) {
  return server.success("list_meetings").getInt("count").value();
}

// --- envelopes
// -------------------------------------------------------------------------------------

TEST(Dispatch, TextOfASuccessIsTheStructuredContentIndentedByTwo) {
  TestServerWithMeeting server;
  const JSONObject envelope = server.call("list_meetings");
  EXPECT_THAT(envelope.keys(), ElementsAre("content", "isError", "structuredContent"));
  EXPECT_EQ(envelope.getBool("isError"), false);
  const JSON::Array& content = *envelope.getArray("content");
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_THAT(content[0].asObject()->keys(), ElementsAre("text", "type"));
  EXPECT_EQ(content[0].asObject()->getString("type"), "text");
  EXPECT_EQ(TestServer::textOf(envelope),
            writeIndented(*envelope.getObject("structuredContent"), 2));
}

TEST(Dispatch, FailureHoldsItsMessageAndNoStructuredContent) {
  TestServer server;
  EXPECT_EQ(writeCompact(server.call("no_such_tool")),
            R"({"content":[{"text":"Unknown tool: no_such_tool","type":"text"}],"isError":true})");
}

// --- names
// -----------------------------------------------------------------------------------------

TEST(Dispatch, CallWithoutANameIsAnUnknownToolWithAnEmptyName) {
  TestServer server;
  for (const std::string params : {"{}", R"({"name":5})", R"({"name":""})"})
    EXPECT_EQ(writeCompact(server.result("tools/call", params)),
              R"({"content":[{"text":"Unknown tool: ","type":"text"}],"isError":true})");
}

TEST(Dispatch, EveryToolOfTheCatalogueHasAHandler) {
  TestServerWithMeeting server;
  server.setAgent(std::string(kEverything));
  for (const std::string_view tool : kToolNames)
    EXPECT_THAT(TestServer::textOf(server.call(std::string(tool))), Not(HasSubstr("Unknown tool")))
        << tool;
}

TEST(Dispatch, MessageThatQuotesANulByteIsWhole) {
  TestServer server;
  server.setAgent(std::string(kEverything));
  const std::string nul(1, '\0');
  EXPECT_EQ(server.failure("get_job", R"({"id":"job-1\u0000"})"),
            "Error executing tool get_job: No job job-1" + nul +
                ". Next step: start one with process_recording");
  EXPECT_EQ(server.failure("process_recording", R"({"path":"\u0000"})"),
            "Error executing tool process_recording: No file at " + nul +
                ". Pass an absolute path to an audio file");
}

TEST(Dispatch, AdminToolIsNotEnabledWithoutAdminStats) {
  TestServer server;
  EXPECT_EQ(server.failure("velta_admin_stats"),
            "Error executing tool velta_admin_stats: velta_admin_stats is not enabled on this "
            "server. It exists only when the server starts with --admin-stats");
}

// --- the gate
// --------------------------------------------------------------------------------------

TEST(Dispatch, ToolWithoutItsPermissionIsRefusedAndLogged) {
  TestServer server;
  const std::string refusal =
      "get_transcript is turned off for agent 'claude-code': it needs the permission "
      "read_transcripts (Read full transcripts). Next step: ask the user to turn it on for this "
      "agent in Velta settings (agents.json at " +
      server.home.file("agents.json") + "); do not retry until they do";
  EXPECT_EQ(server.failure("get_transcript"), refusal);
  ASSERT_THAT(server.log(), SizeIs(1));
  const JSON logged = parseJSON(server.log().front());
  EXPECT_THAT(logged.asObject()->keys(),
              ElementsAre("time", "agent", "tool", "args", "status", "detail"));
  EXPECT_EQ(logged.asObject()->getString("status"), "denied");
}

TEST(Dispatch, RefusalWithoutAClientNamesTheAgentUnknown) {
  TestServer server(std::nullopt);
  EXPECT_THAT(server.failure("add_term"),
              StartsWith("add_term is turned off for agent 'unknown': it needs the permission "
                         "add_terms (Add words to your word list). "));
}

TEST(Dispatch, PermissionGivenBetweenTwoCallsOpensTheGate) {
  TestServer server;
  EXPECT_THAT(server.failure("add_term"), HasSubstr("is turned off for agent"));
  server.setAgent(R"({"tools":{"add_terms":true}})");
  EXPECT_EQ(server.failure("add_term"),
            "Error executing tool add_term: argument wrong is required");
  server.setAgent("{}");
  EXPECT_THAT(server.failure("add_term"), HasSubstr("is turned off for agent"));
}

TEST(Dispatch, GateComesBeforeTheRefresh) {
  TestServer server;
  server.setAgent(R"({"tools":{"search_meetings":false}})");
  server.home.write("mcp-config.json", R"({"sources":[{"type":"web"}]})");
  server.failure("list_meetings");
  EXPECT_THAT(server.diagnostics, IsEmpty());
}

TEST(Dispatch, PathOfUndecodableBytesStillMakesAWellFormedAnswer) {
  TestServer server("claude-code", false, {{"MEETING_MCP_AGENTS", "/no/such\xff/agents.json"}});
  EXPECT_THAT(server.answer(R"({"id":1,"method":"tools/call","params":{"name":"add_term"}})"),
              HasSubstr("(agents.json at /no/such\uFFFD/agents.json)"));
}

// --- list change
// -----------------------------------------------------------------------------------

TEST(Dispatch, ChangedToolsAreToldOnceBeforeTheAnswerUntilTheClientListsAgain) {
  TestServer server;
  server.result("tools/list");
  EXPECT_THAT(server.linesOfCall("no_such_tool"), SizeIs(1));

  server.setAgent(R"({"tools":{"add_terms":true}})");
  const auto lines = server.linesOfCall("no_such_tool");
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0], kListChanged);
  EXPECT_THAT(lines[1], StartsWith(R"({"jsonrpc":"2.0","id":1,"result":)"));

  EXPECT_THAT(server.linesOfCall("no_such_tool"), SizeIs(1));
  server.setAgent("{}");
  EXPECT_THAT(server.linesOfCall("no_such_tool"), SizeIs(1));

  server.result("tools/list");
  server.setAgent(R"({"tools":{"add_terms":true}})");
  EXPECT_THAT(server.linesOfCall("no_such_tool"), SizeIs(2));
}

TEST(Dispatch, ChangedToolsAreNotToldToAClientThatNeverListed) {
  TestServer server;
  server.linesOfCall("no_such_tool");
  server.setAgent(R"({"tools":{"add_terms":true}})");
  EXPECT_THAT(server.linesOfCall("no_such_tool"), SizeIs(1));
}

TEST(Dispatch, ChangedToolsAreToldInCallsOnly) {
  TestServer server;
  server.result("tools/list");
  server.setAgent(R"({"tools":{"add_terms":true}})");
  EXPECT_THAT(server.handle(R"({"id":1,"method":"ping"})"), SizeIs(1));
  EXPECT_THAT(server.linesOfCall("no_such_tool"), SizeIs(2));
}

TEST(Dispatch, ChangeThatLeavesTheToolsAloneIsNotTold) {
  TestServer server;
  server.result("tools/list");
  server.setAgent(R"({"scope":"tagged","tools":{"read_notes":true}})");
  EXPECT_THAT(server.linesOfCall("no_such_tool"), SizeIs(1));
}

TEST(Dispatch, RefusedCallTellsTheChangeToo) {
  TestServer server;
  server.result("tools/list");
  server.setAgent(R"({"tools":{"search_meetings":false}})");
  const auto lines = server.linesOfCall("list_meetings");
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0], kListChanged);
  EXPECT_THAT(lines[1], HasSubstr("is turned off for agent"));
}

// --- arguments
// -------------------------------------------------------------------------------------

TEST(Dispatch, ArgumentOfAnotherKindFailsTheCall) {
  TestServerWithMeeting server;
  EXPECT_EQ(server.failure("list_meetings", R"({"limit":5.5})"),
            "Error executing tool list_meetings: argument limit must be an integer, got 5.5");
  EXPECT_EQ(server.failure("list_meetings", R"({"query":["x"]})"),
            R"(Error executing tool list_meetings: argument query must be a string, got ["x"])");
  EXPECT_EQ(server.failure("search_transcripts", R"({"query":"x","include_digest":"maybe"})"),
            "Error executing tool search_transcripts: argument include_digest must be a boolean, "
            "got \"maybe\"");
}

TEST(Dispatch, MissingQueryFailsTheSearch) {
  TestServerWithMeeting server;
  EXPECT_EQ(server.failure("search_transcripts"),
            "Error executing tool search_transcripts: argument query is required");
}

TEST(Dispatch, ToolsOfOneMeetingRefuseArgumentsOfAnotherKind) {
  TestServerWithMeeting server;
  server.setAgent(std::string(kEverything));
  const struct {
    std::string tool;
    std::string arguments;
    std::string message;
  } cases[] = {
      {"get_meeting", "{}", "argument id is required"},
      {"get_meeting", R"({"id":5})", "argument id must be a string, got 5"},
      {"get_meeting", R"({"id":"x","sections":"summary"})",
       "argument sections must be a list of strings, got \"summary\""},
      {"get_meeting", R"({"id":"x","sections":["summary",5]})",
       "argument sections must be a list of strings, got [\"summary\",5]"},
      {"get_transcript", R"({"from_sec":1})", "argument id is required"},
      {"get_transcript", R"({"id":"x","from_sec":"1:05"})",
       "argument from_sec must be a number, got \"1:05\""},
      {"get_transcript", R"({"id":"x","to_sec":true})",
       "argument to_sec must be a number, got true"},
      {"get_transcript", R"({"id":"x","limit":1.5})", "argument limit must be an integer, got 1.5"},
      {"get_person", "{}", "argument name is required"},
      {"get_person", R"({"name":null})", "argument name is required"},
      {"get_person", R"({"name":"","date_from":5})", "argument date_from must be a string, got 5"},
      {"get_person", R"({"name":""})", "name is empty"},
      {"add_term", R"({"wrong":"a"})", "argument right is required"},
      {"add_term", R"({"wrong":"a","right":["b"]})",
       "argument right must be a string, got [\"b\"]"},
      {"add_term", R"({"wrong":"a","right":"b","tier":1})",
       "argument tier must be a string, got 1"},
      {"add_term", R"({"wrong":"a","right":"b","tier":"Auto"})",
       "tier must be auto or hint, got 'Auto'"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(server.failure(c.tool, c.arguments),
              "Error executing tool " + c.tool + ": " + c.message);
  EXPECT_FALSE(server.home.has("dictionary.json"));
}

TEST(Dispatch, ToolsOfOneMeetingTakeTheirArguments) {
  TestServerWithMeeting server;
  server.setAgent(std::string(kEverything));
  EXPECT_EQ(
      server.success("get_meeting", R"({"id":"rec-weekly","sections":["decisions"]})").keys(),
      (std::vector<std::string>{"id", "title", "date", "started_at", "duration_sec", "source",
                                "visibility", "tags", "index", "decisions", "transcript_lines"}));
  const auto lines = [&](const std::string& more) {
    return server.success("get_transcript", R"({"id":"rec-weekly")" + more + "}").getInt("count");
  };
  EXPECT_EQ(lines(""), 1);
  EXPECT_EQ(lines(R"(,"from_sec":"5","to_sec":5.0,"limit":"7")"), 1);
  EXPECT_EQ(lines(R"(,"from_sec":5.5,"to_sec":null)"), 0);
  EXPECT_EQ(lines(R"(,"to_sec":4)"), 0);
  EXPECT_EQ(server.success("get_person", R"({"name":"Arlo","date_from":"","date_to":null})")
                .getInt("meeting_count"),
            0);  // nobody of that name takes part
}

TEST(Dispatch, OrderOfAReadIsArgumentsThenEmptyNameThenFreshnessThenTheMeeting) {
  TestServer server;  // its index is empty
  server.setAgent(std::string(kEverything));
  for (const std::string tool : {"get_meeting", "get_transcript"}) {
    EXPECT_THAT(server.failure(tool), HasSubstr("argument id is required"));
    EXPECT_THAT(server.failure(tool, R"({"id":"x"})"), HasSubstr("The index is empty. "));
  }
  EXPECT_THAT(server.failure("get_person", R"({"name":""})"), HasSubstr("name is empty"));
  EXPECT_THAT(server.failure("get_person", R"({"name":"x"})"), HasSubstr("The index is empty. "));
}

TEST(Dispatch, HiddenMeetingAndMissingMeetingAreAnsweredAlikeToTheByte) {
  const std::string agent =
      R"({"tools":{"read_transcripts":true},"scope":"tagged","hide_private":false})";
  TestServerWithMeeting hidden;  // its meeting has no tag "agents"
  hidden.setAgent(agent);
  TestServerWithMeeting missing;
  missing.addMeeting("other");
  missing.home.remove("recordings/weekly");
  missing.setAgent(agent);
  for (const std::string tool : {"get_meeting", "get_transcript"}) {
    const std::string answer = writeCompact(hidden.call(tool, R"({"id":"rec-weekly"})"));
    EXPECT_EQ(answer, writeCompact(missing.call(tool, R"({"id":"rec-weekly"})")));
    EXPECT_EQ(answer, R"({"content":[{"text":"Error executing tool )" + tool +
                          R"(: No meeting with id 'rec-weekly' is available to this client. Next )"
                          R"(step: call list_meetings to get valid ids","type":"text"}],)"
                          R"("isError":true})");
  }
}

TEST(Dispatch, FinishedJobOfAMeetingThatTheAgentMayNotSeeFailsTheCall) {
  TestServerWithMeeting server;
  server.home.write("recordings/weekly/status.json", R"({"step":"done"})");
  server.home.write("jobs/job-1.json",
                    R"({"id":"job-1","pid":0,"meeting_id":"rec-weekly","folder":")" +
                        server.home.file("recordings/weekly") + R"("})");
  server.setAgent(R"({"tools":{"process_recordings":true},"hide_private":false})");
  const JSONObject job = server.success("get_job", R"({"id":"job-1"})");
  EXPECT_EQ(job.getString("meeting_id"), "rec-weekly");
  EXPECT_EQ(job.getString("next"), "Call get_meeting with meeting_id");
  server.setAgent(R"({"tools":{"process_recordings":true},"scope":"tagged"})");
  EXPECT_EQ(server.failure("get_job", R"({"id":"job-1"})"),
            "Error executing tool get_job: No meeting with id 'rec-weekly' is available to this "
            "client. Next step: call list_meetings to get valid ids");
}

TEST(Dispatch, AddedTermIsKeptWithTheLocalTimeAndTheClientsName) {
  const TimeZone zone("Asia/Taipei");
  TestServer server;
  server.setAgent(std::string(kEverything));
  EXPECT_EQ(server.success("add_term", R"({"wrong":"蝶沙","right":"碟煞"})").getBool("created"),
            true);
  const JSON dictionary = parseJSON(server.home.read("dictionary.json"));
  EXPECT_EQ(writeCompact(dictionary.asObject()->getArray("terms")->front()),
            R"({"wrong":"蝶沙","right":"碟煞","tier":"hint",)"
            R"("updated_at":"2026-10-24T08:00:00+0800","updated_by":"mcp:claude-code"})");
}

TEST(Dispatch, NameOfAnIndexedMeetingIsNoAutomaticTerm) {
  TestServerWithMeeting server;
  server.home.write("recordings/weekly/notes.json",
                    R"({"title":"Weekly","speakers":[{"name":"Zhang Yi"}]})");
  server.setAgent(std::string(kEverything));
  server.get().start(/*reindex=*/true);
  EXPECT_THAT(server.failure("add_term", R"({"wrong":"zhang yi","right":"x","tier":"auto"})"),
              HasSubstr("Refused as auto: 'zhang yi' is a person name in your speaker list or "
                        "meetings. "));
}

TEST(Dispatch, ArgumentsThatAreNoObjectCountAsNone) {
  TestServerWithMeeting server;
  const JSONObject envelope =
      server.result("tools/call", R"({"name":"list_meetings","arguments":[5]})");
  EXPECT_EQ(envelope.getBool("isError"), false);
}

TEST(Dispatch, LimitAsTextIsServed) {
  TestServerWithMeeting server;
  server.addMeeting("second");
  EXPECT_EQ(server.success("list_meetings", R"({"limit":"1"})").getInt("count"), 1);
  EXPECT_EQ(server.success("list_meetings", R"({"limit":1.0})").getInt("count"), 1);
}

TEST(Dispatch, EmptyOptionalTextsFilterNothing) {
  TestServerWithMeeting server;
  const JSONObject found = server.success(
      "list_meetings", R"({"query":"","person":"","date_from":"","date_to":"","limit":null})");
  EXPECT_EQ(found.getInt("count"), 1);
}

TEST(Dispatch, EveryFilterNarrowsWhatIsFound) {
  TestServerWithMeeting server;
  server.home.write("recordings/weekly/notes.json",
                    R"({"title":"Weekly","started_at":"2026-10-12T15:30:00+08:00",
                        "lines":[{"speaker":"Arlo","text":"deposit"}],
                        "speakers":[{"name":"Mei"}]})");
  server.setAgent(std::string(kEverything));
  const struct {
    std::string filter;
    bool finds;
  } dates[] = {{R"("date_from":"2026-10-12")", true},
               {R"("date_from":"2026-10-13")", false},
               {R"("date_to":"2026-10-12")", true},
               {R"("date_to":"2026-10-11")", false}};
  const auto expectCount = [&](const std::string& tool, const std::string& arguments,
                               std::string_view counter, bool finds) {
    EXPECT_EQ(server.success(tool, "{" + arguments + "}").getInt(counter), finds ? 1 : 0)
        << tool << arguments;
  };
  for (const auto& [filter, finds] : dates) {
    expectCount("list_meetings", filter, "count", finds);
    expectCount("search_transcripts", R"("query":"deposit",)" + filter, "count", finds);
    expectCount("get_person", R"("name":"Mei",)" + filter, "meeting_count", finds);
  }
  expectCount("list_meetings", R"("query":"weekly")", "count", true);
  expectCount("list_meetings", R"("query":"monthly")", "count", false);
  expectCount("list_meetings", R"("person":"mei")", "count", true);
  expectCount("list_meetings", R"("person":"joan")", "count", false);
  expectCount("search_transcripts", R"("query":"deposit","speaker":"arlo")", "count", true);
  expectCount("search_transcripts", R"("query":"deposit","speaker":"mei")", "count", false);
}

TEST(Dispatch, RecordingInALanguageThatThePipelineDoesNotTakeIsRefused) {
  TestServer server("claude-code", false, {{"VELTA_REPO", "/nowhere"}});
  server.setAgent(std::string(kEverything));
  const auto refusal = [&](const std::string& language) {
    return server.failure("process_recording", R"({"path":")" + server.home.write("Talk.m4a", "") +
                                                   "\"" + language + "}");
  };
  EXPECT_EQ(refusal(R"(,"language":"ZH")"),
            "Error executing tool process_recording: language 'ZH' is not supported yet: the "
            "pipeline always transcribes as Chinese (zho) and has no language flag");
  // The next thing that is looked at is the pipeline.
  for (const std::string language :
       {"", R"(,"language":null)", R"(,"language":"")", R"(,"language":"zh-TW")"})
    EXPECT_THAT(refusal(language), HasSubstr("Pipeline not found: ")) << language;
}

TEST(Dispatch, LinesAreSearchedOnlyWithThePermissionToReadThem) {
  TestServerWithMeeting server;
  const JSONObject notes = server.success("search_transcripts", R"({"query":"電輔車"})");
  EXPECT_EQ(notes.getInt("count"), 0);
  EXPECT_EQ(notes.getBool("transcripts_searched"), false);
  server.setAgent(R"({"tools":{"read_transcripts":true}})");
  const JSONObject lines = server.success("search_transcripts", R"({"query":"電輔車"})");
  EXPECT_EQ(lines.getInt("count"), 1);
  EXPECT_FALSE(lines.has("transcripts_searched"));
}

TEST(Dispatch, DigestIsLeftOutWhenItIsNotWanted) {
  TestServerWithMeeting server;
  server.setAgent(R"({"tools":{"read_transcripts":true}})");
  const auto hits = [&](const std::string& arguments) {
    return server.success("search_transcripts", arguments).getInt("count").value();
  };
  EXPECT_EQ(hits(R"({"query":"deposit"})"), 2);
  EXPECT_EQ(hits(R"({"query":"deposit","include_digest":"no"})"), 1);
}

TEST(Dispatch, OrderIsArgumentsThenEmptyQueryThenFreshness) {
  TestServer server;  // its index is empty
  EXPECT_THAT(server.failure("search_transcripts", R"({"query":"x"})"),
              HasSubstr("The index is empty. "));
  EXPECT_THAT(server.failure("search_transcripts", R"({"query":"  "})"),
              HasSubstr("query is empty. "));
  EXPECT_THAT(server.failure("search_transcripts", R"({"query":"  ","limit":[]})"),
              HasSubstr("argument limit must be an integer"));
}

// --- access
// ----------------------------------------------------------------------------------------

TEST(Dispatch, AgentSeesWhatItsScopeLetsThroughAtTheTimeOfTheCall) {
  TestServerWithMeeting server;
  EXPECT_EQ(meetingCount(server), 1);
  server.setAgent(R"({"scope":"tagged"})");
  EXPECT_EQ(meetingCount(server), 0);
  server.setAgent(R"({"scope":"last_30_days"})");
  EXPECT_EQ(meetingCount(server), 1);
  server.now += hours(24 * 40);
  EXPECT_EQ(meetingCount(server), 0);
}

TEST(Dispatch, VisibilitiesOfAClientAreFixedAtTheStart) {
  TestServerWithMeeting server;
  server.get();
  server.home.write("mcp-config.json", R"({"clients":{"claude-code":[]}})");
  EXPECT_EQ(meetingCount(server), 1);
}

// --- refresh
// ---------------------------------------------------------------------------------------

TEST(Dispatch, FirstReadCallRefreshesWhenTheStartDidNot) {
  TestServerWithMeeting server;
  server.get().start(/*reindex=*/false);
  EXPECT_EQ(meetingCount(server), 1);
}

TEST(Dispatch, RefreshIsHeldBackForTwoMinutes) {
  TestServerWithMeeting server;
  server.get().start(/*reindex=*/true);
  server.addMeeting("second");
  server.now += milliseconds(119999);
  EXPECT_EQ(meetingCount(server), 1);
  server.now += milliseconds(1);
  EXPECT_EQ(meetingCount(server), 2);
}

TEST(Dispatch, IntervalOfZeroOrOfAnotherKindIsTwoMinutes) {
  for (const std::string value : {"0", "0.0", "true", "\"5\"", "null", "{}"}) {
    TestServerWithMeeting server;
    meetingCount(server);
    server.home.write("mcp-config.json", R"({"cloud":{"refresh_seconds":)" + value + "}}");
    server.addMeeting("second");
    server.now += seconds(119);
    EXPECT_EQ(meetingCount(server), 1) << value;
    server.now += seconds(1);
    EXPECT_EQ(meetingCount(server), 2) << value;
  }
}

TEST(Dispatch, CloudSettingsOfAnotherKindMeanTwoMinutes) {
  TestServerWithMeeting server;
  meetingCount(server);
  server.home.write("mcp-config.json", R"({"cloud":5})");
  server.addMeeting("second");
  server.now += seconds(119);
  EXPECT_EQ(meetingCount(server), 1);
  server.now += seconds(1);
  EXPECT_EQ(meetingCount(server), 2);
}

TEST(Dispatch, IntervalMayBeFractional) {
  TestServerWithMeeting server;
  server.home.write("mcp-config.json", R"({"cloud":{"refresh_seconds":0.5}})");
  meetingCount(server);
  server.addMeeting("second");
  server.now += milliseconds(499);
  EXPECT_EQ(meetingCount(server), 1);
  server.now += milliseconds(1);
  EXPECT_EQ(meetingCount(server), 2);
}

TEST(Dispatch, NegativeIntervalAlwaysRefreshes) {
  TestServerWithMeeting server;
  server.home.write("mcp-config.json", R"({"cloud":{"refresh_seconds":-1}})");
  EXPECT_EQ(meetingCount(server), 1);
  server.addMeeting("second");
  EXPECT_EQ(meetingCount(server), 2);
}

TEST(Dispatch, ClockThatWasSetBackRefreshes) {
  TestServerWithMeeting server;
  meetingCount(server);
  server.addMeeting("second");
  server.now -= hours(1);
  EXPECT_EQ(meetingCount(server), 2);
}

TEST(Dispatch, WriteToolsDoNotRefresh) {
  TestServer server("claude-code", /*adminStats=*/true);
  server.setAgent(std::string(kEverything));
  server.home.write("mcp-config.json", R"({"sources":[{"type":"web"}]})");
  for (const std::string tool : {"process_recording", "velta_admin_stats"}) server.failure(tool);
  server.success("add_term", R"({"wrong":"a","right":"b"})");
  EXPECT_THAT(server.diagnostics, IsEmpty());
}

TEST(Dispatch, EveryReadToolAndGetJobRefreshWhenTheIntervalHasPassed) {
  const std::pair<std::string, std::string> calls[] = {
      {"list_meetings", "{}"},           {"search_transcripts", R"({"query":"x"})"},
      {"get_meeting", R"({"id":"x"})"},  {"get_transcript", R"({"id":"x"})"},
      {"get_person", R"({"name":"x"})"}, {"get_job", R"({"id":"job-x"})"}};
  for (const auto& [tool, arguments] : calls) {
    TestServer server;
    server.setAgent(std::string(kEverything));
    server.get().start(/*reindex=*/true);
    server.diagnostics.clear();
    server.home.write("mcp-config.json", R"({"sources":[{"type":"web"}]})");
    server.now += seconds(119);
    server.call(tool, arguments);
    EXPECT_THAT(server.diagnostics, IsEmpty()) << tool;
    server.now += seconds(1);
    server.call(tool, arguments);
    EXPECT_THAT(server.diagnostics, ElementsAre(HasSubstr("unknown source type 'web'"))) << tool;
  }
}

TEST(Dispatch, ErrorsOfALaterRefreshAreWarnedAboutOnce) {
  TestServerWithMeeting server;
  server.home.write("mcp-config.json",
                    R"({"sources":[{"type":"web"}],"cloud":{"refresh_seconds":-1}})");
  server.call("list_meetings");
  server.call("list_meetings");
  EXPECT_THAT(server.diagnostics,
              ElementsAre("meeting-notes MCP: could not index unknown source type 'web'; use "
                          "recordings, imported or legacy\n"));
}

TEST(Dispatch, AFolderThatCannotBeListedIsWarnedAboutOnceAndHidesNothingElse) {
  TestServerWithMeeting server;
  const auto before = meetingCount(server);
  std::filesystem::create_symlink("loop", server.home.file("loop"));
  server.home.write("mcp-config.json", R"({"cloud":{"refresh_seconds":-1},"sources":[
      {"type":"recordings","glob":")" + server.home.path() +
                                           R"(/loop/*/notes.json"},
      {"type":"recordings","glob":")" + server.home.path() +
                                           R"(/recordings/*/notes.json"}]})");
  EXPECT_EQ(meetingCount(server), before);
  EXPECT_EQ(meetingCount(server), before);
  EXPECT_THAT(
      server.diagnostics,
      ElementsAre(StartsWith("meeting-notes MCP: a folder of the source " + server.home.path() +
                             "/loop/*/notes.json cannot be listed (")));
}

TEST(Dispatch, BrokenConfigurationIsReplacedByTheDefaultInARefresh) {
  TestServerWithMeeting server;
  meetingCount(server);
  server.home.write("mcp-config.json", "[]");
  server.now += seconds(60);
  meetingCount(server);
  EXPECT_EQ(server.home.read("mcp-config.json"), "[]");
  server.now += seconds(60);
  meetingCount(server);
  EXPECT_THAT(server.home.read("mcp-config.json"), StartsWith("{\n  \"_note\": "));
}

// --- the log
// ---------------------------------------------------------------------------------------

TEST(Dispatch, EveryCallIsLoggedWithItsOutcome) {
  TestServerWithMeeting server;
  server.call("list_meetings", R"({"query":"deposit","limit":null})");
  server.call("list_meetings", R"({"limit":"x"})");
  server.call("add_term", R"({"wrong":"a"})");
  server.call("no_such_tool");
  const auto log = server.log();
  ASSERT_THAT(log, SizeIs(4));
  const std::string start = R"({"time":"2026-10-24T00:00:00+00:00","agent":"claude-code",)";
  EXPECT_EQ(log[0], start + R"("tool":"list_meetings","args":{"query":"deposit"},"status":"ok"})");
  EXPECT_EQ(log[1], start + R"("tool":"list_meetings","args":{"limit":"x"},"status":"error",)"
                            R"("detail":"Error executing tool list_meetings: argument limit must )"
                            R"(be an integer, got \"x\""})");
  EXPECT_THAT(log[2], StartsWith(start + R"("tool":"add_term","args":{"wrong":"a"},)"
                                         R"("status":"denied","detail":"add_term is turned off)"));
  EXPECT_EQ(log[3], start + R"("tool":"no_such_tool","args":{},"status":"error",)"
                            R"("detail":"Unknown tool: no_such_tool"})");
}

TEST(Dispatch, CallWithoutArgumentsIsLoggedWithNone) {
  TestServerWithMeeting server;
  server.result("tools/call", R"({"name":"list_meetings"})");
  server.result("tools/call", R"({"name":"list_meetings","arguments":"x"})");
  ASSERT_THAT(server.log(), SizeIs(2));
  for (const std::string& line : server.log())
    EXPECT_THAT(line, EndsWith(R"("tool":"list_meetings","args":{},"status":"ok"})"));
}

TEST(Dispatch, ListingsAndPingsAreNotLogged) {
  TestServer server;
  server.result("tools/list");
  server.result("ping");
  EXPECT_THAT(server.log(), IsEmpty());
}

TEST(Dispatch, LogThatCannotBeWrittenWarnsOnceAndCallsStillSucceed) {
  TestServerWithMeeting server;
  server.home.write("activity.jsonl/in-the-way", "");
  EXPECT_EQ(meetingCount(server), 1);
  EXPECT_EQ(meetingCount(server), 1);
  ASSERT_THAT(server.diagnostics, SizeIs(1));
  EXPECT_THAT(server.diagnostics.front(),
              StartsWith("meeting-notes MCP: could not write the activity log " +
                         server.home.file("activity.jsonl") + " ("));
  EXPECT_THAT(server.diagnostics.front(),
              EndsWith("); calls still run but the Velta activity list will miss them\n"));
}

}  // namespace
}  // namespace velta
