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

#include "admin/AdminStats.h"
#include "agents/Agents.h"
#include "cloud/HTTPFetcher.h"
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
  // How requests go out; it must outlive the server. Without it there are neither web meetings nor
  // figures for the owner.
  HTTPFetcher* fetcher = nullptr;
  AdminStats::Keychain keychain = AdminStats::keychainToken;
  // Descriptor of a terminal on which a long start may show how far it is; absent: nowhere.
  std::optional<int> terminal = {};
};

struct ServerState {
  explicit ServerState(ServerOptions options);

  ServerState(const ServerState&) = delete;
  ServerState& operator=(const ServerState&) = delete;

  // Brings the index up to date with the configuration as it is now. The first time may take long,
  // and shows on the terminal how far it is.
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
  const std::optional<AdminStats> admin;  // with --admin-stats
  const std::optional<std::string> client;
  const std::vector<std::string> allowed;  // visibilities that the client may see, fixed at start
  const bool adminStats;
  const std::optional<int> terminal;
  std::optional<Instant> lastSynced;  // when the index was last refreshed
  std::optional<ToolNames> listed;    // as last told by tools/list; absent when a change was told
  const ToolSchemas schemas;
};

}  // namespace velta
