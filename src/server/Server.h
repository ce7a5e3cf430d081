// Server: one MCP session over standard input and output. JSON-RPC 2.0, one message a line; every
// line is answered before the next is read.
//
// Two ways of naming the protocol version live side by side: a session that begins with
// "initialize", and requests that each name their version in "_meta" and need no session. Requests
// are answered whether or not "initialize" came first.
//
//   Server server({.config = config, .client = "claude-code", .diagnose = writeToStandardError});
//   server.start(/*reindex=*/true);
//   server.run(0, 1);
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSON.h"
#include "server/Dispatch.h"
#include "server/ServerState.h"

namespace velta {

class Server {
 public:
  explicit Server(ServerOptions options) : state_(std::move(options)), dispatch_(state_) {}

  // Says on the diagnostics who is served and what it may do; with `reindex` reads all sources and
  // says what came of it. Without, the first call that reads does so.
  void start(bool reindex);

  // Answers the lines of descriptor `input` on descriptor `output` until the one ends or the other
  // takes no more.
  void run(int input, int output);

  // The lines, without line feeds, that answer `line`: none for blank lines, notifications and
  // answers of the client.
  std::vector<std::string> handle(std::string_view line);

  // The line that answers one request. Lines that must go out before it are appended to `queue`.
  std::string respond(std::string_view method, const JSONObject& params, const JSON& id,
                      std::vector<std::string>& queue);

 private:
  // Each answers the method of its name.
  Result initialize(const JSONObject& params, std::vector<std::string>& queue);
  Result discover(const JSONObject& params, std::vector<std::string>& queue);
  Result ping(const JSONObject& params, std::vector<std::string>& queue);
  Result listTools(const JSONObject& params, std::vector<std::string>& queue);
  Result callTool(const JSONObject& params, std::vector<std::string>& queue);
  Result listPrompts(const JSONObject& params, std::vector<std::string>& queue);
  Result listResources(const JSONObject& params, std::vector<std::string>& queue);
  Result listResourceTemplates(const JSONObject& params, std::vector<std::string>& queue);

  // What a method's result gets in the form in which every request names its version.
  enum class Decoration { none, plain, withCacheHint };
  struct Method {
    std::string_view name;
    Result (Server::*answer)(const JSONObject&, std::vector<std::string>&);
    Decoration decoration;
  };
  static const Method kMethods[];
  static const Method* methodNamed(std::string_view name);
  static void decorate(JSONObject& result, Decoration decoration);

  void tellWhoIsServed() const;
  void buildIndex();

  ServerState state_;
  Dispatch dispatch_;
  std::optional<std::string> negotiated_;  // protocol version agreed at the last "initialize"
};

}  // namespace velta
