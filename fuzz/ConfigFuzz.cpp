// mcp-config.json and agents.json: whatever they hold, a server starts, and grants and shows no
// more than they say: a tool without its permission is refused, a meeting outside of the client's
// visibilities is never told.
//
// An input is the two files and the client's name (support/Sections.h).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Text.h"
#include "support/FuzzHome.h"
#include "support/FuzzServer.h"
#include "support/Guard.h"
#include "support/Require.h"
#include "support/Sections.h"

namespace {

using velta::JSON;
using velta::JSONObject;
using velta::fuzz::FuzzServer;
using velta::fuzz::require;

velta::fuzz::FuzzHome& home() {
  static velta::fuzz::FuzzHome theHome(velta::fuzz::usualFiles());
  return theHome;
}

std::optional<JSON> valueOf(const std::string& text) {
  try {
    return velta::parseJSON(text);
  } catch (const velta::JSONParseError&) {
    return std::nullopt;
  }
}

// Whether all that the source finds lies in the home: a pattern is the user's own and may lead
// anywhere, which is not what is tried here.
bool staysInHome(const JSON& source) {
  constexpr std::size_t kMostStars = 4;
  const JSONObject* object = source.asObject();
  if (object == nullptr) return true;
  for (const char* key : {"glob", "path"}) {
    const auto pattern = object->getString(key);
    if (!pattern) continue;
    if (!pattern->starts_with("~/") || pattern->find("..") != std::string_view::npos) return false;
    if (static_cast<std::size_t>(std::ranges::count(*pattern, '*')) > kMostStars) return false;
  }
  return true;
}

bool sourcesStayInHome(const JSONObject& configFile) {
  const JSON::Array* sources = configFile.getArray("sources");
  return sources == nullptr || std::ranges::all_of(*sources, staysInHome);
}

// A file that says nothing is replaced by the default on disk; one that is an object stays.
void checkLoading(const velta::Config& config, const std::string& text) {
  const auto value = valueOf(text);
  const bool isObject = value && value->asObject() != nullptr;
  const JSONObject loaded = config.loadConfigFile(/*writeDefault=*/true);
  for (const auto& [key, byDefault] : config.defaultConfigFile())
    require(loaded.has(key), "a configuration has every key", key);
  if (isObject) {
    for (const auto& [key, member] : *value->asObject())
      require(velta::writeCompact(*loaded.get(key)) == velta::writeCompact(member),
              "what the user wrote counts", key);
    require(home().read("mcp-config.json") == text, "the user's file stays as it is");
  } else {
    require(loaded == config.defaultConfigFile(), "a broken file counts as the default");
    require(valueOf(home().read("mcp-config.json")) == JSON(loaded), "the default is written");
  }
}

// Whether agents.json grants the permission by a real true.
bool isGranted(const std::string& text, const std::string& client, const velta::Permission& what) {
  const auto value = valueOf(text);
  const JSONObject* top = value ? value->asObject() : nullptr;
  const JSONObject* agents = top != nullptr ? top->getObject("agents") : nullptr;
  const JSONObject* agent = agents != nullptr ? agents->getObject(client) : nullptr;
  const JSONObject* tools = agent != nullptr ? agent->getObject("tools") : nullptr;
  return tools != nullptr && tools->getBool(what.name) == true;
}

void checkPermissions(FuzzServer& server, const std::string& agents, const std::string& client) {
  const velta::AgentPermissions permissions = server.state.agents.lookUp(client);
  for (const velta::Permission& permission : velta::kPermissions) {
    if (permissions.has(permission.name))
      require(permission.byDefault || isGranted(agents, client, permission),
              "nothing is granted that nobody granted", permission.name);
  }
  const auto visible = velta::ToolSchemas::visible(permissions, false);
  for (const std::string_view tool : velta::kToolNames) {
    const bool isVisible = std::ranges::find(visible, tool) != visible.end();
    const JSONObject envelope =
        server.call(tool, {{"id", "x"}, {"query", "押金"}, {"name", "Arlo"}});
    if (!isVisible)
      require(envelope.getBool("isError") == true, "a tool that is not shown is refused", tool);
  }
}

void checkIsAllowed(const FuzzServer& server, std::string_view id, const JSONObject& meeting) {
  const auto& allowed = server.state.allowed;
  const velta::Index::Entry* entry = server.state.index.find(std::string(id));
  require(entry != nullptr, "a meeting that is told is in the index", id);
  require(std::ranges::find(allowed, entry->visibility) != allowed.end(),
          "no meeting is told outside of the client's visibilities", velta::writeCompact(meeting));
}

void checkMeetings(FuzzServer& server) {
  const JSONObject envelope = server.call("list_meetings", {});
  const JSONObject* result = envelope.getObject("structuredContent");
  if (result == nullptr) return;
  for (const JSON& meeting : *result->getArray("meetings"))
    checkIsAllowed(server, *meeting.asObject()->getString("id"), *meeting.asObject());
  const JSONObject found = server.call("search_transcripts", {{"query", "e"}});
  if (const JSONObject* hits = found.getObject("structuredContent")) {
    for (const JSON& hit : *hits->getArray("hits"))
      checkIsAllowed(server, *hit.asObject()->getString("meeting_id"), *hit.asObject());
  }
  for (const auto& [id, entry] : server.state.index.entries()) {
    const JSONObject answer = server.call("get_meeting", {{"id", id}});
    if (const JSONObject* meeting = answer.getObject("structuredContent"))
      checkIsAllowed(server, id, *meeting);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto sections = velta::fuzz::sectionsOf({reinterpret_cast<const char*>(data), size});
  std::string client = sections["client"];
  if (client.ends_with('\n')) client.pop_back();
  if (client.empty()) client = "claude-code";
  home().restore();
  home().write("mcp-config.json", sections["mcp-config.json"]);
  home().write("agents.json", sections["agents.json"]);

  const velta::fuzz::Guard guard(home().path());
  checkLoading(home().config(), sections["mcp-config.json"]);
  FuzzServer server(home(), {.client = velta::repairUTF8(client)});
  if (!sourcesStayInHome(server.state.config.loadConfigFile(/*writeDefault=*/false))) return 0;
  checkPermissions(server, sections["agents.json"], velta::repairUTF8(client));
  checkMeetings(server);
  velta::fuzz::checkActivityLog(home(), server.calls());
  return 0;
}
