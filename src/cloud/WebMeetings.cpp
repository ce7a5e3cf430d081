#include "cloud/WebMeetings.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <variant>

#include "cloud/CloudCache.h"
#include "cloud/ConnectionKey.h"
#include "cloud/WebMeeting.h"
#include "config/BuildConstants.h"
#include "config/Dates.h"
#include "json/JSONWriter.h"
#include "meetings/TextNorm.h"
#include "platform/Files.h"

namespace velta {
namespace {

constexpr std::string_view kCacheName = "velta-mcp-cloud-cache.json";
constexpr std::chrono::seconds kBetweenSaves(5);  // during a download

constexpr std::string_view kTurnedOff =
    "web meetings are turned off (cloud.enabled false in mcp-config.json)";

std::string serviceHost() {
  return std::string(kServiceOrigin.substr(kServiceOrigin.find("://") + 3));
}

std::string noKeyNote(const NoKey& noKey) {
  if (!noKey.isAbsent) return "web meetings are not included: " + noKey.reason;
  return "Web meetings (" + serviceHost() +
         ") are not included: this Mac has no Velta connection key. " + std::string(kCreateKey);
}

JSONObject notServed(Instant now, std::string_view note) {
  return {{"connected", false}, {"ok", false}, {"at", utcStamp(now)}, {"note", note}};
}

JSONObject failed(Instant now, const CloudError& error) {
  return {{"connected", true},
          {"ok", false},
          {"at", utcStamp(now)},
          {"kind", error.kind()},
          {"warning", error.what()}};
}

bool isTurnedOff(const JSONObject& configFile) {
  const JSONObject* cloud = configFile.getObject("cloud");
  return cloud != nullptr && cloud->getBool("enabled") == false;
}

// A meeting that the service has finished with; others are not asked for.
bool isDone(const JSONObject& listed) {
  const auto status = listed.getString("status");
  return !status || status->empty() || *status == "done";
}

std::string revOf(const JSONObject& listed) {
  const JSON* rev = listed.get("rev");
  if (rev == nullptr || !rev->truthy()) return "";
  const auto text = rev->asString();
  return text ? std::string(*text) : writeCompact(*rev);
}

std::string missingWarning(std::size_t missing, std::size_t requested) {
  return "web meetings: " + std::to_string(missing) + " of " + std::to_string(requested) +
         " changed meetings did not come back; they are left out until the next sync";
}

}  // namespace

std::string WebMeetings::cacheFile(const Config& config) {
  return joinPath(config.home, kCacheName);
}

JSONObject WebMeetings::sync(const JSONObject& configFile, Instant now,
                             const Cloud::Progress& progress) {
  if (isTurnedOff(configFile)) {
    forget();
    return notServed(now, kTurnedOff);
  }
  const auto key = loadKey(cloud_.config());
  if (const NoKey* noKey = std::get_if<NoKey>(&key)) {
    forget();
    return notServed(now, noKeyNote(*noKey));
  }
  load();
  JSONObject status;
  try {
    status = synced(std::get<ConnectionKey>(key).key, now, progress);
  } catch (const CloudError& error) {
    status = failed(now, error);
  }
  cloud_.endSession();
  return status;
}

JSONObject WebMeetings::synced(const std::string& key, Instant now,
                               const Cloud::Progress& progress) {
  Plan plan = planFrom(cloud_.fetchAll(key, progress));
  const std::size_t requested = plan.wanted.size();
  const std::size_t listed = plan.listed;
  const std::size_t kept = plan.kept.size();
  download(key, plan, progress);
  adopt(std::move(plan));

  const std::size_t downloaded = rows_.size() - kept;
  JSONObject status = {{"connected", true},        {"ok", true},
                       {"at", utcStamp(now)},      {"meetings", rows_.size()},
                       {"downloaded", downloaded}, {"unfinished", listed - rows_.size()}};
  if (downloaded < requested)
    status.set("warning", missingWarning(requested - downloaded, requested));
  return status;
}

WebMeetings::Plan WebMeetings::planFrom(const std::vector<JSONObject>& listing) const {
  Plan plan;
  plan.listed = listing.size();
  for (const JSONObject& listed : listing) {
    if (!isDone(listed)) continue;
    const std::string uuid(*listed.getString("id"));
    std::string rev = revOf(listed);
    if (const Row* row = current(uuid, rev)) {
      plan.kept.emplace(uuid, *row);
    } else {
      plan.wanted.emplace_back(uuid, std::move(rev));
    }
  }
  return plan;
}

// What we have of a meeting at exactly this rev; null when it has to be downloaded.
const WebMeetings::Row* WebMeetings::current(const std::string& uuid,
                                             const std::string& rev) const {
  for (const Rows* rows : {&waiting_, &rows_}) {
    const auto row = rows->find(uuid);
    if (row != rows->end() && row->second.rev == rev) return &row->second;
  }
  return nullptr;
}

// Puts the meetings of the plan into waiting_, as far as they come.
void WebMeetings::download(const std::string& key, const Plan& plan,
                           const Cloud::Progress& progress) {
  const auto& wanted = plan.wanted;
  lastSave_ = std::chrono::steady_clock::now();
  for (std::size_t begin = 0; begin < wanted.size(); begin += Cloud::kBatch) {
    const std::size_t end = std::min(begin + Cloud::kBatch, wanted.size());
    std::vector<std::string> ids;
    std::unordered_map<std::string, std::string> revs;
    for (std::size_t i = begin; i < end; ++i) {
      ids.push_back(wanted[i].first);
      revs.insert(wanted[i]);
    }
    for (JSONObject& object : cloud_.fetchByIds(key, ids)) {
      const std::string uuid = lowerASCII(object.getString("id").value_or(""));
      const auto asked = revs.extract(uuid);
      if (!asked) continue;  // nobody asked for it, or it is there already
      auto meeting = std::make_shared<const Meeting>(webMeeting(uuid, std::move(object)));
      waiting_.insert_or_assign(uuid, Row{asked.mapped(), std::move(meeting), std::nullopt});
      changed_ = true;
    }
    if (progress)
      progress("web meetings: " + std::to_string(end) + " of " + std::to_string(wanted.size()) +
               " downloaded");
    saveNowAndThen();
  }
}

// Serves what the listing holds: the rows that did not change and what was downloaded.
void WebMeetings::adopt(Plan plan) {
  Rows next = std::move(plan.kept);
  for (const auto& [uuid, rev] : plan.wanted) {
    const auto row = waiting_.find(uuid);
    if (row != waiting_.end() && row->second.rev == rev) next.insert(waiting_.extract(row));
  }
  const auto isGone = [&next](const auto& row) { return !next.contains(row.first); };
  changed_ = changed_ || !waiting_.empty() || std::ranges::any_of(rows_, isGone);
  rows_ = std::move(next);
  waiting_.clear();
}

void WebMeetings::setApplied(const std::string& uuid, bool isApplied) {
  Row& row = rows_.at(uuid);
  std::optional<std::string> applied = isApplied ? std::optional(row.rev) : std::nullopt;
  if (row.applied == applied) return;
  row.applied = std::move(applied);
  changed_ = true;
}

void WebMeetings::save() {
  if (!changed_) return;
  // The user may have disconnected meanwhile, and wants no cache left.
  if (!std::holds_alternative<ConnectionKey>(loadKey(cloud_.config()))) return;
  Rows all = waiting_;
  all.insert(rows_.begin(), rows_.end());  // of a meeting that waits, the newer one stays
  writeCloudCache(all, cacheFile(cloud_.config()));
  changed_ = false;
}

// A failure is told when the sync has ended.
void WebMeetings::saveNowAndThen() {
  if (std::chrono::steady_clock::now() - lastSave_ < kBetweenSaves) return;
  try {
    save();
  } catch (const std::system_error&) {
    changed_ = true;
  }
  lastSave_ = std::chrono::steady_clock::now();
}

void WebMeetings::load() {
  if (loaded_) return;
  rows_ = readCloudCache(cacheFile(cloud_.config()));
  loaded_ = true;
}

// Without key nothing is kept in memory either; the file stays for the day when there is one.
void WebMeetings::forget() {
  rows_.clear();
  waiting_.clear();
  loaded_ = false;
  changed_ = false;
}

}  // namespace velta
