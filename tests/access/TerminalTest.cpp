// Whatever names hold, standard error is text that a terminal shows and does not obey: no control
// character but the line feeds that end the program's own lines.

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSONWriter.h"
#include "platform/Text.h"
#include "support/DataHome.h"
#include "support/LoopbackServer.h"
#include "support/ServerProcess.h"

namespace velta {
namespace {

using test::DataHome;
using test::LoopbackServer;
using test::runProgram;
using test::ServerProcess;
using testing::HasSubstr;

// Each would do something to a terminal, or make a line look like two.
const std::vector<std::string> kControls = {
    "\x1b[31m",
    "\x1b]0;title\x07",
    "\x07",
    "\x08\x08",
    "\x0b\x0c",
    "\x01\x1f",
    "\x7f",
    "\xc2\x80",
    "\xc2\x85",
    "\xc2\x9b"
    "31m",
    "\xc2\x9f",
    "\x9b"
    "31m",
    "\xc2",
    "\xc0\x9b",
    "\r",
    "\n",
    "\r\n",
    "\xe2\x80\xa8",
    "\xe2\x80\xa9",
    "\xe0\x82\x9b",
};

// All of them, in a word that says that the name was told at all.
std::string hostileName() {
  std::string name = "zap";
  for (const std::string& control : kControls) name += control + "FORGED";
  return name;
}

// The same as far as the file system takes it as a name: that of a Mac wants UTF-8.
std::string hostileFileName() {
#ifdef __APPLE__
  return repairUTF8(hostileName());
#else
  return hostileName();
#endif
}

// The same as a JSON text, where control characters are escaped and ill-formed bytes stand as such.
std::string hostileJSONText() {
  std::string text;
  appendQuoted(text, hostileName());
  return text;
}

// What a terminal would obey in `errors`; empty when there is nothing. A byte of 80 to 9F that no
// character owns is a control character to some, so that all has to be well-formed.
std::string obeyedIn(std::string_view errors) {
  std::string found = isValidUTF8(errors) ? "" : "ill-formed UTF-8; ";
  for (std::size_t i = 0; i < errors.size(); ++i) {
    const auto byte = static_cast<unsigned char>(errors[i]);
    const bool isC0 = (byte < 0x20 && byte != '\n') || byte == 0x7F;
    const std::string_view two = errors.substr(i, 2);
    const bool isC1 = two >= "\xc2\x80" && two <= "\xc2\x9f";
    const std::string_view three = errors.substr(i, 3);
    const bool isSeparator = three == "\u2028" || three == "\u2029";
    if (isC0 || isC1 || isSeparator)
      found += "byte " + std::to_string(byte) + " at " + std::to_string(i) + "; ";
  }
  if (errors.find("\nFORGED") != std::string_view::npos) found += "a line that a name began";
  return found;
}

void expectHarmless(const std::string& errors) {
  EXPECT_EQ(obeyedIn(errors), "") << testing::PrintToString(errors);
}

std::string callOf(const std::string& tool, const std::string& arguments = "{}") {
  return R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":)" + tool +
         R"(,"arguments":)" + arguments + "}}\n";
}

// Standard error of a session in which a few calls were made.
std::string errorsOf(const ServerProcess::Options& options) {
  const auto ending =
      runProgram(options, callOf(R"("list_meetings")") + callOf(hostileJSONText()) +
                              callOf(R"("get_meeting")", R"({"id":)" + hostileJSONText() + "}") +
                              callOf(R"("get_job")", R"({"id":)" + hostileJSONText() + "}"));
  EXPECT_EQ(ending.status, 0);
  EXPECT_EQ(std::count(ending.output.begin(), ending.output.end(), '\n'), 4) << ending.output;
  return ending.errors;
}

ServerProcess::Options on(const DataHome& home, const std::string& client = "agent") {
  return {.arguments = {"--client", client}, .environment = home.environment()};
}

TEST(Terminal, CheckFindsWhatATerminalObeys) {
  for (const std::string& control : kControls) {
    EXPECT_NE(obeyedIn("a" + control + "FORGED"), "") << testing::PrintToString(control);
  }
  EXPECT_EQ(obeyedIn("會議 é \uFFFD ok\n"), "");
}

TEST(Terminal, NameOfTheClientIsHarmless) {
  const DataHome home;
  for (const std::string& control : kControls) {
    const std::string errors = errorsOf(on(home, "zap" + control + "FORGED"));
    EXPECT_THAT(errors, HasSubstr("client=zap"));
    expectHarmless(errors);
  }
}

TEST(Terminal, UnknownArgumentsAreHarmless) {
  const DataHome home;
  ServerProcess::Options options{.arguments = {"--zap"}, .environment = home.environment()};
  for (const std::string& control : kControls) options.arguments.push_back(control + "FORGED");
  const auto ending = runProgram(options);
  EXPECT_EQ(ending.status, 2);
  EXPECT_THAT(ending.errors, HasSubstr("unknown argument --zap"));
  expectHarmless(ending.errors);
}

TEST(Terminal, WhatAgentsFileSaysIsHarmless) {
  const std::string name = hostileJSONText();
  const std::vector<std::string> entries = {
      "7", R"({"tools":7})", R"({"tools":{)" + name + R"(:true}})", R"({"scope":)" + name + "}"};
  for (const std::string& entry : entries) {
    const DataHome home;
    home.write("agents.json", R"({"agents":{)" + name + ":" + entry + "}}");
    // The name as it comes out of the file: what is ill-formed in it is replaced there.
    auto options = on(home);
    options.arguments.back() = hostileName();
    const std::string errors = errorsOf(options);
    EXPECT_THAT(errors, HasSubstr("zap"));
    EXPECT_THAT(errors, HasSubstr("agents.json: ")) << entry;
    expectHarmless(errors);
  }
}

TEST(Terminal, PathsOfTheEnvironmentAreHarmless) {
  const DataHome root;
  auto options = on(root);
  for (const char* variable :
       {"MEETING_NOTES_HOME", "MEETING_MCP_AGENTS", "HOME", "VELTA_REPO", "VELTA_API_BASE",
        "VELTA_TOKEN", "VELTA_PIPELINE_PYTHON", "TZ", "VELTA_ADMIN_AGENT_TOKEN"}) {
    const std::string folder = variable == std::string("MEETING_MCP_AGENTS") ? "agents" : "folder";
    options.environment[variable] = root.file(folder + "/" + hostileFileName());
  }
  root.write("agents/" + hostileFileName(), "[]");
  root.write("file", "");
  options.arguments.emplace_back("--admin-stats");
  const std::string errors = errorsOf(options);
  EXPECT_THAT(errors, HasSubstr("zap"));
  EXPECT_THAT(errors, HasSubstr("is broken"));
  expectHarmless(errors);

  // A log that cannot be written, because a file stands where its folder would be.
  options.environment["MEETING_MCP_AGENTS"] = root.write(hostileFileName(), "") + "/agents.json";
  const std::string more = errorsOf(options);
  EXPECT_THAT(more, HasSubstr("could not write the activity log"));
  expectHarmless(more);
}

TEST(Terminal, NamesOfFilesAreHarmless) {
  const DataHome home;
  const std::string name = hostileFileName();
  home.write("recordings/" + name + "/notes.json", "{" + name);
  home.write("recordings/" + name + "1/notes.json", "[]");
  home.makeFolder("recordings/" + name + "2/notes.json");
  home.write("recordings/same " + name + "/notes.json", "{}");
  home.write("recordings/same-" + name + "/notes.json", "{}");  // which makes two of one id
  const std::string errors = errorsOf(on(home));
  EXPECT_THAT(errors, HasSubstr("WARN could not index"));
  EXPECT_THAT(errors, HasSubstr("two meetings have the id"));
  EXPECT_THAT(errors, HasSubstr("zap"));
  expectHarmless(errors);

  // And the same in a refresh after the start, which tells its errors in another way.
  auto later = on(home);
  later.arguments.emplace_back("--no-reindex");
  const std::string laterErrors = errorsOf(later);
  EXPECT_THAT(laterErrors, HasSubstr("meeting-notes MCP: could not index"));
  expectHarmless(laterErrors);
}

TEST(Terminal, WhatTheConfigurationSaysIsHarmless) {
  const std::string name = hostileJSONText();
  const DataHome home;
  home.write("mcp-config.json",
             R"({"sources":[{"type":)" + name + R"(},{"type":"recordings","name":)" + name +
                 R"(},{"type":"legacy","path":)" + name + R"(},{"type":"recordings","glob":)" +
                 name + R"(,"visibility":)" + name + R"(}],"clients":{"agent":[)" + name +
                 R"(]},"cloud":{"base":)" + name + "}}");
  auto options = on(home);
  options.environment["VELTA_TOKEN"] = "velta_pat_" + std::string(43, 'k');
  const std::string errors = errorsOf(options);
  EXPECT_THAT(errors, HasSubstr("unknown source type 'zap"));
  EXPECT_THAT(errors, HasSubstr("refusing to send the connection key to zap"));
  expectHarmless(errors);
}

TEST(Terminal, NamesInMeetingsAreHarmless) {
  const DataHome home;
  const std::string name = hostileJSONText();
  home.write("recordings/one/notes.json",
             R"({"title":)" + name + R"(,"visibility":)" + name + R"(,"tags":[)" + name +
                 R"(],"speakers":[{"name":)" + name + R"(}],"lines":[{"id":)" + name +
                 R"(,"text":)" + name + R"(}],)" + name + ":" + name + "}");
  home.write("recordings/one/upload.json", R"({"meeting_id":)" + name + "}");
  home.write("jobs/job-1.json", R"({"folder":)" + name + R"(,"meeting_id":)" + name + "}");
  const std::string errors = errorsOf(on(home));
  EXPECT_THAT(errors, HasSubstr("meetings=1"));
  expectHarmless(errors);
}

TEST(Terminal, WhatTheWebServiceAnswersIsHarmless) {
  const std::string name = hostileJSONText();
  const std::vector<LoopbackServer::Reply> replies = {
      {.body = hostileName()},
      {.body = "[" + name + "]"},
      {.status = 401, .body = R"({"cause":)" + name + "}"},
      {.status = 500, .body = hostileName()},
      {.status = 302, .headers = {{"Location", "http://zap\x1b[31m/"}}},
      {.raw = "HTTP/1.1 200 \x1b[31mzap\r\n\x1b: \x9b\r\n\r\n"},
      {.body = R"({"meetings":[{"id":)" + name + R"(,"title":)" + name + "}]}"},
  };
  for (const LoopbackServer::Reply& reply : replies) {
    const LoopbackServer service([&](const LoopbackServer::Request&) { return reply; });
    const DataHome home;
    auto options = on(home);
    options.environment["VELTA_TOKEN"] = "velta_pat_" + std::string(43, 'k');
    options.environment["VELTA_API_BASE"] = service.origin();
    expectHarmless(errorsOf(options));
    EXPECT_FALSE(service.requests().empty());
  }
}

}  // namespace
}  // namespace velta
