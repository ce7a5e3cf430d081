#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "cloud/CloudCache.h"
#include "cloud/CloudCommand.h"
#include "cloud/FakeService.h"
#include "cloud/URLSessionFetcher.h"
#include "cloud/WebMeeting.h"
#include "cloud/WebMeetings.h"
#include "config/BuildConstants.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Files.h"

namespace velta {
namespace {

using test::FakeService;
using test::kTestKey;
using test::uuidOf;
using test::webMeetingText;
using test::webMeetingTexts;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Reply = FakeService::Reply;
using Request = FakeService::Request;

constexpr const char* kCacheFile = "velta-mcp-cloud-cache.json";
const std::string kNextStep =
    "Next step: create a key on the web page 連接 AI and run `velta-mcp connect` (the binary "
    "inside "
    "Velta.app, see mcp/README.md)";

Meeting meetingOf(const std::string& text, std::size_t number) {
  return webMeeting(uuidOf(number), std::move(*parseJSON(text).asObject()));
}

WebMeetings::Row rowOf(Meeting meeting, const std::string& rev,
                       std::optional<std::string> applied = std::nullopt) {
  return {rev, std::make_shared<const Meeting>(std::move(meeting)), std::move(applied)};
}

// Whether a file is the same, and was not written, between two looks at it.
struct FileIdentity {
  explicit FileIdentity(const std::string& path) {
    struct stat info = {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    inode = info.st_ino;
    modified = std::filesystem::last_write_time(path);
  }
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;

  ino_t inode = 0;
  std::filesystem::file_time_type modified;
};

void expectSameRows(const WebMeetings::Rows& a, const WebMeetings::Rows& b) {
  ASSERT_EQ(a.size(), b.size());
  for (const auto& [uuid, row] : a) {
    const auto other = b.find(uuid);
    ASSERT_NE(other, b.end()) << uuid;
    EXPECT_EQ(row.rev, other->second.rev) << uuid;
    EXPECT_EQ(row.applied, other->second.applied) << uuid;
    EXPECT_EQ(row.meeting->toJSON(), other->second.meeting->toJSON()) << uuid;
  }
}

class WebMeetingsTest : public testing::Test {
 protected:
  // A program that starts now, with what is on the disk.
  WebMeetings started() { return WebMeetings(Cloud(config_, fetcher_)); }

  std::string statusOf(WebMeetings& meetings) { return writeCompact(meetings.sync({}, kNow)); }

  // A sync that has to end well, and save.
  void syncAndSave(WebMeetings& meetings) {
    EXPECT_EQ(meetings.sync({}, kNow).getBool("ok"), true);
    meetings.save();
  }

  static std::string success(std::size_t meetings, std::size_t downloaded, std::size_t unfinished,
                             const std::string& more = "") {
    return R"({"connected":true,"ok":true,"at":"2026-10-12T07:30:00+00:00","meetings":)" +
           std::to_string(meetings) + R"(,"downloaded":)" + std::to_string(downloaded) +
           R"(,"unfinished":)" + std::to_string(unfinished) + more + "}";
  }

  static std::string failure(const std::string& kind, const std::string& warning) {
    return R"({"connected":true,"ok":false,"at":"2026-10-12T07:30:00+00:00","kind":")" + kind +
           R"(","warning":")" + warning + R"("})";
  }

  static std::string notServed(const std::string& note) {
    std::string text = R"({"connected":false,"ok":false,"at":"2026-10-12T07:30:00+00:00","note":)";
    appendQuoted(text, note);
    return text + "}";
  }

  static std::vector<std::string> uuidsOf(const WebMeetings& meetings) {
    std::vector<std::string> uuids;
    for (const auto& [uuid, row] : meetings.rows()) uuids.push_back(uuid);
    return uuids;
  }

  // The ids of all downloads since the requests were forgotten.
  std::vector<std::string> downloadedIds() const {
    std::vector<std::string> ids;
    for (const Request& request : service_.downloads())
      for (const std::string& id : FakeService::idsOf(request)) ids.push_back(id);
    return ids;
  }

  // Lets the service fail from the batch on that asks for meeting `number`.
  void failAtMeeting(std::size_t number) {
    service_.answer([number](const Request& request) -> std::optional<Reply> {
      if (!request.query.contains("ids")) return std::nullopt;
      if (FakeService::idsOf(request).front() != uuidOf(number)) return std::nullopt;
      return Reply{.status = 500};
    });
  }

  // Answers downloads with these values instead.
  void answerDownloads(JSON::Array meetings) {
    service_.answer([meetings](const Request& request) -> std::optional<Reply> {
      if (!request.query.contains("ids")) return std::nullopt;
      return FakeService::listOf(meetings);
    });
  }

  bool hasCache() const { return folder_.has(kCacheFile); }

  static constexpr double kSeconds = 1791790200;  // 2026-10-12T07:30:00Z
  const Instant kNow = instantFromSeconds(kSeconds);

  FakeService service_;
  TemporaryFolder folder_;
  Config config_{
      folder_.path(),
      {{"HOME", folder_.path()}, {"VELTA_TOKEN", kTestKey}, {"VELTA_API_BASE", service_.origin()}}};
  std::string cache_ = folder_.file(kCacheFile);
  URLSessionFetcher fetcher_{config_.env};
};

// --- without a sync -----------------------------------------------------------------------------

TEST_F(WebMeetingsTest, TheCacheIsInTheDataHome) {
  EXPECT_EQ(WebMeetings::cacheFile(config_), cache_);
}

