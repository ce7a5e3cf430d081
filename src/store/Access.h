// Access: what one caller may see. Made once a tool call from the client's visibilities and the
// agent's scope; every read tool asks it before it matches, counts or ranks anything.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agents/Agents.h"
#include "index/Index.h"
#include "platform/Time.h"

namespace velta {

struct Access {
  std::vector<std::string> allowed;  // visibilities, in configured order
  std::string scope = "all";         // "all", "tagged" or "last_30_days"
  bool hidePrivate = true;           // meetings tagged "private" are hidden
  std::optional<std::string> since;  // first day that "last_30_days" lets through
  bool isAgent = true;               // scope and hidePrivate apply

  // The access of a tool call at `now`.
  static Access forAgent(std::vector<std::string> allowed, const AgentPermissions& permissions,
                         Instant now);

  // Whether the meeting may be shown to this caller.
  bool sees(const Index::Entry& entry) const;

  // Why this caller sees nothing at all; absent when it sees at least one meeting of `index`.
  std::optional<std::string> noneVisibleMessage(const Index& index) const;

  friend bool operator==(const Access&, const Access&) = default;
};

// "['work', 'shared']", or "none" when `values` is empty.
std::string quotedListOrNone(const std::vector<std::string>& values);

}  // namespace velta
