#include "server/ServerState.h"

#include <utility>

#include "cloud/CloudCommand.h"
#include "index/Freshness.h"
#include "platform/ProgressLine.h"

namespace velta {
namespace {

std::optional<AdminStats> adminStatsOf(const ServerOptions& options, const Config& config) {
  if (!options.adminStats || options.fetcher == nullptr) return std::nullopt;
  return AdminStats(config.env, *options.fetcher, options.keychain);
}

}  // namespace

ServerState::ServerState(ServerOptions options)
    : config(std::move(options.config)),
      diagnose(std::move(options.diagnose)),
      now(std::move(options.now)),
      warnings(diagnose),
      index(config, now, options.fetcher),
      store(index, [this] { return freshness(index, config, now()); }),
      agents(config, now, warnings),
      jobs(config, std::move(options.executable)),
      terms(config, [this] { return index.peopleNames(); }),
      admin(adminStatsOf(options, config)),
      client(std::move(options.client)),
      allowed(config.clientVisibilities(client)),
      adminStats(options.adminStats),
      terminal(options.terminal) {
  removeStaleTemporariesOfHome(config);
  jobs.removeStaleTemporaries();
}

Index::BuildResult ServerState::refreshIndex() {
  std::optional<ProgressLine> line;
  Index::Progress progress;
  if (terminal && !lastSynced) {
    line.emplace(*terminal);
    progress = [&line](const std::string& text) { line->say(text); };
  }
  Index::BuildResult result = index.refresh(/*force=*/false, /*config=*/nullptr, progress);
  lastSynced = now();
  return result;
}

std::string ServerState::clientName() const { return client.value_or("unknown"); }

}  // namespace velta