TEST_F(WebMeetingsTest, TurnedOffNothingIsFetchedAndNothingServed) {
  service_.serve(webMeetingTexts(1, 2));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  service_.forgetRequests();
  const JSONObject off = {{"cloud", JSONObject{{"enabled", false}}}};
  EXPECT_EQ(writeCompact(meetings.sync(off, kNow)),
            notServed("web meetings are turned off (cloud.enabled false in mcp-config.json)"));
  EXPECT_THAT(meetings.rows(), IsEmpty());
  EXPECT_THAT(service_.requests(), IsEmpty());
  meetings.save();
  EXPECT_TRUE(hasCache());
}

TEST_F(WebMeetingsTest, TurnedOnAgainTheCacheIsServed) {
  service_.serve(webMeetingTexts(1, 2));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  meetings.sync({{"cloud", JSONObject{{"enabled", false}}}}, kNow);
  EXPECT_EQ(statusOf(meetings), success(2, 0, 0));
}

TEST_F(WebMeetingsTest, OnlyTheBooleanFalseTurnsOff) {
  for (const char* cloud : {R"({"enabled": true})", R"({"enabled": 0})", R"({"enabled": "false"})",
                            R"({"enabled": null})", "{}", "false", "null", "[]"}) {
    WebMeetings meetings = started();
    const JSONObject file = {{"cloud", parseJSON(cloud)}};
    EXPECT_EQ(meetings.sync(file, kNow).getBool("ok"), true) << cloud;
  }
}

TEST_F(WebMeetingsTest, WithoutAnyKeyTheNoteSaysHowToGetOne) {
  config_.env.erase("VELTA_TOKEN");
  WebMeetings meetings = started();
  const std::string host = std::string(kServiceOrigin).substr(std::string("https://").size());
  EXPECT_EQ(statusOf(meetings),
            notServed("Web meetings (" + host +
                      ") are not included: this Mac has no Velta connection key. " + kNextStep));
  EXPECT_THAT(service_.requests(), IsEmpty());
}

TEST_F(WebMeetingsTest, ABadKeyIsToldWithItsReason) {
  config_.env["VELTA_TOKEN"] = "nonsense";
  WebMeetings meetings = started();
  EXPECT_EQ(
      statusOf(meetings),
      notServed("web meetings are not included: env VELTA_TOKEN is not a Velta connection key "
                "(velta_pat_ plus 43 characters). " +
                kNextStep));
  EXPECT_THAT(service_.requests(), IsEmpty());
}

TEST_F(WebMeetingsTest, ALooseKeyFileServesNothingNotEvenTheCache) {
  service_.serve(webMeetingTexts(1, 2));
  WebMeetings first = started();
  syncAndSave(first);
  service_.forgetRequests();
  config_.env.erase("VELTA_TOKEN");
  folder_.write("cloud-token", kTestKey);
  ASSERT_EQ(::chmod(folder_.file("cloud-token").c_str(), 0644), 0);
  for (WebMeetings meetings : {started(), first}) {
    const JSONObject status = meetings.sync({}, kNow);
    EXPECT_THAT(status.keys(), ElementsAre("connected", "ok", "at", "note"));
    EXPECT_EQ(status.getString("note"),
              "web meetings are not included: " + folder_.file("cloud-token") +
                  " can be read by other users of this Mac, so it is not used. Next step: run "
                  "`chmod 600 '" +
                  folder_.file("cloud-token") + "'`, or run `velta-mcp connect` again");
    EXPECT_THAT(meetings.rows(), IsEmpty());
  }
  EXPECT_THAT(service_.requests(), IsEmpty());
}

TEST_F(WebMeetingsTest, AKeyThatComesBackFindsTheCache) {
  service_.serve(webMeetingTexts(1, 2));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  config_.env["VELTA_TOKEN"] = "nonsense";
  statusOf(meetings);
  config_.env["VELTA_TOKEN"] = kTestKey;
  EXPECT_EQ(statusOf(meetings), success(2, 0, 0));
}

// --- a sync -------------------------------------------------------------------------------------

TEST_F(WebMeetingsTest, OfAnEmptyServiceIsEmpty) {
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(0, 0, 0));
  EXPECT_THAT(meetings.rows(), IsEmpty());
  EXPECT_THAT(service_.downloads(), IsEmpty());
}

TEST_F(WebMeetingsTest, TheFirstSyncDownloadsEverything) {
  service_.serve(webMeetingTexts(1, 2, R"("rev": "a", "tags": ["x"])"));
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(2, 2, 0));
  EXPECT_THAT(uuidsOf(meetings), ElementsAre(uuidOf(1), uuidOf(2)));
  const WebMeetings::Row& row = meetings.rows().at(uuidOf(2));
  EXPECT_EQ(row.rev, "a");
  EXPECT_EQ(row.applied, std::nullopt);
  EXPECT_EQ(row.meeting->id, "cloud-" + uuidOf(2));
  EXPECT_EQ(row.meeting->source, "cloud");
  EXPECT_EQ(row.meeting->title, "Meeting 2");
  EXPECT_EQ(row.meeting->lines.text(0), "line 2");
  EXPECT_THAT(row.meeting->tags, ElementsAre("x"));
}

TEST_F(WebMeetingsTest, ManyAreDownloadedInBatchesOfFifty) {
  service_.serve(webMeetingTexts(1, 120));
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(120, 120, 0));
  EXPECT_THAT(service_.downloadSizes(), ElementsAre(50U, 50U, 20U));
  EXPECT_EQ(service_.server().connections(), 1);
}

