// ActivityLog: activity.jsonl, where the desktop app reads what each agent did. One tool call is
// one line, a compact JSON object:
//
//   {"time":"2025-06-01T08:15:02+00:00","agent":"claude-code","tool":"get_meeting",
//    "args":{"meeting_id":"rec-1"},"status":"error","detail":"No meeting …"}
//
// The file stands beside agents.json. It is opened, appended to by one write and closed for every
// record, so several servers may share it; nothing here reads, rotates or trims it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "config/Config.h"
#include "config/Warnings.h"
#include "json/JSON.h"
#include "platform/Time.h"

namespace velta {

class ActivityLog {
 public:
  // How a call ended: served, failed (unknown tools too), or refused for want of a permission.
  enum class Outcome { ok, denied, error };

  // `config` and `warnings` must outlive this object; `now` stamps the records.
  ActivityLog(const Config& config, Clock now, Warnings& warnings);

  // Appends one record; `client` is the --client name, logged as "unknown" when absent. Long values
  // are shortened, arguments that are null and an absent `detail` are left out. Creates the file
  // and its directory. A failure to write is one warning and nothing else: the call goes on.
  void record(const std::optional<std::string>& client, std::string_view tool,
              const JSONObject& arguments, Outcome outcome,
              const std::optional<std::string>& detail);

 private:
  void append(const std::string& line);

  const Config& config_;
  Clock now_;
  Warnings& warnings_;
};

}  // namespace velta
