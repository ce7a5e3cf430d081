// What the tests of sessions ask, and whom.
#pragma once

#include <string>

#include "support/DataHome.h"
#include "support/ServerProcess.h"

namespace velta::test {

// A call of a tool as a client sends it; `arguments` is JSON text.
inline std::string toolCall(const std::string& tool, const std::string& arguments = "{}") {
  return R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":")" + tool +
         R"(","arguments":)" + arguments + "}}";
}

// A server over `home`, started by the agent claude-code.
inline ServerProcess::Options onHome(const DataHome& home) {
  return {.arguments = {"--client", "claude-code"}, .environment = home.environment()};
}

}  // namespace velta::test
