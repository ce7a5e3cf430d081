#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSONWriter.h"
#include "server/Server.h"
#include "server/TestServer.h"

namespace velta {
namespace {

using test::TestServer;
using test::TestServerWithMeeting;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::string_view kServerInfo = R"({"name":"velta","version":"0.2.0"})";
constexpr std::string_view kVersions =
    R"(["2026-07-28","2025-11-25","2025-06-18","2025-03-26","2024-11-05"])";
// --- lines ---------------------------------------------------------------------------------------

TEST(Server, BlankLineHasNoAnswer) {
  TestServer server;
  EXPECT_THAT(server.handle(""), IsEmpty());
  EXPECT_THAT(server.handle(" \t\r"), IsEmpty());
  EXPECT_THAT(server.handle("\u3000\u00a0\u2028"), IsEmpty());
}

TEST(Server, WhiteSpaceAroundAMessageIsTrimmed) {
  TestServer server;
  EXPECT_EQ(server.answer("\u3000\t{\"id\":1,\"method\":\"ping\"} \r"),
            R"({"jsonrpc":"2.0","id":1,"result":{}})");
}

TEST(Server, ArrayIsAParseErrorWithANullId) {
  TestServer server;
  const std::string fault =
      R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error"}})";
  EXPECT_EQ(server.answer("[1]"), fault);
  EXPECT_EQ(server.answer(R"([{"jsonrpc":"2.0","id":1,"method":"ping"}])"), fault);
  EXPECT_EQ(server.answer("\"ping\""), fault);
  EXPECT_EQ(server.answer("null"), fault);
}

TEST(Server, MalformedLineIsAParseErrorAndTheNextIsAnswered) {
  TestServer server;
  EXPECT_EQ(server.answer(R"({"id":1,"method":"ping")"),
            R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error"}})");
  EXPECT_EQ(server.answer(R"({"id":1,"method":"ping"})"),
            R"({"jsonrpc":"2.0","id":1,"result":{}})");
}

TEST(Server, NotificationHasNoAnswer) {
  TestServer server;
  EXPECT_THAT(server.handle(R"({"jsonrpc":"2.0","method":"notifications/initialized"})"),
              IsEmpty());
  EXPECT_THAT(server.handle(R"({"jsonrpc":"2.0","method":"ping"})"), IsEmpty());
  EXPECT_THAT(server.handle(R"({"method":"no/such"})"), IsEmpty());
}

TEST(Server, RequestWithANullIdHasNoAnswerAndNoEffect) {
  TestServer server;
  EXPECT_THAT(server.handle(R"({"jsonrpc":"2.0","id":null,"method":"ping"})"), IsEmpty());
  EXPECT_THAT(
      server.handle(R"({"id":null,"method":"tools/call","params":{"name":"list_meetings"}})"),
      IsEmpty());
  EXPECT_THAT(server.log(), IsEmpty());
}

TEST(Server, MessageWithoutMethodIsInvalid) {
  TestServer server;
  EXPECT_EQ(server.answer(R"({"id":3})"),
            R"({"jsonrpc":"2.0","id":3,"error":{"code":-32600,"message":"Invalid Request",)"
            R"("data":"missing method"}})");
  EXPECT_EQ(server.answer(R"({"id":null,"method":5})"),
            R"({"jsonrpc":"2.0","id":null,"error":{"code":-32600,"message":"Invalid Request",)"
            R"("data":"missing method"}})");
}

TEST(Server, AnswerOfTheClientIsIgnored) {
  TestServer server;
  EXPECT_THAT(server.handle(R"({"id":3,"result":{}})"), IsEmpty());
  EXPECT_THAT(server.handle(R"({"id":3,"error":null})"), IsEmpty());
  EXPECT_THAT(server.handle(R"({"result":{}})"), IsEmpty());
  EXPECT_THAT(server.handle("{}"), IsEmpty());
}

TEST(Server, IdIsEchoedUnchangedWhateverItIs) {
  TestServer server;
  for (const std::string_view id :
       {R"("abc")", "7", "-7", "0", "1.0", "1.5", "9223372036854775807", "1e+30", "true", R"("")",
        R"(["a",1])", R"({"b":1,"a":[null]})", R"("識別")", R"("a\"\\\n")"}) {
    EXPECT_EQ(server.answer("{\"id\":" + std::string(id) + ",\"method\":\"ping\"}"),
              "{\"jsonrpc\":\"2.0\",\"id\":" + std::string(id) + ",\"result\":{}}");
  }
}

// JSON has no way to write them, so such an id could not be answered with itself.
TEST(Server, IdWithANumberBeyondTheRangeOfADoubleIsInvalid) {
  TestServer server;
  for (const std::string id : {"1e400", "-1e400", R"(["a",1e400])", R"({"a":{"b":[1e999]}})"}) {
    EXPECT_EQ(server.answer("{\"id\":" + id + ",\"method\":\"ping\"}"),
              R"({"jsonrpc":"2.0","id":null,"error":{"code":-32600,"message":"Invalid Request",)"
              R"("data":"id is out of range"}})");
    EXPECT_EQ(server.answer("{\"id\":" + id + "}"),
              R"({"jsonrpc":"2.0","id":null,"error":{"code":-32600,"message":"Invalid Request",)"
              R"("data":"missing method"}})");
  }
}

TEST(Server, LoneSurrogateInAnIdBecomesAReplacementCharacter) {
  TestServer server;
  EXPECT_EQ(server.answer(R"({"id":"\ud83d","method":"ping"})"),
            "{\"jsonrpc\":\"2.0\",\"id\":\"\uFFFD\",\"result\":{}}");
}

TEST(Server, IllFormedUTF8BecomesReplacementCharacters) {
  TestServer server;
  EXPECT_EQ(server.answer("{\"id\":\"a\xff\xe4\xbd\",\"method\":\"ping\"}"),
            "{\"jsonrpc\":\"2.0\",\"id\":\"a\uFFFD\uFFFD\",\"result\":{}}");
}

TEST(Server, UnknownMethodIsNamed) {
  TestServer server;
  EXPECT_EQ(server.answer(R"({"id":1,"method":"Ping"})"),
            R"({"jsonrpc":"2.0","id":1,"error":{"code":-32601,"message":"Method not found",)"
            R"("data":"Ping"}})");
  EXPECT_THAT(server.answer(R"({"id":1,"method":""})"), HasSubstr(R"("data":"")"));
}

TEST(Server, ParamsThatAreNoObjectCountAsNone) {
  TestServer server;
  EXPECT_EQ(server.answer(R"({"id":1,"method":"ping","params":[1]})"),
            R"({"jsonrpc":"2.0","id":1,"result":{}})");
  EXPECT_THAT(server.answer(R"({"id":1,"method":"tools/call","params":"x"})"),
              HasSubstr("Unknown tool: "));
}

// --- methods -------------------------------------------------------------------------------------

TEST(Server, PingAnswersAnEmptyObject) {
  TestServer server;
  EXPECT_EQ(server.answer(R"({"jsonrpc":"2.0","id":1,"method":"ping"})"),
            R"({"jsonrpc":"2.0","id":1,"result":{}})");
}

TEST(Server, InitializeAnswersWithCapabilitiesInstructionsVersionAndName) {
  TestServer server;
  const JSONObject result = server.result("initialize", R"({"protocolVersion":"2025-06-18"})");
  EXPECT_THAT(result.keys(),
              ElementsAre("capabilities", "instructions", "protocolVersion", "serverInfo"));
  EXPECT_EQ(writeCompact(*result.getObject("capabilities")),
            R"({"prompts":{"listChanged":false},)"
            R"("resources":{"listChanged":false,"subscribe":false},"tools":{"listChanged":true}})");
  EXPECT_EQ(writeCompact(*result.getObject("serverInfo")), kServerInfo);
  const std::string instructions(*result.getString("instructions"));
  EXPECT_EQ(std::count(instructions.begin(), instructions.end(), '\n'), 5);
  EXPECT_THAT(instructions, testing::EndsWith("時間。"));
}

TEST(Server, InitializeAgreesOnASupportedVersionElseOnTheDefault) {
  TestServer server;
  const auto negotiated = [&](const std::string& params) {
    return std::string(*server.result("initialize", params).getString("protocolVersion"));
  };
  for (const std::string version : {"2024-11-05", "2025-03-26", "2025-06-18", "2025-11-25"})
    EXPECT_EQ(negotiated("{\"protocolVersion\":\"" + version + "\"}"), version);
  EXPECT_EQ(negotiated(R"({"protocolVersion":"2023-01-01"})"), "2025-11-25");
  EXPECT_EQ(negotiated(R"({"protocolVersion":"2026-07-28"})"), "2025-11-25");
  EXPECT_EQ(negotiated(R"({"protocolVersion":20250618})"), "2025-11-25");
  EXPECT_EQ(negotiated("{}"), "2025-11-25");
}

TEST(Server, DiscoverAnswersVersionsNewestFirst) {
  TestServer server;
  const JSONObject result = server.result("server/discover");
  EXPECT_THAT(result.keys(), ElementsAre("resultType", "supportedVersions", "capabilities", "_meta",
                                         "instructions"));
  EXPECT_EQ(result.getString("resultType"), "complete");
  EXPECT_EQ(writeCompact(JSON(*result.getArray("supportedVersions"))), kVersions);
  EXPECT_EQ(writeCompact(*result.getObject("_meta")),
            "{\"io.modelcontextprotocol/serverInfo\":" + std::string(kServerInfo) + "}");
}

TEST(Server, ListsOfPromptsAndResourcesAreEmpty) {
  TestServer server;
  EXPECT_EQ(writeCompact(server.result("prompts/list")), R"({"prompts":[]})");
  EXPECT_EQ(writeCompact(server.result("resources/list")), R"({"resources":[]})");
  EXPECT_EQ(writeCompact(server.result("resources/templates/list")), R"({"resourceTemplates":[]})");
}

// --- requests that name their protocol version
// ------------------------------------------------------

std::string versioned(std::string_view version) {
  return R"({"_meta":{"io.modelcontextprotocol/protocolVersion":")" + std::string(version) +
         R"("}})";
}

