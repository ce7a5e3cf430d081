// ServerState: what a server is made of, in order of construction: a part borrows only from parts
// above it. The session (Server) and the tool calls (Dispatch) work on it; it has no behaviour of
// its own but the refresh that both need.
//
// It does not move: its parts hold references to one another.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agents/Agents.h"
#include "config/Config.h"
#include "config/Warnings.h"
#include "index/Index.h"
#include "jobs/Jobs.h"
#include "platform/Time.h"
#include "server/ToolSchemas.h"
#include "store/Store.h"
#include "terms/Terms.h"

namespace velta {

// What a server is built from.
struct ServerOptions {
  Config config;
  std::optional<std::string> client;  // --client
  bool adminStats = false;            // --admin-stats
  std::string executable = {};        // path of the running program
  // Takes whole diagnostic lines, line feed included; it must not stall the protocol.
  std::function<void(std::string_view)> diagnose;
  Clock now = systemNow;
};

struct ServerState {
  explicit ServerState(ServerOptions options);

  ServerState(const ServerState&) = delete;
  ServerState& operator=(const ServerState&) = delete;

  // Brings the index up to date with the configuration as it is now.
  Index::BuildResult refreshIndex();

  // The client's name as users read it.
  std::string clientName() const;

  const Config config;
  const std::function<void(std::string_view)> diagnose;
  const Clock now;
  Warnings warnings;
  Index index;
  Store store;
  Agents agents;
  Jobs jobs;
  Terms terms;
  const std::optional<std::string> client;
  const std::vector<std::string> allowed;  // visibilities that the client may see, fixed at start
  const bool adminStats;
  std::optional<Instant> lastSynced;  // when the index was last refreshed
  std::optional<ToolNames> listed;    // as last told by tools/list; absent when a change was told
  const ToolSchemas schemas;
};

}  // namespace velta
