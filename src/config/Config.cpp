#include "config/Config.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "config/BuildConstants.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::string_view kNote =
    "Meeting notes MCP config. Edit sources and clients here. clients: a listed --client name gets "
    "exactly that list; a name not listed sees everything; no --client gets "
    "default_client_visibilities. See mcp/config.example.json in the repo.";

constexpr std::string_view kApplicationSupport = "Library/Application Support/MeetingNotes";
constexpr int kIndentation = 2;

// The value of `name` in `environment`; a variable that is set to nothing counts as unset.
const std::string* findVariable(const Environment& environment, const std::string& name) {
  const auto found = environment.find(name);
  return found == environment.end() || found->second.empty() ? nullptr : &found->second;
}

std::string sandboxContainer(const std::string& userHome) {
  const std::string container =
      joinPath(userHome, "Library/Containers/" + std::string(kAppBundleIdentifier));
  return joinPath(joinPath(container, "Data"), kApplicationSupport);
}

JSON::Array allVisibilities() {
  JSON::Array words(kKnownVisibilities.begin(), kKnownVisibilities.end());
  return words;
}

JSONObject defaultSource(const std::string& home) {
  // The home may hold "[" or "*"; it must still stand for itself in the pattern.
  const std::string folder = escapeForGlob(repairUTF8(joinPath(home, "recordings")));
  return {{"type", "recordings"}, {"glob", folder + "/*/notes.json"}, {"visibility", "private"}};
}

std::optional<JSON> readJSONFile(const std::string& path) {
  try {
    return parseJSON(readFile(path));
  } catch (const std::system_error&) {
    return std::nullopt;
  } catch (const JSONParseError&) {
    return std::nullopt;
  }
}

void fillMissingKeys(JSONObject& object, const JSONObject& defaults) {
  for (const auto& [key, value] : defaults) {
    if (!object.has(key)) object.set(key, value);
  }
}

void tryToWrite(const JSONObject& object, const std::string& path) {
  try {
    writeJSONFile(object, path, kIndentation);
  } catch (const std::system_error&) {
    // A read-only home serves as well: the defaults hold without a file.
  }
}

// What the configuration says about `client`, as it stands there.
JSON::Array configuredVisibilities(const JSONObject& configuration,
                                   const std::optional<std::string>& client) {
  if (client && !client->empty()) {
    const JSONObject* clients = configuration.getObject("clients");
    const JSON::Array* listed = clients ? clients->getArray(*client) : nullptr;
    return listed ? *listed : allVisibilities();
  }
  const JSON::Array* byDefault = configuration.getArray("default_client_visibilities");
  return byDefault ? *byDefault : JSON::Array{"shared"};
}

}  // namespace

bool isKnownVisibility(std::string_view word) {
  return std::ranges::find(kKnownVisibilities, word) != kKnownVisibilities.end();
}

std::string resolveDataHome(const Environment& environment) {
  const std::string userHome = homeDirectory(environment);
  if (const std::string* chosen = findVariable(environment, "MEETING_NOTES_HOME")) {
    return absolutePath(expandTilde(*chosen, userHome));
  }
  std::string plain = joinPath(userHome, kApplicationSupport);
  if (fileStatus(plain)) return plain;
  std::string container = sandboxContainer(userHome);
  return fileStatus(container) ? container : plain;
}

Config Config::fromEnvironment(Environment environment) {
  std::string home = resolveDataHome(environment);
  return {std::move(home), std::move(environment)};
}

std::string Config::configFile() const { return joinPath(home, "mcp-config.json"); }

std::string Config::agentsFile() const {
  if (const std::string* chosen = findVariable(env, "MEETING_MCP_AGENTS")) {
    return absolutePath(expandTilde(*chosen, userHome()));
  }
  return joinPath(home, "agents.json");
}

std::string Config::userHome() const { return homeDirectory(env); }

JSONObject Config::defaultConfigFile() const {
  return {
      {"_note", kNote},
      {"sources", JSON::Array{defaultSource(home)}},
      {"clients",
       JSONObject{{"claude-code", allVisibilities()}, {"claude-desktop", allVisibilities()}}},
      {"default_client_visibilities", JSON::Array{"shared"}},
      {"visibility_overrides", JSONObject()},
      {"tag_overrides", JSONObject()},
      {"stale_after_hours", 72},
      {"cloud", JSONObject{{"enabled", true}, {"visibility", "private"}, {"refresh_seconds", 120}}},
  };
}

JSONObject Config::loadConfigFile(bool writeDefault) const {
  JSONObject defaults = defaultConfigFile();
  std::optional<JSON> loaded = readJSONFile(configFile());
  if (JSONObject* object = loaded ? loaded->asObject() : nullptr) {
    fillMissingKeys(*object, defaults);
    return std::move(*object);
  }
  if (writeDefault) tryToWrite(defaults, configFile());
  return defaults;
}

std::vector<std::string> Config::clientVisibilities(
    const std::optional<std::string>& client) const {
  std::vector<std::string> visibilities;
  for (const JSON& word : configuredVisibilities(loadConfigFile(true), client)) {
    const auto text = word.asString();
    if (text && isKnownVisibility(*text)) visibilities.emplace_back(*text);
  }
  return visibilities;
}

}  // namespace velta