TEST(Server, PerRequestListingHasItsDecorationAfterTheTools) {
  TestServer server;
  const JSONObject result = server.result("tools/list", versioned("2026-07-28"));
  EXPECT_THAT(result.keys(), ElementsAre("tools", "resultType", "ttlMs", "cacheScope", "_meta"));
  EXPECT_EQ(result.getString("resultType"), "complete");
  EXPECT_EQ(result.getInt("ttlMs"), 60000);
  EXPECT_EQ(result.getString("cacheScope"), "private");
  EXPECT_EQ(writeCompact(*result.getObject("_meta")),
            "{\"io.modelcontextprotocol/serverInfo\":" + std::string(kServerInfo) + "}");
}

TEST(Server, EverySupportedVersionMakesThePerRequestForm) {
  TestServer server;
  for (const std::string_view version :
       {"2026-07-28", "2025-11-25", "2025-06-18", "2025-03-26", "2024-11-05"})
    EXPECT_THAT(server.result("ping", versioned(version)).keys(),
                ElementsAre("resultType", "_meta"));
}

TEST(Server, CacheHintGoesWithListingsOnly) {
  TestServer server;
  for (const std::string method :
       {"tools/list", "prompts/list", "resources/list", "resources/templates/list"})
    EXPECT_TRUE(server.result(method, versioned("2026-07-28")).has("ttlMs")) << method;
  for (const std::string method : {"ping", "tools/call", "initialize", "server/discover"})
    EXPECT_FALSE(server.result(method, versioned("2026-07-28")).has("ttlMs")) << method;
}

