#include "agents/Agents.h"

#include <algorithm>
#include <cstddef>
#include <system_error>
#include <utility>

#include "json/JSONParser.h"
#include "platform/Files.h"

namespace velta {
namespace {

// Where permissions came from, as the start-up line says it.
constexpr std::string_view kFromFile = "agents.json";
constexpr std::string_view kNoFile = "defaults (no agents.json)";
constexpr std::string_view kFileBroken = "defaults (agents.json broken)";
constexpr std::string_view kNotListed = "defaults (agent not in agents.json)";
constexpr std::string_view kEntryBroken = "defaults (entry broken)";

constexpr std::string_view kScopeAll = "all";
constexpr std::string_view kNarrowestScope = "tagged";
constexpr std::array<std::string_view, 3> kScopes = {kScopeAll, kNarrowestScope, "last_30_days"};

struct ToolPermission {
  std::string_view tool;
  std::string_view permission;
};

constexpr std::array<ToolPermission, 8> kToolPermissions = {{
    {"list_meetings", "search_meetings"},
    {"search_transcripts", "search_meetings"},
    {"get_meeting", "read_notes"},
    {"get_person", "read_notes"},
    {"get_transcript", "read_transcripts"},
    {"process_recording", "process_recordings"},
    {"get_job", "process_recordings"},
    {"add_term", "add_terms"},
}};

const Permission* findPermission(std::string_view name) {
  const auto* const found = std::ranges::find(kPermissions, name, &Permission::name);
  return found == kPermissions.end() ? nullptr : found;
}

std::size_t positionOf(const Permission& permission) {
  return static_cast<std::size_t>(&permission - kPermissions.data());
}

template <class Words>
std::string commaSeparated(const Words& words) {
  std::string list;
  for (const std::string_view word : words) {
    if (!list.empty()) list += ", ";
    list += word;
  }
  return list;
}

std::string permissionNames() {
  std::array<std::string_view, kPermissions.size()> names;
  std::ranges::transform(kPermissions, names.begin(), &Permission::name);
  return commaSeparated(names);
}

std::string fileIsBroken(const std::string& path) {
  return path +
         R"( is broken (top level must be {"agents": {"<agent id>": {...}}}); every agent gets the )"
         "default permissions (search and read notes only). Next step: fix the file in Velta "
         "settings or delete it";
}

std::string entryIsNoObject(const std::string& id) {
  return "agents.json: entry for '" + id + "' is not an object; using the defaults";
}

std::string toolsAreNoObject(const std::string& id) {
  return "agents.json: tools for '" + id + "' is not an object; using the default tools";
}

std::string unknownPermission(std::string_view name, const std::string& id) {
  return "agents.json: unknown permission '" + std::string(name) + "' for '" + id +
         "' ignored; valid: " + permissionNames();
}

std::string unknownScope(std::string_view scope, const std::string& id) {
  return "agents.json: scope '" + std::string(scope) + "' for '" + id + "' is not one of " +
         commaSeparated(kScopes) + "; using 'tagged', the narrowest";
}

std::optional<std::string> readIfPossible(const std::string& path) {
  try {
    return readFile(path);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

JSON parsedOrNull(std::string_view text) {
  try {
    return parseJSON(text);
  } catch (const JSONParseError&) {
    return nullptr;
  }
}

// The member "agents" of the document, null when there is no such object.
const JSONObject* agentsOf(const JSON& document) {
  const JSONObject* top = document.asObject();
  return top ? top->getObject("agents") : nullptr;
}

AgentPermissions defaults(std::string_view source) {
  AgentPermissions permissions;
  for (const Permission& permission : kPermissions) {
    permissions.granted[positionOf(permission)] = permission.byDefault;
  }
  permissions.source = source;
  return permissions;
}

}  // namespace

const Permission* permissionForTool(std::string_view tool) {
  const auto* const found = std::ranges::find(kToolPermissions, tool, &ToolPermission::tool);
  return found == kToolPermissions.end() ? nullptr : findPermission(found->permission);
}

bool AgentPermissions::has(std::string_view permission) const {
  const Permission* found = findPermission(permission);
  return found != nullptr && granted[positionOf(*found)];
}

Agents::Agents(const Config& config, Clock today, Warnings& warnings)
    : config_(config), warnings_(warnings), log_(config, std::move(today), warnings) {}

AgentPermissions Agents::lookUp(const std::optional<std::string>& client) const {
  const std::string path = config_.agentsFile();
  const std::optional<std::string> text = readIfPossible(path);
  if (!text) return defaults(fileStatus(path) ? kFileBroken : kNoFile);
  const JSON document = parsedOrNull(*text);
  if (const JSONObject* agents = agentsOf(document)) return entryOf(*agents, client.value_or(""));
  warnings_.warn(fileIsBroken(path));
  return defaults(kFileBroken);
}

AgentPermissions Agents::entryOf(const JSONObject& agents, const std::string& id) const {
  const JSON* entry = agents.get(id);
  if (entry == nullptr) return defaults(kNotListed);
  const JSONObject* object = entry->asObject();
  if (object == nullptr) {
    warnings_.warn(entryIsNoObject(id));
    return defaults(kEntryBroken);
  }
  AgentPermissions permissions = defaults(kFromFile);
  if (const JSON* tools = object->get("tools")) grantTools(permissions, *tools, id);
  permissions.scope = scopeOf(*object, id);
  permissions.hidePrivate = object->getBool("hide_private").value_or(true);
  return permissions;
}

void Agents::grantTools(AgentPermissions& permissions, const JSON& tools,
                        const std::string& id) const {
  if (tools.isNull()) return;
  const JSONObject* object = tools.asObject();
  if (object == nullptr) {
    warnings_.warn(toolsAreNoObject(id));
    return;
  }
  for (const auto& [name, value] : *object) {
    if (const Permission* permission = findPermission(name)) {
      // Only a real true grants; "yes" and 1 take the permission away, on purpose.
      permissions.granted[positionOf(*permission)] = value.asBool().value_or(false);
    } else {
      warnings_.warn(unknownPermission(name, id));
    }
  }
}

std::string Agents::scopeOf(const JSONObject& entry, const std::string& id) const {
  if (!entry.has("scope")) return std::string(kScopeAll);
  const std::string_view scope = entry.getString("scope").value_or("");
  if (std::ranges::find(kScopes, scope) != kScopes.end()) return std::string(scope);
  warnings_.warn(unknownScope(scope, id));
  return std::string(kNarrowestScope);
}

void Agents::record(const std::optional<std::string>& client, std::string_view tool,
                    const JSONObject& arguments, Outcome outcome,
                    const std::optional<std::string>& detail) {
  log_.record(client, tool, arguments, outcome, detail);
}

}  // namespace velta
