// FuzzServer: a server's state over a home, and calls of its tools, whose every answer is checked.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/JSON.h"
#include "server/Dispatch.h"
#include "server/ServerState.h"
#include "support/FuzzHome.h"

namespace velta::fuzz {

struct ServerChoices {
  std::optional<std::string> client = "claude-code";
  HTTPFetcher* fetcher = nullptr;
  bool adminStats = false;
};

// Options of a server over the home: the clock stands still, what is said is thrown away.
ServerOptions serverOptions(const FuzzHome& home, const ServerChoices& choices);

// The value of `text`, which must be JSON on one line, of well-formed UTF-8, and be written again
// as it is.
JSON parsedLine(std::string_view text);

// What holds of the result of every tools/call: one text; a success has the same as a structure.
void checkEnvelope(const JSONObject& envelope);

// Every line of the activity log is one record; there must be `count`.
void checkActivityLog(const FuzzHome& home, std::size_t count);

class FuzzServer {
 public:
  FuzzServer(const FuzzHome& home, const ServerChoices& choices)
      : state(serverOptions(home, choices)), dispatch_(state) {}

  // The envelope of a call, checked, also as it would go over the wire.
  JSONObject call(const JSONObject& params);
  JSONObject call(std::string_view tool, JSONObject arguments);

  // The structure that a call answers; the call must not fail.
  JSONObject success(std::string_view tool, JSONObject arguments);

  std::size_t calls() const { return calls_; }

  ServerState state;

 private:
  Dispatch dispatch_;
  std::size_t calls_ = 0;
};

// Asks `server`, whose client may do and see everything, for all it has of every meeting, and
// compares what the tools say with what the index holds.
void askForEverything(FuzzServer& server);

}  // namespace velta::fuzz