TEST(Server, InitializeAndDiscoverAreNotDecorated) {
  TestServer server;
  for (const std::string method : {"initialize", "server/discover"})
    EXPECT_EQ(server.result(method, versioned("2026-07-28")), server.result(method)) << method;
}

TEST(Server, ToolResultIsDecoratedAfterItsOwnMembers) {
  TestServer server;
  EXPECT_THAT(server.result("tools/call", versioned("2026-07-28")).keys(),
              ElementsAre("content", "isError", "resultType", "_meta"));
}

TEST(Server, UnsupportedVersionIsRefusedBeforeEverything) {
  TestServer server;
  const std::string error =
      R"({"code":-32022,"message":"Unsupported protocol version","data":{"supported":)" +
      std::string(kVersions) + R"(,"requested":"1999-01-01"}})";
  for (const std::string method : {"tools/list", "tools/call", "ping", "initialize", "no/such"})
    EXPECT_EQ(server.answer(R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":)" +
                            versioned("1999-01-01") + "}"),
              R"({"jsonrpc":"2.0","id":1,"error":)" + error + "}")
        << method;
  EXPECT_THAT(server.log(), IsEmpty());
}

TEST(Server, MetaOfAnotherKindLeavesTheOrdinaryForm) {
  TestServer server;
  for (const std::string meta :
       {R"("2026-07-28")", "{}", R"({"io.modelcontextprotocol/protocolVersion":20260728})", "null"})
    EXPECT_EQ(writeCompact(server.result("ping", "{\"_meta\":" + meta + "}")), "{}") << meta;
}

