#include "server/ServerState.h"

#include <utility>

#include "index/Freshness.h"

namespace velta {

ServerState::ServerState(ServerOptions options)
    : config(std::move(options.config)),
      diagnose(std::move(options.diagnose)),
      now(std::move(options.now)),
      warnings(diagnose),
      index(config, now),
      store(index, [this] { return freshness(index, config, now()); }),
      agents(config, now, warnings),
      jobs(config, std::move(options.executable)),
      terms(config, [this] { return index.peopleNames(); }),
      client(std::move(options.client)),
      allowed(config.clientVisibilities(client)),
      adminStats(options.adminStats) {}

Index::BuildResult ServerState::refreshIndex() {
  Index::BuildResult result = index.refresh(/*force=*/false);
  lastSynced = now();
  return result;
}

std::string ServerState::clientName() const { return client.value_or("unknown"); }

}  // namespace velta
