// ToolSchemas: the catalogue of tools, and which of them a client sees.
//
// The rows of the catalogue stand in ToolSchemas.cpp; the schemas that clients get are made from
// them once, when the server is built.
//
// Adding a tool: its name below, a row in ToolSchemas.cpp, a handler in Dispatch.cpp (the compiler
// compares both tables with the names), a permission in agents/Agents.cpp, and the new
// tests/session/snapshots/tools-list.json.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "agents/Agents.h"
#include "json/JSON.h"

namespace velta {

// Every tool, in catalogue order.
inline constexpr std::array<std::string_view, 9> kToolNames = {
    "list_meetings",     "get_meeting", "search_transcripts", "get_transcript",    "get_person",
    "process_recording", "get_job",     "add_term",           "velta_admin_stats",
};

// The tool that exists only for an owner who starts the server with --admin-stats; it needs no
// agent permission.
inline constexpr std::string_view kAdminTool = "velta_admin_stats";

// Names out of kToolNames, in catalogue order.
using ToolNames = std::vector<std::string_view>;

class ToolSchemas {
 public:
  // One tool as clients see it.
  struct Def {
    std::string_view name;
    std::string description;
    JSONObject annotations;
    JSONObject inputSchema;
    JSONObject outputSchema;
  };

  ToolSchemas();

  const std::vector<Def>& all() const { return all_; }

  // The tools that a client with these permissions may use.
  static ToolNames visible(const AgentPermissions& permissions, bool adminStats);

  // What tools/list answers when these tools are visible.
  JSON::Array list(const ToolNames& visible) const;

 private:
  std::vector<Def> all_;  // in catalogue order
};

}  // namespace velta
