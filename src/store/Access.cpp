#include "store/Access.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

#include "config/Dates.h"

namespace velta {
namespace {

constexpr std::string_view kAgentBeforeList =
    "No meetings are visible to this agent. Its allowed visibilities are ";
constexpr std::string_view kAgentBeforeScope = ", its meeting scope is '";
constexpr std::string_view kPrivateHidden = " and meetings tagged private are hidden";
constexpr std::string_view kAgentNextStep =
    ". Next step: if it should see more, the user widens this agent's scope in agents.json (Velta "
    "settings), tags meetings agents for the tagged scope, or changes its visibilities under "
    "clients in mcp-config.json";
constexpr std::string_view kClientBeforeList =
    "No meetings are visible to this client. Its allowed visibilities are ";
constexpr std::string_view kClientNextStep =
    ". Next step: if this client should see them, change its entry under clients in "
    "mcp-config.json or mark specific meetings work/shared under visibility_overrides, then run "
    "the indexer";

constexpr std::chrono::seconds kThirtyDays(2'592'000);
constexpr std::string_view kAfterEveryDay = "9999-12-31";

bool contains(const std::vector<std::string>& words, std::string_view word) {
  return std::ranges::find(words, word) != words.end();
}

// Days compare as texts, on purpose: what a meeting's files say is never parsed.
bool isOnOrAfter(const std::optional<std::string>& date, const std::optional<std::string>& since) {
  return date && *date >= (since ? std::string_view(*since) : kAfterEveryDay);
}

std::string agentMessage(const Access& access) {
  std::string message(kAgentBeforeList);
  message += quotedListOrNone(access.allowed);
  message += kAgentBeforeScope;
  message += access.scope + "'";
  if (access.hidePrivate) message += kPrivateHidden;
  message += kAgentNextStep;
  return message;
}

std::string clientMessage(const Access& access) {
  std::string message(kClientBeforeList);
  message += quotedListOrNone(access.allowed);
  message += kClientNextStep;
  return message;
}

}  // namespace

Access Access::forAgent(std::vector<std::string> allowed, const AgentPermissions& permissions,
                        Instant now) {
  Access access;
  access.allowed = std::move(allowed);
  access.scope = permissions.scope;
  access.hidePrivate = permissions.hidePrivate;
  if (access.scope == "last_30_days") access.since = localDay(now - kThirtyDays);
  return access;
}

bool Access::sees(const Index::Entry& entry) const {
  if (!contains(allowed, entry.visibility)) return false;
  if (!isAgent) return true;
  if (hidePrivate && contains(entry.tags, "private")) return false;
  if (scope == "all") return true;
  if (scope == "tagged") return contains(entry.tags, "agents");
  return scope == "last_30_days" && isOnOrAfter(entry.meeting->date, since);
}

std::optional<std::string> Access::noneVisibleMessage(const Index& index) const {
  const auto isSeen = [this](const auto& idAndEntry) { return sees(idAndEntry.second); };
  if (std::ranges::any_of(index.entries(), isSeen)) return std::nullopt;
  const bool agentIsNarrowed = scope != "all" || hidePrivate;
  return isAgent && !allowed.empty() && agentIsNarrowed ? agentMessage(*this)
                                                        : clientMessage(*this);
}

std::string quotedListOrNone(const std::vector<std::string>& values) {
  if (values.empty()) return "none";
  std::string list = "[";
  for (const std::string& value : values) {
    if (list.size() > 1) list += ", ";
    list += "'" + value + "'";
  }
  return list + "]";
}

}  // namespace velta