TEST_F(WebMeetingsTest, MeetingsAreAskedForInTheOrderOfTheList) {
  std::vector<std::string> texts = webMeetingTexts(1, 3);
  std::swap(texts.front(), texts.back());
  service_.serve(texts);
  WebMeetings meetings = started();
  statusOf(meetings);
  EXPECT_EQ(service_.server().requests().back().query.at("ids"),
            uuidOf(3) + "," + uuidOf(2) + "," + uuidOf(1));
}

TEST_F(WebMeetingsTest, TheConnectionGoesWithTheSync) {
  service_.serve(webMeetingTexts(1, 60));
  WebMeetings meetings = started();
  statusOf(meetings);
  statusOf(meetings);
  EXPECT_EQ(service_.server().connections(), 2);
  service_.refuse(500);
  statusOf(meetings);
  statusOf(meetings);
  EXPECT_EQ(service_.server().connections(), 4);
}

TEST_F(WebMeetingsTest, ASyncSaysHowFarItIs) {
  service_.serve(webMeetingTexts(1, 60));
  WebMeetings meetings = started();
  std::vector<std::string> told;
  meetings.sync({}, kNow, [&told](const std::string& text) { told.push_back(text); });
  EXPECT_THAT(told, ElementsAre("web meetings: 60 listed", "web meetings: 50 of 60 downloaded",
                                "web meetings: 60 of 60 downloaded"));
}

TEST_F(WebMeetingsTest, OnlyWhatIsNewOrChangedIsDownloaded) {
  service_.serve(webMeetingTexts(1, 5));
  WebMeetings meetings = started();
  statusOf(meetings);
  service_.forgetRequests();
  auto texts = webMeetingTexts(1, 6);
  texts[2] = webMeetingText(3, R"("rev": "2", "verdict": "changed")");
  service_.serve(texts);
  EXPECT_EQ(statusOf(meetings), success(6, 2, 0));
  EXPECT_THAT(downloadedIds(), ElementsAre(uuidOf(3), uuidOf(6)));
  EXPECT_EQ(meetings.rows().at(uuidOf(3)).meeting->verdict, "changed");
  EXPECT_EQ(meetings.rows().at(uuidOf(3)).rev, "2");
}

TEST_F(WebMeetingsTest, WithoutChangesNothingIsDownloaded) {
  service_.serve(webMeetingTexts(1, 5));
  WebMeetings meetings = started();
  statusOf(meetings);
  service_.forgetRequests();
  EXPECT_EQ(statusOf(meetings), success(5, 0, 0));
  EXPECT_EQ(service_.requests().size(), 1U);
}

TEST_F(WebMeetingsTest, ARevIsATextOrTheTextOfItsJSON) {
  const std::vector<std::pair<std::string, std::string>> revs = {
      {R"("rev": "text")", "text"},
      {R"("rev": "5")", "5"},
      {R"("rev": 5)", "5"},
      {R"("rev": 5.5)", "5.5"},
      {R"("rev": true)", "true"},
      {R"("rev": { "b": [1, 2],  "a": null })", R"({"b":[1,2],"a":null})"},
      {R"("rev": [ "x" ])", R"(["x"])"},
      {R"("rev": "")", ""},
      {R"("rev": null)", ""},
      {R"("rev": {})", ""},
      {R"("rev": [])", ""},
      {R"("no rev": 1)", ""}};
  std::vector<std::string> texts;
  for (std::size_t at = 0; at < revs.size(); ++at)
    texts.push_back(webMeetingText(at, revs[at].first));
  service_.serve(texts);
  WebMeetings meetings = started();
  statusOf(meetings);
  for (std::size_t at = 0; at < revs.size(); ++at)
    EXPECT_EQ(meetings.rows().at(uuidOf(at)).rev, revs[at].second) << revs[at].first;
  // Of whatever kind, it is the same the next time.
  EXPECT_EQ(statusOf(meetings), success(revs.size(), 0, 0));
}

TEST_F(WebMeetingsTest, ARevNestedWithoutEndIsTakenAsText) {
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
  service_.serve({webMeetingText(1, R"("rev": )" + deep)});
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(1, 1, 0));
  EXPECT_EQ(meetings.rows().at(uuidOf(1)).rev, deep);
}

TEST_F(WebMeetingsTest, TheRevIsTheListedOneNotThatOfTheMeeting) {
  service_.serve({webMeetingText(1)});
  answerDownloads({parseJSON(webMeetingText(1, R"("rev": "newer")"))});
  WebMeetings meetings = started();
  statusOf(meetings);
  EXPECT_EQ(meetings.rows().at(uuidOf(1)).rev, "1");
}

TEST_F(WebMeetingsTest, UnfinishedMeetingsAreNeitherDownloadedNorServed) {
  service_.serve({webMeetingText(1, R"("status": "done")"), webMeetingText(2, R"("status": "")"),
                  webMeetingText(3, R"("status": null)"), webMeetingText(4, R"("status": 5)"),
                  webMeetingText(5, R"("status": ["processing"])"), webMeetingText(6),
                  webMeetingText(7, R"("status": "processing")"),
                  webMeetingText(8, R"("status": "Done")"),
                  webMeetingText(9, R"("status": "done ")")});
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(6, 6, 3));
  EXPECT_THAT(downloadedIds(),
              ElementsAre(uuidOf(1), uuidOf(2), uuidOf(3), uuidOf(4), uuidOf(5), uuidOf(6)));
  EXPECT_THAT(uuidsOf(meetings),
              ElementsAre(uuidOf(1), uuidOf(2), uuidOf(3), uuidOf(4), uuidOf(5), uuidOf(6)));
}

