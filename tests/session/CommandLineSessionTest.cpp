// The program as it is started: arguments in, exit status and texts out.

#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/BuildConstants.h"
#include "support/DataHome.h"
#include "support/ServerProcess.h"

namespace velta {
namespace {

using test::DataHome;
using test::runProgram;
using test::ServerProcess;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::string_view kPing = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\n";
constexpr std::string_view kPong = "{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{}}\n";

const std::string kUsage =
    "velta-mcp 0.2.0: Velta's meeting notes as MCP tools over stdio\n"
    "\n"
    "  velta-mcp [--client NAME] [--admin-stats] [--no-reindex]   serve (an AI client launches "
    "this)\n"
    "  velta-mcp connect | status | disconnect                     connection key for web "
    "meetings\n"
    "  velta-mcp --version\n"
    "\n"
    "Register in Claude Code:   claude mcp add -s user velta -- "
    "/Applications/Velta.app/Contents/MacOS/velta-mcp --client claude-code\n"
    "Data home: ~/Library/Application Support/MeetingNotes (MEETING_NOTES_HOME overrides). "
    "Details: mcp/README.md, section " +
    std::string(kReadmeSection) + "\n";

ServerProcess::Ending run(const std::vector<std::string>& arguments, std::string_view input = "") {
  const DataHome home;
  return runProgram({.arguments = arguments, .environment = home.environment()}, input);
}

void expectRefused(const std::vector<std::string>& arguments, const std::string& message) {
  const auto ending = run(arguments, kPing);
  EXPECT_EQ(ending.status, 2);
  EXPECT_EQ(ending.output, "");
  EXPECT_EQ(ending.errors, message + "\n");
}

TEST(CommandLine, HelpWinsOverAnUnknownArgument) {
  for (const std::string help : {"--help", "-h"}) {
    const auto ending = run({help, "--bogus"});
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.output, kUsage);
    EXPECT_EQ(ending.errors, "");
  }
}

TEST(CommandLine, VersionWinsOverAnUnknownArgument) {
  for (const std::string version : {"--version", "-V"}) {
    const auto ending = run({"--bogus", version});
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.output, "velta-mcp 0.2.0\n");
    EXPECT_EQ(ending.errors, "");
  }
}

TEST(CommandLine, HelpWinsOverVersion) { EXPECT_EQ(run({"--version", "--help"}).output, kUsage); }

TEST(CommandLine, UnknownArgumentsAreRefusedTogether) {
  expectRefused({"-x", "-y"}, "velta-mcp: unknown argument -x -y. Next step: see velta-mcp --help");
}

TEST(CommandLine, UnknownArgumentIsRefusedEvenBesideASubcommand) {
  expectRefused({"connect", "--bogus"},
                "velta-mcp: unknown argument --bogus. Next step: see velta-mcp --help");
}

TEST(CommandLine, UndecodableArgumentIsShownRepaired) {
  expectRefused({"-\xff"}, "velta-mcp: unknown argument -\uFFFD. Next step: see velta-mcp --help");
}

TEST(CommandLine, HTTPIsRefused) {
  expectRefused({"--http"},
                "velta-mcp: --http (Streamable HTTP for Dify) is not part of the native server; "
                "use stdio, or the Python server in mcp/ for HTTP. Next step: drop --http");
}

TEST(CommandLine, LaterSubcommandReplacesTheEarlierOne) {
  const auto ending = run({"status", "disconnect"});
  EXPECT_EQ(ending.output, "No saved key on this Mac\n");
  EXPECT_EQ(ending.errors, "");
  EXPECT_EQ(ending.status, 0);
}

TEST(CommandLine, SubcommandWinsOverHTTP) {
  const auto ending = run({"--http", "status"});
  EXPECT_EQ(ending.output, "Not connected: not connected\n");
  EXPECT_EQ(ending.status, 1);
}

TEST(CommandLine, ConnectWinsOverHTTPAndReadsItsKey) {
  const auto ending = run({"--http", "connect"}, "no key\n");
  EXPECT_EQ(ending.output,
            "That is not a Velta connection key (it starts with velta_pat_). Nothing saved. Copy "
            "it again from 連接 AI\n");
  EXPECT_EQ(ending.errors, "");
  EXPECT_EQ(ending.status, 1);
}

TEST(CommandLine, ClientWithoutAValueServesWithoutAClientName) {
  const auto ending = run({"--client"}, kPing);
  EXPECT_EQ(ending.status, 0);
  EXPECT_EQ(ending.output, kPong);
  EXPECT_THAT(ending.errors, StartsWith("meeting-notes MCP: client=unknown sees ['shared']; "));
}

TEST(CommandLine, ClientTakesAnOptionAsItsName) {
  const auto ending = run({"--client", "--admin-stats"}, "{\"id\":1,\"method\":\"tools/list\"}\n");
  EXPECT_THAT(ending.errors, StartsWith("meeting-notes MCP: client=--admin-stats sees "));
  EXPECT_THAT(ending.output, Not(HasSubstr("velta_admin_stats")));
}

TEST(CommandLine, EmptyClientNameIsGivenButSeesWhatNoClientSees) {
  const auto ending = run({"--client="});
  EXPECT_THAT(ending.errors, StartsWith("meeting-notes MCP: client= sees ['shared']; "));
}

TEST(CommandLine, ArgumentsOfAnHTTPServerAreSwallowed) {
  const auto ending = run({"--port", "3000", "--allow-host", "x"}, kPing);
  EXPECT_EQ(ending.status, 0);
  EXPECT_EQ(ending.output, kPong);
}

TEST(CommandLine, EndOfInputEndsTheServerQuietly) {
  const auto ending = run({"--no-reindex"});
  EXPECT_EQ(ending.status, 0);
  EXPECT_EQ(ending.output, "");
}

TEST(CommandLine, FirstStartWritesTheDefaultConfiguration) {
  const DataHome home;
  runProgram({.environment = home.environment()});
  EXPECT_THAT(home.read("mcp-config.json"), StartsWith("{\n  \"_note\": \"Meeting notes MCP"));
}

TEST(CommandLine, HelpWritesNoFiles) {
  const DataHome home;
  for (const std::string argument : {"--help", "--version", "--bogus", "--http"})
    runProgram({.arguments = {argument}, .environment = home.environment()});
  EXPECT_FALSE(home.has("mcp-config.json"));
}

}  // namespace
}  // namespace velta
