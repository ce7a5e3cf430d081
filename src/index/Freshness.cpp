#include "index/Freshness.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "config/Dates.h"
#include "config/StoreError.h"

namespace velta {
namespace {

constexpr std::string_view kNeverBuilt =
    "No index yet. Next step: the server reads the sources on start; call again, and if this "
    "repeats check mcp-config.json at ";
constexpr std::string_view kEmptyBeforePath =
    "The index is empty. Most likely no source in mcp-config.json points at existing notes. Next "
    "step: add a source (see mcp/config.example.json) to ";
constexpr std::string_view kEmptyAfterPath =
    ", then call again; the server re-reads the sources on every call";
constexpr std::string_view kStaleAfterLimit =
    "). Newer meetings may be missing. Next step: call again; the server re-reads the sources when "
    "a file changed, or restart the MCP server";

constexpr double kDefaultLimitHours = 72;

constexpr std::array<std::string_view, 7> kWebMembers = {
    "connected", "ok", "at", "indexed", "merged_into_local", "unfinished", "note"};

double hoursBetween(Instant from, Instant to) {
  return std::chrono::duration<double>(to - from).count() / 3600.0;
}

bool fitsInteger(double value) {
  constexpr double kTwoToThe63 = 9223372036854775808.0;
  return value >= -kTwoToThe63 && value < kTwoToThe63;  // false for NaN as well
}

// Hours after which the index is stale; absent when no number that can be shown was configured.
std::optional<double> limitHours(const JSONObject& configFile) {
  const double limit = configFile.getNumber("stale_after_hours").value_or(kDefaultLimitHours);
  return fitsInteger(std::trunc(limit)) ? std::optional<double>(limit) : std::nullopt;
}

std::string staleWarning(double ageHours, double limit) {
  return "The index is " + std::to_string(std::llround(ageHours)) + " hours old (limit " +
         std::to_string(static_cast<std::int64_t>(limit)) + std::string(kStaleAfterLimit);
}

[[noreturn]] void throwNeverBuilt(const Config& config) {
  throw StoreError::index(std::string(kNeverBuilt) + config.configFile());
}

[[noreturn]] void throwEmpty(const Config& config) {
  throw StoreError::index(std::string(kEmptyBeforePath) + config.configFile() +
                          std::string(kEmptyAfterPath));
}

// The status of an index that was built and holds something.
JSONObject statusOf(Instant indexedAt, Instant now, const JSONObject& configFile) {
  const double age = hoursBetween(indexedAt, now);
  JSONObject status;
  status.set("indexed_at", localStamp(indexedAt));
  status.set("age_hours", std::nearbyint(age * 10) / 10);  // ties to even
  if (const auto limit = limitHours(configFile); limit && age > *limit) {
    status.set("warning", staleWarning(age, *limit));
  }
  return status;
}

}  // namespace

JSONObject freshness(const Index& index, const Config& config, Instant now,
                     const JSONObject* configFile) {
  if (!index.indexedAt()) throwNeverBuilt(config);
  if (index.entries().empty()) throwEmpty(config);
  JSONObject status = statusOf(*index.indexedAt(), now,
                               configFile != nullptr ? *configFile : config.loadConfigFile(false));
  if (index.cloudStatus()) addWebMeetings(status, *index.cloudStatus());
  return status;
}

void addWebMeetings(JSONObject& status, const JSONObject& cloudStatus) {
  JSONObject web;
  for (const std::string_view key : kWebMembers) {
    if (const JSON* value = cloudStatus.get(key)) web.set(key, *value);
  }
  status.set("web_meetings", std::move(web));
  const auto webWarning = cloudStatus.getString("warning");
  if (!webWarning) return;
  const auto warning = status.getString("warning");
  status.set("warning", warning ? std::string(*warning) + " Also: " + std::string(*webWarning)
                                : std::string(*webWarning));
}

}  // namespace velta