TEST_F(WebMeetingsTest, AMeetingThatIsWorkedOnAgainIsNotServedMeanwhile) {
  service_.serve({webMeetingText(1), webMeetingText(2)});
  WebMeetings meetings = started();
  statusOf(meetings);
  service_.serve({webMeetingText(1), webMeetingText(2, R"("rev": "1", "status": "queued")")});
  EXPECT_EQ(statusOf(meetings), success(1, 0, 1));
  EXPECT_THAT(uuidsOf(meetings), ElementsAre(uuidOf(1)));
}

TEST_F(WebMeetingsTest, WhatIsNoLongerListedIsPrunedFromRowsAndCache) {
  service_.serve(webMeetingTexts(1, 3));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  service_.serve({webMeetingText(2)});
  EXPECT_EQ(statusOf(meetings), success(1, 0, 0));
  EXPECT_THAT(uuidsOf(meetings), ElementsAre(uuidOf(2)));
  meetings.save();
  EXPECT_EQ(readCloudCache(cache_).size(), 1U);
}

TEST_F(WebMeetingsTest, AMeetingThatDoesNotComeBackIsLeftOutAndAskedForAgain) {
  service_.serve(webMeetingTexts(1, 3));
  answerDownloads({parseJSON(webMeetingText(2))});
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings),
            success(1, 1, 2,
                    R"(,"warning":"web meetings: 2 of 3 changed meetings did not come back; they )"
                    R"(are left out until the next sync")"));
  EXPECT_THAT(uuidsOf(meetings), ElementsAre(uuidOf(2)));
  service_.forgetRequests();
  service_.answer({});
  EXPECT_EQ(statusOf(meetings), success(3, 2, 0));
  EXPECT_THAT(downloadedIds(), ElementsAre(uuidOf(1), uuidOf(3)));
}

TEST_F(WebMeetingsTest, AChangedMeetingThatDoesNotComeBackIsNotServedAsItWas) {
  service_.serve(webMeetingTexts(1, 2));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  service_.serve({webMeetingText(1), webMeetingText(2, R"("rev": "2")")});
  answerDownloads({});
  EXPECT_EQ(statusOf(meetings),
            success(1, 0, 1,
                    R"(,"warning":"web meetings: 1 of 1 changed meetings did not come back; they )"
                    R"(are left out until the next sync")"));
  EXPECT_THAT(uuidsOf(meetings), ElementsAre(uuidOf(1)));
  meetings.save();
  EXPECT_EQ(readCloudCache(cache_).size(), 1U);
}

TEST_F(WebMeetingsTest, OnlyWhatWasAskedForCountsInEitherCase) {
  const std::string upper = "ABCDEF01-2345-6789-ABCD-EF0123456789";
  const std::string lower = "abcdef01-2345-6789-abcd-ef0123456789";
  service_.serve({R"({"id": ")" + upper + R"(", "rev": "1"})", webMeetingText(1)});
  answerDownloads({parseJSON(R"({"id": ")" + upper + R"(", "title": "first"})"),
                   parseJSON(R"({"id": ")" + lower + R"(", "title": "second"})"),
                   parseJSON(webMeetingText(2)), parseJSON(webMeetingText(1)),
                   parseJSON(R"({"title": "no id"})"), 5});
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(2, 2, 0));
  EXPECT_THAT(uuidsOf(meetings), ElementsAre(uuidOf(1), lower));
  EXPECT_EQ(meetings.rows().at(lower).meeting->title, "first");
  EXPECT_THAT(downloadedIds(), ElementsAre(lower, uuidOf(1)));
}

// --- failures -----------------------------------------------------------------------------------

TEST_F(WebMeetingsTest, AFailureKeepsTheRowsAndTellsKindAndWarning) {
  service_.serve(webMeetingTexts(1, 3));
  WebMeetings meetings = started();
  statusOf(meetings);
  const WebMeetings::Rows before = meetings.rows();
  service_.refuse(403);
  EXPECT_EQ(statusOf(meetings),
            failure("server",
                    "web meetings: server error HTTP 403. Next step: try again later; local "
                    "meetings still answer"));
  expectSameRows(meetings.rows(), before);
  service_.refuse(429);
  EXPECT_EQ(statusOf(meetings), failure("busy",
                                        "web meetings: too many calls in a minute. Next step: wait "
                                        "a minute; local meetings still answer"));
  service_.refuse(401);
  EXPECT_EQ(meetings.sync({}, kNow).getString("kind"), "auth");
  service_.refuse(503);
  EXPECT_EQ(meetings.sync({}, kNow).getString("kind"), "setup");
  service_.answer([](const Request&) { return Reply{.raw = ""}; });
  const JSONObject offline = meetings.sync({}, kNow);
  EXPECT_EQ(offline.getString("kind"), "offline");
  EXPECT_THAT(offline.keys(), ElementsAre("connected", "ok", "at", "kind", "warning"));
  expectSameRows(meetings.rows(), before);
}

TEST_F(WebMeetingsTest, ABadBaseIsAFailureToo) {
  config_.env["VELTA_API_BASE"] = "http://evil.example";
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings),
            failure("setup",
                    "refusing to send the connection key to http://evil.example: use https. Next "
                    "step: fix VELTA_API_BASE or cloud.base in mcp-config.json"));
}

TEST_F(WebMeetingsTest, ADownloadThatFailsOnItsWayKeepsTheRowsAsTheyWere) {
  service_.serve({webMeetingText(1), webMeetingText(200)});
  WebMeetings meetings = started();
  statusOf(meetings);
  const WebMeetings::Rows before = meetings.rows();
  service_.serve(webMeetingTexts(1, 120, R"("rev": "2")"));
  failAtMeeting(51);
  EXPECT_EQ(meetings.sync({}, kNow).getString("kind"), "server");
  expectSameRows(meetings.rows(), before);
}

