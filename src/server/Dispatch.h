// Dispatch: the way of one tools/call to the tool's handler and back.
//
// In this order: the notice that the client's tools changed, the permission gate, the handler
// (which refreshes the index first where it reads it), the activity log, the envelope. Whatever a
// handler throws becomes an envelope that is marked as an error, never a fault of the protocol.
// Nothing is kept here between calls; agents.json is looked up once a call.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "json/JSON.h"
#include "server/ServerState.h"

namespace velta {

class Dispatch {
 public:
  // `state` must outlive this.
  explicit Dispatch(ServerState& state) : state_(state) {}

  // The result of tools/call with these params. Lines that must go out before the answer are
  // appended to `queue`.
  JSONObject call(const JSONObject& params, std::vector<std::string>& queue);

 private:
  void noticeChangedTools(const ToolNames& visible, std::vector<std::string>& queue);
  std::string refusal(std::string_view tool, const Permission& needed) const;
  JSONObject succeeded(const std::string& tool, const JSONObject& arguments, JSONObject result);
  JSONObject failed(const std::string& tool, const JSONObject& arguments, Agents::Outcome outcome,
                    std::string_view message);

  ServerState& state_;
};

}  // namespace velta
