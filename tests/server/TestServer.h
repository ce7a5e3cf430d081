// TestServer: a server in this process, on a data home of its own.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "server/Server.h"
#include "support/DataHome.h"

namespace velta::test {

// A server on an empty data home of its own, with a clock that stands still until it is moved.
class TestServer {
 public:
  explicit TestServer(std::optional<std::string> client = "claude-code", bool adminStats = false,
                      Environment extra = {})
      : client_(std::move(client)), adminStats_(adminStats), environment_(std::move(extra)) {
    environment_.merge(home.environment());
  }

  // The server, built on first use, so that a test can write files first.
  Server& get() {
    if (!server_)
      server_.emplace(ServerOptions{
          .config = Config::fromEnvironment(environment_),
          .client = client_,
          .adminStats = adminStats_,
          .diagnose = [this](std::string_view line) { diagnostics.emplace_back(line); },
          .now = [this] { return now; }});
    return *server_;
  }

  std::vector<std::string> handle(std::string_view line) { return get().handle(line); }

  // The only line that answers `line`.
  std::string answer(std::string_view line) {
    auto lines = handle(line);
    if (lines.size() != 1) throw std::runtime_error("expected one line");
    return std::move(lines.front());
  }

  // The result of a request.
  JSONObject result(const std::string& method, const std::string& params = "{}") {
    const std::string line =
        R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":)" + params + "}";
    const JSON answered = parseJSON(answer(line));
    const JSONObject* found = answered.asObject()->getObject("result");
    if (!found) throw std::runtime_error("no result: " + writeCompact(answered));
    return *found;
  }

  // The envelope of a tool call.
  JSONObject call(const std::string& tool, const std::string& arguments = "{}") {
    return result("tools/call", callParams(tool, arguments));
  }

  // The lines that a tool call puts out.
  std::vector<std::string> linesOfCall(const std::string& tool) {
    return handle(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":)" +
                  callParams(tool, "{}") + "}");
  }

  // The result of a tool call that succeeds.
  JSONObject success(const std::string& tool, const std::string& arguments = "{}") {
    const JSONObject envelope = call(tool, arguments);
    if (envelope.getBool("isError") != false) throw std::runtime_error(textOf(envelope));
    return *envelope.getObject("structuredContent");
  }

  // The message of a tool call that fails.
  std::string failure(const std::string& tool, const std::string& arguments = "{}") {
    const JSONObject envelope = call(tool, arguments);
    if (envelope.getBool("isError") != true) throw std::runtime_error("the call did not fail");
    return textOf(envelope);
  }

  // The text of an envelope's only item.
  static std::string textOf(const JSONObject& envelope) {
    return std::string(envelope.getArray("content")->at(0).asObject()->getString("text").value());
  }

  // What agents.json says about the client: the object `entry`.
  void setAgent(const std::string& entry) const {
    home.write("agents.json", R"({"agents":{"claude-code":)" + entry + "}}");
  }

  // The records of the activity log.
  std::vector<std::string> log() const { return home.lines("activity.jsonl"); }

  DataHome home;
  std::vector<std::string> diagnostics;
  Instant now = instantFromSeconds(1792800000);  // 2026-10-24T00:00:00Z

 private:
  static std::string callParams(const std::string& tool, const std::string& arguments) {
    return R"({"name":")" + tool + R"(","arguments":)" + arguments + "}";
  }

  std::optional<std::string> client_;
  bool adminStats_;
  Environment environment_;
  std::optional<Server> server_;
};

// A server that has one meeting to answer from.
class TestServerWithMeeting : public TestServer {
 public:
  TestServerWithMeeting() { addMeeting("weekly"); }

  void addMeeting(const std::string& folder) const {
    home.write("recordings/" + folder + "/notes.json",
               R"({"title":"Weekly","started_at":"2026-10-12T15:30:00+08:00",
                   "lines":[{"id":"L1","t_start":5,"speaker":"Arlo","text":"電輔車 deposit"}],
                   "decisions":[{"text":"Buy the deposit insurance"}]})");
  }
};

}  // namespace velta::test