TEST_F(WebMeetingsTest, WhatWasDownloadedBeforeAFailureIsNotDownloadedAgain) {
  service_.serve(webMeetingTexts(1, 120));
  failAtMeeting(51);
  WebMeetings meetings = started();
  EXPECT_EQ(meetings.sync({}, kNow).getBool("ok"), false);
  EXPECT_THAT(meetings.rows(), IsEmpty());
  service_.answer({});
  service_.forgetRequests();
  EXPECT_EQ(statusOf(meetings), success(120, 70, 0));
  EXPECT_EQ(downloadedIds().size(), 70U);
  EXPECT_EQ(downloadedIds().front(), uuidOf(51));
  meetings.save();
  expectSameRows(readCloudCache(cache_), meetings.rows());
}

TEST_F(WebMeetingsTest, WhatWasDownloadedBeforeAFailureIsInTheCacheOfTheNextStart) {
  service_.serve(webMeetingTexts(1, 120));
  failAtMeeting(101);
  {
    WebMeetings meetings = started();
    EXPECT_EQ(meetings.sync({}, kNow).getBool("ok"), false);
    meetings.save();
  }
  EXPECT_EQ(readCloudCache(cache_).size(), 100U);
  service_.answer({});
  service_.forgetRequests();
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(120, 20, 0));
}

TEST_F(WebMeetingsTest, OfAMeetingThatWaitsTheNewerIsCached) {
  service_.serve(webMeetingTexts(1, 60));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  service_.serve(webMeetingTexts(1, 60, R"("rev": "2")"));
  failAtMeeting(51);
  meetings.sync({}, kNow);
  meetings.save();
  EXPECT_EQ(meetings.rows().at(uuidOf(1)).rev, "1");
  const WebMeetings::Rows cached = readCloudCache(cache_);
  EXPECT_EQ(cached.size(), 60U);
  EXPECT_EQ(cached.at(uuidOf(1)).rev, "2");
  EXPECT_EQ(cached.at(uuidOf(60)).rev, "1");
}

TEST_F(WebMeetingsTest, AWaitingMeetingThatChangesOnceMoreIsDownloadedAgain) {
  service_.serve(webMeetingTexts(1, 51));
  failAtMeeting(51);
  WebMeetings meetings = started();
  meetings.sync({}, kNow);
  service_.answer({});
  service_.forgetRequests();
  auto texts = webMeetingTexts(1, 51);
  texts[0] = webMeetingText(1, R"("rev": "2", "verdict": "new")");
  service_.serve(texts);
  EXPECT_EQ(statusOf(meetings), success(51, 2, 0));
  EXPECT_EQ(meetings.rows().at(uuidOf(1)).meeting->verdict, "new");
}

TEST_F(WebMeetingsTest, AWaitingMeetingThatIsDeletedOnTheWebLeavesTheCache) {
  service_.serve(webMeetingTexts(1, 51));
  failAtMeeting(51);
  WebMeetings meetings = started();
  meetings.sync({}, kNow);
  meetings.save();
  EXPECT_EQ(readCloudCache(cache_).size(), 50U);
  service_.answer({});
  service_.serve({});
  EXPECT_EQ(statusOf(meetings), success(0, 0, 0));
  meetings.save();
  EXPECT_THAT(readCloudCache(cache_), IsEmpty());
}

// Slow: five seconds of download have to pass.
TEST_F(WebMeetingsTest, ALongDownloadIsCachedOnItsWay) {
  service_.serve(webMeetingTexts(1, 51));
  bool wasCached = false;
  service_.answer([&](const Request& request) -> std::optional<Reply> {
    if (!request.query.contains("ids")) return std::nullopt;
    if (FakeService::idsOf(request).front() == uuidOf(51)) {
      wasCached = readCloudCache(cache_).size() == 50;
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(5100));  // a slow service
    }
    return std::nullopt;
  });
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(51, 51, 0));
  EXPECT_TRUE(wasCached);
}

TEST_F(WebMeetingsTest, AShortDownloadIsNotCachedBeforeItIsSaved) {
  service_.serve(webMeetingTexts(1, 120));
  WebMeetings meetings = started();
  statusOf(meetings);
  EXPECT_FALSE(hasCache());
}

// --- the cache ----------------------------------------------------------------------------------

TEST_F(WebMeetingsTest, AfterARestartTheCacheIsServedWithoutNetwork) {
  service_.serve(webMeetingTexts(1, 60, R"("rev": {"n": 1})"));
  WebMeetings first = started();
  syncAndSave(first);
  service_.answer([](const Request&) { return Reply{.raw = ""}; });
  WebMeetings meetings = started();
  EXPECT_EQ(meetings.sync({}, kNow).getString("kind"), "offline");
  EXPECT_EQ(meetings.rows().size(), 60U);
  expectSameRows(meetings.rows(), first.rows());
}

TEST_F(WebMeetingsTest, AfterARestartNothingIsDownloadedAgain) {
  service_.serve(webMeetingTexts(1, 60));
  WebMeetings first = started();
  syncAndSave(first);
  service_.forgetRequests();
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(60, 0, 0));
  EXPECT_THAT(service_.downloads(), IsEmpty());
}

