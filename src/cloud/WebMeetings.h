// WebMeetings: the user's web meetings as they were last fetched, in memory and in the cache file
// "velta-mcp-cloud-cache.json" of the data home.
//
// The cache lets a start without network serve them, and lets a sync download only what changed. It
// is written by its owner's call (save) and during a long download, so that a start that is cut off
// has made progress. A cache that cannot be read costs one download and nothing else.
//
// Invariants
//  - rows() is what may be served: empty without a usable key and when web meetings are turned off.
//  - A sync that fails leaves rows() as it was; what it had downloaded waits for the next sync.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cloud/Cloud.h"
#include "json/JSON.h"
#include "meetings/Meeting.h"
#include "platform/Time.h"

namespace velta {

class WebMeetings {
 public:
  struct Row {
    std::string rev;  // the service's revision of the meeting
    // Shared with whoever shows the meeting: it is large, and never changes.
    std::shared_ptr<const Meeting> meeting;
    std::optional<std::string> applied;  // the rev that was merged into a local meeting
  };
  using Rows = std::map<std::string, Row>;  // by UUID, in lower case

  explicit WebMeetings(Cloud cloud) : cloud_(std::move(cloud)) {}

  // Brings the rows up to date with the service and returns the status of that: "connected", "ok",
  // "at", and what else there is to say. `configFile` is the loaded configuration. Never throws for
  // what the service does.
  JSONObject sync(const JSONObject& configFile, Instant now, const Cloud::Progress& progress = {});

  const Rows& rows() const { return rows_; }

  // Notes whether a row, as it is now, was merged into a local meeting.
  void setApplied(const std::string& uuid, bool isApplied);

  // Writes the cache when anything in it changed since. Throws std::system_error.
  void save();

  // Path of the cache file.
  static std::string cacheFile(const Config& config);

 private:
  // What a listing asks for.
  struct Plan {
    Rows kept;                                                // rows that did not change
    std::vector<std::pair<std::string, std::string>> wanted;  // UUID and rev, in list order
    std::size_t listed = 0;
  };

  JSONObject synced(const std::string& key, Instant now, const Cloud::Progress& progress);
  Plan planFrom(const std::vector<JSONObject>& listing) const;
  const Row* current(const std::string& uuid, const std::string& rev) const;
  void download(const std::string& key, const Plan& plan, const Cloud::Progress& progress);
  void adopt(Plan plan);
  void saveNowAndThen();
  void load();
  void forget();

  Cloud cloud_;
  Rows rows_;
  Rows waiting_;          // downloaded by a sync that has not ended well
  bool loaded_ = false;   // whether the cache was read
  bool changed_ = false;  // whether the cache would say something else now
  std::chrono::steady_clock::time_point lastSave_;
};

}  // namespace velta