// --- the start
// -------------------------------------------------------------------------------------

TEST(Server, StartSaysWhoIsServedAndWhatTheIndexHolds) {
  TestServerWithMeeting server;
  server.get().start(true);
  EXPECT_THAT(
      server.diagnostics,
      ElementsAre("meeting-notes MCP: client=claude-code sees ['private', 'work', 'shared']; tools "
                  "from defaults (no agents.json) (" +
                      server.home.file("agents.json") +
                      "): search_meetings, read_notes; scope=all hide_private=True\n",
                  "index refreshed: meetings=1 changed=1 web=off\n"));
}

TEST(Server, StartWithoutAClientSeesTheSharedOnes) {
  TestServer server(std::nullopt);
  server.get().start(false);
  ASSERT_THAT(server.diagnostics, SizeIs(1));
  EXPECT_THAT(server.diagnostics.front(), HasSubstr("client=unknown sees ['shared']; tools"));
}

TEST(Server, StartShowsWhatAgentsJSONSays) {
  TestServer server;
  server.home.write("agents.json", R"({"agents":{"claude-code":{"tools":{"search_meetings":false,
      "read_notes":false},"scope":"tagged","hide_private":false}}})");
  server.get().start(false);
  ASSERT_THAT(server.diagnostics, SizeIs(1));
  EXPECT_THAT(server.diagnostics.front(),
              testing::EndsWith("; tools from agents.json (" + server.home.file("agents.json") +
                                "): none; scope=tagged hide_private=False\n"));
}

TEST(Server, StartNamesAllThatIsGrantedInAFixedOrder) {
  TestServer server;
  server.setAgent(R"({"tools":{"add_terms":true,"process_recordings":true,"read_transcripts":true,
      "read_notes":true,"search_meetings":true},"scope":"last_30_days"})");
  server.get().start(false);
  EXPECT_THAT(server.diagnostics.front(),
              HasSubstr("): search_meetings, read_notes, read_transcripts, process_recordings, "
                        "add_terms; scope=last_30_days hide_private=True\n"));
}

TEST(Server, StartOfAClientThatSeesNothingSaysNone) {
  TestServer server;
  server.home.write("mcp-config.json", R"({"clients":{"claude-code":[]}})");
  server.get().start(false);
  EXPECT_THAT(server.diagnostics.front(), HasSubstr(" sees none; tools"));
}

TEST(Server, WarningsAboutAgentsJSONComeBeforeTheStartUpLine) {
  TestServer server;
  server.home.write("agents.json", "[]");
  server.get().start(false);
  ASSERT_THAT(server.diagnostics, SizeIs(2));
  EXPECT_THAT(server.diagnostics[0], HasSubstr(" is broken (top level must be "));
  EXPECT_THAT(server.diagnostics[1], HasSubstr("; tools from defaults (agents.json broken) ("));
}

TEST(Server, ControlCharactersOfAClientNameStayOnTheLine) {
  TestServer server("evil\nWARN \x1b[2J");
  server.get().start(false);
  EXPECT_THAT(server.diagnostics.front(), HasSubstr("client=evil\uFFFDWARN \uFFFD[2J sees "));
}

TEST(Server, StartWarnsOfWhatCannotBeIndexed) {
  TestServer server;
  server.home.write("mcp-config.json", R"({"sources":[{"type":"web"},{"type":"legacy"}]})");
  server.get().start(true);
  EXPECT_THAT(server.diagnostics,
              ElementsAre(testing::_, "index refreshed: meetings=0 changed=0 web=off\n",
                          "WARN could not index unknown source type 'web'; use recordings, "
                          "imported or legacy\n",
                          "WARN could not index source legacy has no path\n"));
}

TEST(Server, StartWarnsOfAFolderThatCannotBeListed) {
  TestServer server;
  std::filesystem::create_symlink("loop", server.home.file("loop"));
  server.home.write("mcp-config.json", R"({"sources":[{"type":"recordings","glob":")" +
                                           server.home.path() + R"(/loop/*/notes.json"}]})");
  server.get().start(true);
  EXPECT_THAT(server.diagnostics,
              ElementsAre(testing::_, "index refreshed: meetings=0 changed=0 web=off\n",
                          HasSubstr("/loop/*/notes.json cannot be listed (")));
}

}  // namespace
}  // namespace velta