TEST_F(WebMeetingsTest, ABrokenCacheCostsOneDownloadAndNoMeeting) {
  service_.serve(webMeetingTexts(1, 3));
  WebMeetings first = started();
  syncAndSave(first);
  const std::string good = folder_.read(kCacheFile);
  for (const std::string& bad :
       {std::string(), good.substr(0, good.size() - 2), good.substr(0, good.size() / 2), good + "x",
        "[" + good + "]",
        std::string(R"([{"rev": "1", "meeting": {"id": "m", "source": "cloud"}}])"),
        std::string("[]"), std::string("null"), std::string("5"), std::string("\xFF\xFE"),
        std::string(1000, '\0'), std::string(100'000, '[')}) {
    folder_.write(kCacheFile, bad);
    EXPECT_THAT(readCloudCache(cache_), IsEmpty());
    WebMeetings meetings = started();
    EXPECT_EQ(statusOf(meetings), success(3, 3, 0));
    meetings.save();
    EXPECT_EQ(folder_.read(kCacheFile), good);
    EXPECT_EQ(statusOf(meetings), success(3, 0, 0));
  }
}

TEST_F(WebMeetingsTest, EntriesOfTheCacheThatAreNoRowsAreSkippedOneByOne) {
  service_.serve(webMeetingTexts(1, 2));
  WebMeetings first = started();
  syncAndSave(first);
  JSON cache = parseJSON(folder_.read(kCacheFile));
  const JSON good = *cache.asObject()->get(uuidOf(1));
  std::size_t number = 3;
  for (const char* bad :
       {"null", "5", R"("text")", "[]", "{}", R"({"rev": "1"})", R"({"rev": "1", "meeting": null})",
        R"({"rev": 1, "meeting": {"id": "a", "source": "cloud"}})",
        R"({"meeting": {"id": "a", "source": "cloud"}})", R"({"rev": "1", "meeting": []})",
        R"({"rev": "1", "meeting": {"source": "cloud"}})"}) {
    cache.asObject()->set(uuidOf(number++), parseJSON(bad));
  }
  folder_.write(kCacheFile, writeCompact(cache));
  EXPECT_EQ(readCloudCache(cache_).size(), 2U);
  expectSameRows(readCloudCache(cache_), first.rows());
}

TEST_F(WebMeetingsTest, ACacheThatIsAFolderOrAPipeCountsAsEmpty) {
  folder_.makeFolder(kCacheFile);
  EXPECT_THAT(readCloudCache(cache_), IsEmpty());
  std::filesystem::remove(cache_);
  EXPECT_THAT(readCloudCache(cache_), IsEmpty());
  ASSERT_EQ(::mkfifo(cache_.c_str(), 0600), 0);
  EXPECT_THAT(readCloudCache(cache_), IsEmpty());
}

TEST_F(WebMeetingsTest, TenThousandUnchangedMeetingsCostTwentyRequestsAndNoWrite) {
  const auto texts = webMeetingTexts(1, 10'000);
  WebMeetings::Rows rows;
  for (std::size_t at = 0; at < texts.size(); ++at)
    rows.emplace(uuidOf(at + 1), rowOf(meetingOf(texts[at], at + 1), "1"));
  writeCloudCache(rows, cache_);
  service_.serve(texts);
  const FileIdentity before(cache_);
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(10'000, 0, 0));
  EXPECT_EQ(service_.requests().size(), 20U);
  meetings.save();
  EXPECT_EQ(FileIdentity(cache_), before);
}

TEST_F(WebMeetingsTest, ASyncThatChangesNothingWritesNothing) {
  service_.serve(webMeetingTexts(1, 3));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  const FileIdentity before(cache_);
  meetings.save();
  syncAndSave(meetings);
  service_.refuse(500);
  statusOf(meetings);
  meetings.save();
  EXPECT_EQ(FileIdentity(cache_), before);
  service_.answer({});
  service_.serve(webMeetingTexts(1, 4));
  syncAndSave(meetings);
  EXPECT_NE(FileIdentity(cache_).inode, before.inode);
}

TEST_F(WebMeetingsTest, AnEmptyServiceLeavesNoFile) {
  WebMeetings meetings = started();
  syncAndSave(meetings);
  EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(WebMeetingsTest, TheCacheIsReadableByTheUserOnlyAndLeavesNothingElse) {
  const mode_t old = ::umask(0);
  service_.serve(webMeetingTexts(1, 3));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  ::umask(old);
  struct stat info = {};
  ASSERT_EQ(::stat(cache_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0600U);
  EXPECT_THAT(folder_.names(), ElementsAre(kCacheFile));
}

TEST_F(WebMeetingsTest, ALooseCacheIsTightenedWhenItIsWritten) {
  folder_.write(kCacheFile, "{}");
  ASSERT_EQ(::chmod(cache_.c_str(), 0666), 0);
  service_.serve(webMeetingTexts(1, 1));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  struct stat info = {};
  ASSERT_EQ(::stat(cache_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0600U);
}

TEST_F(WebMeetingsTest, TheCacheMapsIdsToRevMeetingAndApplied) {
  service_.serve({webMeetingText(1), webMeetingText(2)});
  WebMeetings meetings = started();
  statusOf(meetings);
  meetings.setApplied(uuidOf(2), true);
  meetings.save();
  const JSON cache = parseJSON(folder_.read(kCacheFile));
  ASSERT_NE(cache.asObject(), nullptr);
  EXPECT_THAT(cache.asObject()->keys(), ElementsAre(uuidOf(1), uuidOf(2)));
  const JSONObject* first = cache.asObject()->getObject(uuidOf(1));
  ASSERT_NE(first, nullptr);
  EXPECT_THAT(first->keys(), ElementsAre("rev", "meeting"));
  EXPECT_EQ(first->getString("rev"), "1");
  EXPECT_EQ(*first->getObject("meeting"), meetings.rows().at(uuidOf(1)).meeting->toJSON());
  const JSONObject* second = cache.asObject()->getObject(uuidOf(2));
  ASSERT_NE(second, nullptr);
  EXPECT_THAT(second->keys(), ElementsAre("rev", "meeting", "applied"));
  EXPECT_EQ(second->getString("applied"), "1");
}

TEST_F(WebMeetingsTest, TheKeyIsNotInTheCache) {
  service_.serve(webMeetingTexts(1, 3));
  WebMeetings meetings = started();
  syncAndSave(meetings);
  EXPECT_THAT(folder_.read(kCacheFile), testing::Not(HasSubstr("velta_pat_")));
}

TEST_F(WebMeetingsTest, AppliedIsTheRevThatWasMerged) {
  service_.serve({webMeetingText(1, R"("rev": "a")"), webMeetingText(2)});
  WebMeetings meetings = started();
  syncAndSave(meetings);
  meetings.setApplied(uuidOf(1), true);
  EXPECT_EQ(meetings.rows().at(uuidOf(1)).applied, "a");
  EXPECT_EQ(meetings.rows().at(uuidOf(2)).applied, std::nullopt);
  meetings.save();
  EXPECT_EQ(readCloudCache(cache_).at(uuidOf(1)).applied, "a");
  meetings.setApplied(uuidOf(1), false);
  EXPECT_EQ(meetings.rows().at(uuidOf(1)).applied, std::nullopt);
  meetings.save();
  EXPECT_EQ(readCloudCache(cache_).at(uuidOf(1)).applied, std::nullopt);
}

TEST_F(WebMeetingsTest, WhatWasAppliedStaysSoUntilTheMeetingChanges) {
  service_.serve(webMeetingTexts(1, 2));
  WebMeetings first = started();
  statusOf(first);
  first.setApplied(uuidOf(1), true);
  first.setApplied(uuidOf(2), true);
  first.save();
  service_.serve({webMeetingText(1), webMeetingText(2, R"("rev": "2")")});
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(2, 1, 0));
  EXPECT_EQ(meetings.rows().at(uuidOf(1)).applied, "1");
  EXPECT_EQ(meetings.rows().at(uuidOf(2)).applied, std::nullopt);
}

TEST_F(WebMeetingsTest, ApplyingTheSameAgainWritesNothing) {
  service_.serve({webMeetingText(1)});
  WebMeetings meetings = started();
  statusOf(meetings);
  meetings.setApplied(uuidOf(1), true);
  meetings.save();
  const FileIdentity before(cache_);
  meetings.setApplied(uuidOf(1), true);
  meetings.save();
  EXPECT_EQ(FileIdentity(cache_), before);
}

TEST_F(WebMeetingsTest, AfterADisconnectNothingIsWritten) {
  config_.env.erase("VELTA_TOKEN");
  folder_.write("cloud-token", kTestKey);
  ASSERT_EQ(::chmod(folder_.file("cloud-token").c_str(), 0600), 0);
  service_.serve(webMeetingTexts(1, 3));
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(3, 3, 0));
  const Cloud cloud(config_, fetcher_);
  const auto ask = [] { return std::optional<std::string>(); };
  EXPECT_EQ(cloudCommand("disconnect", ask, cloud, [](const std::string&) {}), 0);
  meetings.save();
  EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(WebMeetingsTest, ASaveThatFailsThrowsAndIsMadeUpFor) {
  service_.serve(webMeetingTexts(1, 3));
  folder_.makeFolder(std::string(kCacheFile) + "/full");  // nothing can be renamed over it
  WebMeetings meetings = started();
  EXPECT_EQ(statusOf(meetings), success(3, 3, 0));
  EXPECT_THROW(meetings.save(), std::system_error);
  EXPECT_EQ(meetings.rows().size(), 3U);
  std::filesystem::remove_all(cache_);
  meetings.save();
  EXPECT_EQ(readCloudCache(cache_).size(), 3U);
}

// --- the file alone -----------------------------------------------------------------------------

class CloudCache : public testing::Test {
 protected:
  void expectRoundTrip(const WebMeetings::Rows& rows) {
    writeCloudCache(rows, path_);
    expectSameRows(readCloudCache(path_), rows);
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("cache.json");
};

TEST_F(CloudCache, RoundTripsRowsOfAllKinds) {
  WebMeetings::Rows rows;
  rows.emplace(uuidOf(1), rowOf(meetingOf("{}", 1), ""));
  rows.emplace(uuidOf(2), rowOf(meetingOf(webMeetingText(2), 2), "r\n\"\\\u0001中", "r"));
  rows.emplace(uuidOf(3), rowOf(meetingOf(R"({"title": "three", "started_at": "2026-10-12T07:30",
      "duration_sec": 0.1, "speakers": [{"name": "Ann", "talk_sec": 12.5}], "tags": ["a", "b"],
      "decisions": [{"text": "go", "owner": "Ann", "t": 3}], "user_notes": "line\nline",
      "transcript": [{"id": "s1", "t_start": 1.25, "t_end": 2, "speaker": "Ann", "text": "嗨\u0000"},
                     {"text": ""}]})",
                                          3),
                                "3", ""));
  expectRoundTrip(rows);
  EXPECT_EQ(readCloudCache(path_).at(uuidOf(3)).meeting->lines.line(1).id, "L2");
}

TEST_F(CloudCache, RoundTripsLinesWhoseIdsRepeatOrAreEmpty) {
  Meeting meeting = meetingOf(webMeetingText(1), 1);
  meeting.lines.clear();
  for (const char* id : {"a", "a", "", "L1", ""}) meeting.lines.append(id, 1, {}, "A", "text");
  meeting.lines.keepIds();
  WebMeetings::Rows rows;
  rows.emplace(uuidOf(1), rowOf(meeting, "1"));
  expectRoundTrip(rows);
  const auto again = readCloudCache(path_).at(uuidOf(1)).meeting;
  EXPECT_EQ(again->lines.id(1), "a");
  EXPECT_EQ(again->lines.id(4), "");
}

TEST_F(CloudCache, RoundTripsIdsThatTheReaderMade) {
  WebMeetings::Rows rows;
  rows.emplace(uuidOf(1),
               rowOf(meetingOf(R"({"transcript": [{"id": "x"}, {"id": "x"}, {}, {"id": ""},
      {"id": "L3"}]})",
                               1),
                     "1"));
  expectRoundTrip(rows);
}

TEST_F(CloudCache, RoundTripsNestingWithoutLimit) {
  constexpr std::size_t kDepth = 50'000;
  const std::string deep = std::string(kDepth, '[') + std::string(kDepth, ']');
  WebMeetings::Rows rows;
  rows.emplace(uuidOf(1), rowOf(meetingOf(R"({"summary": )" + deep + "}", 1), "1"));
  rows.emplace(uuidOf(2), rowOf(meetingOf(R"({"speakers": [{"x": )" + deep + "}]}", 2), "1"));
  rows.emplace(uuidOf(3), rowOf(meetingOf(webMeetingText(3), 3), "1"));
  expectRoundTrip(rows);
}

TEST_F(CloudCache, RoundTripsNoRows) {
  writeCloudCache({}, path_);
  EXPECT_EQ(folder_.read("cache.json"), "{}");
  EXPECT_THAT(readCloudCache(path_), IsEmpty());
}

TEST_F(CloudCache, IsIndentedByOneThroughout) {
  WebMeetings::Rows rows;
  rows.emplace(uuidOf(1), rowOf(meetingOf(webMeetingText(1), 1), "1", "1"));
  rows.emplace(uuidOf(2), rowOf(meetingOf(R"({"summary": {"a": ["b\n c"]}})", 2), ""));
  writeCloudCache(rows, path_);
  const std::string text = folder_.read("cache.json");
  EXPECT_EQ(text, writeIndented(parseJSON(text), 1));
}

TEST_F(CloudCache, OfARepeatedMemberTheLastCounts) {
  const auto member = [](std::size_t number, const std::string& rev) {
    const std::string uuid = uuidOf(number);
    return "\"" + uuid + R"(": {"rev": ")" + rev + R"(", "meeting": {"id": "cloud-)" + uuid +
           R"(", "source": "cloud"}})";
  };
  folder_.write("cache.json", "{" + member(1, "1") + ", " + member(1, "2") + ", " + member(2, "1") +
                                  ", \"" + uuidOf(2) + "\": null}");
  const WebMeetings::Rows rows = readCloudCache(path_);
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows.at(uuidOf(1)).rev, "2");
}

TEST_F(CloudCache, AWriteThatFailsThrows) {
  folder_.write("plain", "");
  EXPECT_THROW(writeCloudCache({}, folder_.file("plain/cache.json")), std::system_error);
}

TEST_F(CloudCache, RowThatStandsForAnotherMeetingIsLeftOut) {
  const std::string uuid = uuidOf(1);
  const auto row = [](const std::string& key, const std::string& meeting) {
    return "\"" + key + R"(": {"rev": "1", "meeting": )" + meeting + "}";
  };
  const auto meeting = [](const std::string& id, const std::string& source,
                          const std::string& cloudId, const std::string& more = "") {
    return R"({"id": ")" + id + R"(", "source": ")" + source + R"(", "cloud_id": ")" + cloudId +
           "\"" + more + "}";
  };
  const std::vector<std::string> rows = {row(uuid, meeting("rec-r1", "recordings", uuid)),
                                         row(uuid, meeting("cloud-" + uuidOf(2), "cloud", uuid)),
                                         row(uuid, meeting("cloud-" + uuid, "recordings", uuid)),
                                         row("nope", meeting("cloud-nope", "cloud", "nope"))};
  for (const std::string& wrong : rows) {
    EXPECT_TRUE(readCloudCache(folder_.write("cache", "{" + wrong + "}")).empty()) << wrong;
  }
  const std::string right =
      row(uuid, meeting("cloud-" + uuid, "cloud", uuidOf(2), R"(, "visibility_hint": "shared")"));
  const WebMeetings::Rows kept = readCloudCache(folder_.write("cache", "{" + right + "}"));
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_EQ(kept.at(uuid).meeting->cloudId, uuid);
  EXPECT_EQ(kept.at(uuid).meeting->visibilityHint, std::nullopt);
}

TEST_F(CloudCache, DeeplyNestedRowsAreNotBlownUpByIndentation) {
  WebMeetings::Rows rows;
  const std::string deep = std::string(3000, '[') + std::string(3000, ']');
  for (std::size_t number = 1; number <= 5; ++number) {
    JSON object = parseJSON(R"({"summary": )" + deep + "}");
    rows[uuidOf(number)] = {
        "1",
        std::make_shared<const Meeting>(webMeeting(uuidOf(number), std::move(*object.asObject()))),
        std::nullopt};
  }
  const std::string path = folder_.file("cache");
  writeCloudCache(rows, path);
  EXPECT_LT(std::filesystem::file_size(path), 1'000'000U);
  EXPECT_EQ(readCloudCache(path).size(), 5U);
}

}  // namespace
}  // namespace velta
