// Dispatch: the way of one tools/call to the tool's handler and back.
//
// In this order: the notice that the client's tools changed, the permission gate, the handler
// (which refreshes the index first where it reads it), the activity log, the envelope. Whatever a
// handler throws becomes an envelope that is marked as an error, never a fault of the protocol.
// Nothing is kept here between calls; agents.json is looked up once a call.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSON.h"
#include "server/ServerState.h"

namespace velta {

// The result of a request: an object, of which one member may be written already. That is the
// content of a tool's answer: the same once more as a text, too large to be made first and then
// escaped.
struct Result {
  // Not explicit, on purpose: most results are just an object.
  Result(JSONObject theMembers, std::string theContent = {})
      : members(std::move(theMembers)), content(std::move(theContent)) {}

  JSONObject members;
  std::string content;  // the JSON of "content", which comes before the members; empty when absent
};

class Dispatch {
 public:
  // `state` must outlive this.
  explicit Dispatch(ServerState& state) : state_(state) {}

  // The result of tools/call with these params. Lines that must go out before the answer are
  // appended to `queue`.
  Result call(const JSONObject& params, std::vector<std::string>& queue);

 private:
  void noticeChangedTools(const ToolNames& visible, std::vector<std::string>& queue);
  std::string refusal(std::string_view tool, const Permission& needed) const;
  Result succeeded(const std::string& tool, const JSONObject& arguments, JSONObject answer);
  Result failed(const std::string& tool, const JSONObject& arguments, Agents::Outcome outcome,
                std::string_view message);

  ServerState& state_;
};

}  // namespace velta
