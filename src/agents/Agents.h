// Agents: what each AI agent may do, as the user set it in agents.json, and the log of what agents
// did. The file is read on every look-up, so a change of the settings takes effect on the next
// call. Nothing in it can stop the server: every defect falls back to the defaults (an unknown
// scope to the narrowest) and is reported by one warning.
#pragma once

#include <array>
#include <bitset>
#include <optional>
#include <string>
#include <string_view>

#include "agents/ActivityLog.h"
#include "config/Config.h"
#include "config/Warnings.h"
#include "json/JSON.h"
#include "platform/Time.h"

namespace velta {

// A permission that an agent can have.
struct Permission {
  std::string_view name;   // as in agents.json
  bool byDefault;          // granted when the user said nothing
  std::string_view label;  // as the settings show it
};

// All permissions, in the order in which users see them.
inline constexpr std::array<Permission, 5> kPermissions = {{
    {"search_meetings", true, "Search meetings"},
    {"read_notes", true, "Read notes"},
    {"read_transcripts", false, "Read full transcripts"},
    {"process_recordings", false, "Process recordings"},
    {"add_terms", false, "Add words to your word list"},
}};

// The permission that a tool needs, null when the tool needs none (the admin statistics, and tools
// that do not exist).
const Permission* permissionForTool(std::string_view tool);

// What one agent may do and see.
struct AgentPermissions {
  std::bitset<kPermissions.size()> granted;  // by position in kPermissions
  std::string scope = "all";                 // "all", "tagged" or "last_30_days"
  bool hidePrivate = true;                   // meetings tagged "private" stay hidden
  std::string source;                        // where this came from, for the start-up line

  // Whether the permission of that name is granted; false for a name that does not exist.
  bool has(std::string_view permission) const;
};

class Agents {
 public:
  using Outcome = ActivityLog::Outcome;

  // `config` and `warnings` must outlive this object; `today` stamps the log.
  Agents(const Config& config, Clock today, Warnings& warnings);

  // The permissions of the agent with this --client name; an absent name is looked up as "".
  AgentPermissions lookUp(const std::optional<std::string>& client) const;

  // Writes one call to the activity log; see ActivityLog::record.
  void record(const std::optional<std::string>& client, std::string_view tool,
              const JSONObject& arguments, Outcome outcome,
              const std::optional<std::string>& detail = std::nullopt);

 private:
  // What the file's "agents" says about `id`, and its parts. Defects are warned about.
  AgentPermissions entryOf(const JSONObject& agents, const std::string& id) const;
  void grantTools(AgentPermissions& permissions, const JSON& tools, const std::string& id) const;
  std::string scopeOf(const JSONObject& entry, const std::string& id) const;

  const Config& config_;
  Warnings& warnings_;
  ActivityLog log_;
};

}  // namespace velta
