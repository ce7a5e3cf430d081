// Config: where the data home is, what the environment says, and the user's mcp-config.json.
//
// Made once at start and handed to every part. The configuration file is not cached: whoever needs
// it loads it, so an edit takes effect on the next call.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/JSON.h"

namespace velta {

using Environment = std::map<std::string, std::string>;

// The visibilities that exist, in their order.
inline constexpr std::array<std::string_view, 3> kKnownVisibilities = {"private", "work", "shared"};
bool isKnownVisibility(std::string_view word);

struct Config {
  std::string home;  // data home, an absolute path; it need not exist
  Environment env;   // captured at start; every look-up of the environment goes through it

  // The data home and the environment of this process.
  static Config fromEnvironment(Environment environment);

  // Path of mcp-config.json.
  std::string configFile() const;

  // Path of agents.json: MEETING_MCP_AGENTS when set and not empty ("~" expanded), else the file
  // of that name in the data home.
  std::string agentsFile() const;

  // Home directory of the user, for "~".
  std::string userHome() const;

  // The content that mcp-config.json has when the user wrote none.
  JSONObject defaultConfigFile() const;

  // The user's configuration with missing top-level keys filled from the default. A file that is
  // missing, does not parse or is not an object counts as the default and, when `writeDefault`, is
  // replaced by it on disk (a failure to write is ignored). Never fails.
  JSONObject loadConfigFile(bool writeDefault) const;

  // Visibilities that a client may see, in configured order, duplicates kept, unknown words
  // dropped. A name that is not listed under "clients" sees all three; no name (or an empty one)
  // gets "default_client_visibilities". Loads the file, writing the default.
  std::vector<std::string> clientVisibilities(const std::optional<std::string>& client) const;
};

// The data home: MEETING_NOTES_HOME, else the application support folder, else the sandbox
// container when only that exists.
std::string resolveDataHome(const Environment& environment);

}  // namespace velta
