// Web meetings: whatever the service answers and the cache file holds, a sync ends in a status and
// rows that come back from the cache as they were, a second sync downloads nothing again, and the
// server tells about the meetings in well-formed answers.
//
// An input is a list, a download and a cache (support/Sections.h); "status" has the HTTP statuses
// of the first two, 200 when it has none.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "cloud/CloudCache.h"
#include "cloud/WebMeetings.h"
#include "json/JSONWriter.h"
#include "meetings/TextNorm.h"
#include "support/CannedFetcher.h"
#include "support/FuzzHome.h"
#include "support/FuzzServer.h"
#include "support/Guard.h"
#include "support/Require.h"
#include "support/Sections.h"

namespace {

using velta::JSONObject;
using velta::WebMeetings;
using velta::fuzz::CannedFetcher;
using velta::fuzz::require;

constexpr const char* kCache = "velta-mcp-cloud-cache.json";

// One local meeting, the twin of a web meeting.
velta::fuzz::FuzzHome& home() {
  static velta::fuzz::FuzzHome theHome(
      {{"mcp-config.json",
        R"({"sources": [{"type": "recordings", "glob": "~/recordings/*/notes.json"}]})"},
       {"agents.json", velta::fuzz::usualFiles().at("agents.json")},
       {"recordings/2026-10-12-週會/notes.json",
        R"({"title": "週會", "user_notes": " ", "lines": [{"speaker": "Arlo", "text": "押金"}]})"},
       {"recordings/2026-10-12-週會/upload.json",
        R"({"meeting_id": "00000000-0000-4000-8000-000000000001", "state": "done"})"}});
  return theHome;
}

std::string shown(const WebMeetings::Rows& rows) {
  std::string text;
  for (const auto& [uuid, row] : rows) {
    const JSONObject form{
        {"rev", row.rev}, {"meeting", row.meeting->toJSON()}, {"applied", row.applied}};
    text += uuid + " " + velta::writeCompact(form) + "\n";
  }
  return text;
}

void checkRows(const WebMeetings::Rows& rows) {
  for (const auto& [uuid, row] : rows) {
    require(velta::uuidPattern().matches(uuid), "a row has a UUID", uuid);
    require(row.meeting->id == "cloud-" + uuid && row.meeting->source == "cloud",
            "a row holds the meeting of its UUID", uuid);
    require(!row.meeting->visibilityHint, "the service has no say in who sees a meeting", uuid);
  }
}

// What a cache file holds is the same when it was written again.
void checkCacheFile() {
  const std::string again = home().file("again.json");
  const auto rows = velta::readCloudCache(home().file(kCache));
  checkRows(rows);
  velta::writeCloudCache(rows, again);
  const std::string text = home().read("again.json");
  const auto rowsAgain = velta::readCloudCache(again);
  require(shown(rowsAgain) == shown(rows), "rows come back from the cache", shown(rows));
  velta::writeCloudCache(rowsAgain, again);
  require(home().read("again.json") == text, "a cache is written alike twice", text);
}

void checkStatus(const JSONObject& status) {
  velta::fuzz::parsedLine(velta::writeCompact(status));
  require(status.getBool("connected") == true, "there is a key");
  const auto ok = status.getBool("ok");
  require(ok.has_value() && status.has("kind") == !*ok, "a sync fails for a reason");
}

void checkSync(CannedFetcher& fetcher) {
  const velta::Config config = home().config();
  const JSONObject settings = config.loadConfigFile(/*writeDefault=*/false);
  WebMeetings meetings(velta::Cloud(config, fetcher));
  const JSONObject first = meetings.sync(settings, velta::fuzz::fixedNow());
  checkStatus(first);
  checkRows(meetings.rows());
  const std::string rows = shown(meetings.rows());
  meetings.save();
  const std::size_t downloads = fetcher.downloads;
  const JSONObject second = meetings.sync(settings, velta::fuzz::fixedNow());
  checkStatus(second);
  require(shown(meetings.rows()) == rows, "the same answers make the same rows", rows);
  if (first.getBool("ok") != true) return;
  require(shown(velta::readCloudCache(home().file(kCache))) == rows, "the cache holds the rows",
          rows);
  if (!first.has("warning"))
    require(fetcher.downloads == downloads, "what did not change is not downloaded again", rows);
}

velta::HTTPResponse answer(const std::map<std::string, std::string>& sections, const char* name,
                           int status) {
  const auto section = sections.find(name);
  return {status, section != sections.end() ? section->second : ""};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto sections = velta::fuzz::sectionsOf({reinterpret_cast<const char*>(data), size});
  home().restore();
  const std::string statuses = sections["status"];
  char* rest = nullptr;
  const auto first = std::strtoul(statuses.c_str(), &rest, 10);
  const auto second = std::strtoul(rest, nullptr, 10);
  const auto statusOf = [&](unsigned long number) {
    return statuses.empty() ? 200 : static_cast<int>(number % 1000);
  };
  CannedFetcher fetcher;
  fetcher.listing = answer(sections, "list", statusOf(first));
  fetcher.download = answer(sections, "download", statusOf(second));
  home().write(kCache, sections["cache"]);

  const velta::fuzz::Guard guard(home().path());
  checkCacheFile();
  checkSync(fetcher);
  velta::fuzz::FuzzServer server(home(), {.fetcher = &fetcher, .adminStats = true});
  velta::fuzz::askForEverything(server);
  server.call("velta_admin_stats", {});
  velta::fuzz::checkActivityLog(home(), server.calls());
  return 0;
}
