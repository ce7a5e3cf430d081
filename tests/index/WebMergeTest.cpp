// The web meetings in the index: a service in memory behind a fetcher, local meetings in files.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cloud/HTTPFetcher.h"
#include "index/FoldedText.h"
#include "index/Index.h"
#include "index/SearchTexts.h"
#include "index/TestHome.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "meetings/TextNorm.h"

namespace velta {
namespace {

using test::TestHome;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

const std::string kA = "aaaaaaaa-0000-4000-8000-000000000001";
const std::string kB = "bbbbbbbb-0000-4000-8000-000000000002";
const std::string kC = "cccccccc-0000-4000-8000-000000000003";
constexpr const char* kCache = "velta-mcp-cloud-cache.json";

std::string webId(const std::string& uuid) { return "cloud-" + uuid; }

// The web service: meetings by UUID, and the requests that it got.
class WebService : public HTTPFetcher {
 public:
  // `more` holds further members of the meeting, each with a comma before it.
  void put(const std::string& uuid, const std::string& rev, const std::string& more = "") {
    meetings_[uuid] = {rev, more};
  }
  void remove(const std::string& uuid) { meetings_.erase(uuid); }
  // The service goes on to list it, but has not finished with it.
  void setUnfinished(const std::string& uuid) { meetings_.at(uuid).status = "processing"; }

  HTTPResponse get(const URLRequest& request) override {
    urls.push_back(request.url);
    if (offline) throw TransportError("no route to host");
    if (status != 200) return {status, ""};
    const std::size_t ids = request.url.find("?ids=");
    return {200, ids == std::string::npos ? listing() : download(request.url.substr(ids + 5))};
  }

  // The ids that were downloaded since the last call.
  std::vector<std::string> takeDownloaded() {
    return std::exchange(downloaded_, std::vector<std::string>());
  }

  bool offline = false;
  int status = 200;
  bool losesDownloads = false;
  std::vector<std::string> urls;

 private:
  struct Stored {
    std::string rev;
    std::string more;
    std::string status = "done";
  };

  static std::string answer(const std::vector<std::string>& meetings) {
    std::string text;
    for (const std::string& meeting : meetings) text += (text.empty() ? "" : ",") + meeting;
    return R"({"meetings": [)" + text + "]}";
  }

  std::string listing() const {
    std::vector<std::string> listed;
    for (const auto& [uuid, stored] : meetings_) {
      listed.push_back(R"({"id": ")" + uuid + R"(", "rev": ")" + stored.rev + R"(", "status": ")" +
                       stored.status + R"("})");
    }
    return answer(listed);
  }

  std::string download(const std::string& ids) {
    std::vector<std::string> sent;
    std::istringstream stream(ids);
    for (std::string uuid; std::getline(stream, uuid, ',');) {
      downloaded_.push_back(uuid);
      if (!losesDownloads)
        sent.push_back(R"({"id": ")" + uuid + R"(")" + meetings_.at(uuid).more + "}");
    }
    return answer(sent);
  }

  std::map<std::string, Stored> meetings_;
  std::vector<std::string> downloaded_;
};

class WebMerge : public testing::Test {
 protected:
  WebMerge() {
    home_.config.env["VELTA_TOKEN"] = "velta_pat_" + std::string(43, 'k');
    home_.config.env["VELTA_API_BASE"] = "https://web.invalid";
    restart();
  }
  ~WebMerge() override { expectConsistent(); }

  // A new index over the same home.
  void restart() {
    index_ = std::make_unique<Index>(
        home_.config, [this] { return home_.now; }, &web_);
  }

  // Every entry stands under its key and no key leads elsewhere.
  void expectConsistent() const {
    EXPECT_EQ(index_->byKey().size(), index_->entries().size());
    EXPECT_EQ(index_->newestFirst().size(), index_->entries().size());
    for (const auto& [id, entry] : index_->entries()) {
      EXPECT_EQ(entry.meeting->id, id);
      const auto key = index_->byKey().find(entry.key);
      ASSERT_NE(key, index_->byKey().end()) << entry.key;
      EXPECT_EQ(key->second, id);
    }
  }

  Index::BuildResult refresh() {
    home_.now += std::chrono::seconds(1);
    Index::BuildResult result = index_->refresh(false);
    expectConsistent();
    return result;
  }

  // The object "cloud" of the configuration and, after it, more members with a comma before each.
  void configure(const std::string& cloud, const std::string& more = "") const {
    home_.configure(R"({"cloud": )" + cloud + more + "}");
  }

  // A local recording that was sent to the web service, where it has the id `uuid`.
  void recordSent(const std::string& name, const std::string& uuid,
                  const std::string& notes = R"({"title": "Local"})") const {
    home_.record(name, notes);
    home_.folder.write("recordings/" + name + "/upload.json", R"({"meeting_id": ")" + uuid + "\"}");
  }

  std::vector<std::string> ids() const {
    std::vector<std::string> ids;
    for (const auto& [id, entry] : index_->entries()) ids.push_back(id);
    std::ranges::sort(ids);
    return ids;
  }

  const Index::Entry& entry(const std::string& id) const { return index_->entries().at(id); }

  // The user's notes of a meeting as compact JSON text, "absent" when there are none.
  std::string userNotes(const std::string& id) const {
    const JSONObject all = entry(id).meeting->notes.unpack();
    const JSON* notes = all.get("user_notes");
    return notes != nullptr ? writeCompact(*notes) : "absent";
  }

  std::string warning() const {
    return std::string(index_->cloudStatus()->getString("warning").value_or(""));
  }

  JSONObject cachedRow(const std::string& uuid) const {
    const JSON cache = parseJSON(home_.folder.read(kCache));
    return *cache.asObject()->getObject(uuid);
  }

  TestHome home_;  // its own index, without a fetcher, is not used
  WebService web_;
  std::unique_ptr<Index> index_;
};

// --- entries

TEST_F(WebMerge, EveryWebMeetingHasAnEntryUnderItsUUID) {
  home_.record("local", R"({"lines": [{"text": "one"}]})");
  web_.put(kA, "1", R"(, "title": "Alpha", "transcript": [{"text": "two"}, {"text": "three"}])");
  web_.put(kB, "1", R"(, "title": "Beta")");
  const auto result = refresh();
  EXPECT_THAT(ids(), ElementsAre(webId(kA), webId(kB), "rec-local"));
  EXPECT_EQ(index_->byKey().at("cloud:" + kA), webId(kA));
  EXPECT_EQ(entry(webId(kA)).key, "cloud:" + kA);
  EXPECT_EQ(entry(webId(kA)).meeting->source, "cloud");
  EXPECT_EQ(entry(webId(kA)).meeting->title, "Alpha");
  EXPECT_THAT(bodyLowerOf(*entry(webId(kB)).meeting), HasSubstr("beta"));
  EXPECT_EQ(result.meetings, 3U);
  EXPECT_EQ(result.lines, 3U);
  EXPECT_THAT(result.perSource, ElementsAre(Pair("recordings", 1U), Pair("web", 2U)));
  EXPECT_THAT(result.errors, IsEmpty());
}

TEST_F(WebMerge, ChangedCountsLocalMeetingsOnly) {
  home_.record("local");
  web_.put(kA, "1");
  EXPECT_EQ(refresh().changed, 1U);
  web_.put(kA, "2");
  web_.put(kB, "1");
  EXPECT_EQ(refresh().changed, 0U);
}

TEST_F(WebMerge, StatusTellsWhatIsServedAndWhatIsNot) {
  recordSent("twin", kB);
  web_.put(kA, "1");
  web_.put(kB, "1");
  web_.put(kC, "1");
  web_.setUnfinished(kC);
  const auto result = refresh();
  EXPECT_EQ(writeCompact(result.cloud),
            R"({"connected":true,"ok":true,"at":"2026-09-21T14:13:21+00:00","meetings":2,)"
            R"("downloaded":2,"unfinished":1,"indexed":1,"merged_into_local":1})");
  EXPECT_EQ(index_->cloudStatus(), result.cloud);
  EXPECT_THAT(result.perSource, ElementsAre(Pair("recordings", 1U), Pair("web", 1U)));
}

TEST_F(WebMerge, OldRevisionKeepsItsOrderAndANewOneMovesToTheEnd) {
  web_.put(kA, "1");
  web_.put(kB, "1");
  refresh();
  const auto a = entry(webId(kA)).order;
  const auto b = entry(webId(kB)).order;
  refresh();
  EXPECT_EQ(entry(webId(kA)).order, a);
  EXPECT_EQ(entry(webId(kB)).order, b);
  web_.put(kA, "2", R"(, "title": "New")");
  refresh();
  EXPECT_GT(entry(webId(kA)).order, b);
  EXPECT_EQ(entry(webId(kA)).meeting->title, "New");
  EXPECT_EQ(entry(webId(kB)).order, b);
}

TEST_F(WebMerge, ForgetsMeetingsThatAreListedNoMore) {
  web_.put(kA, "1");
  web_.put(kB, "1");
  refresh();
  web_.remove(kA);
  EXPECT_EQ(refresh().meetings, 1U);
  EXPECT_THAT(ids(), ElementsAre(webId(kB)));
  web_.setUnfinished(kB);
  refresh();
  EXPECT_THAT(ids(), IsEmpty()) << "one that is processed again is not served";
  EXPECT_EQ(home_.folder.read(kCache), "{}");
}

TEST_F(WebMerge, FailedSyncKeepsEntriesAndMergedNotes) {
  recordSent("twin", kB);
  web_.put(kA, "1");
  web_.put(kB, "1", R"(, "user_notes": "From the web")");
  refresh();
  const auto order = entry(webId(kA)).order;
  web_.offline = true;
  const auto result = refresh();
  EXPECT_THAT(ids(), ElementsAre(webId(kA), "rec-twin"));
  EXPECT_EQ(entry(webId(kA)).order, order);
  EXPECT_EQ(userNotes("rec-twin"), R"("From the web")");
  EXPECT_EQ(result.cloud.getBool("connected"), true);
  EXPECT_EQ(result.cloud.getBool("ok"), false);
  EXPECT_EQ(result.cloud.getString("kind"), "offline");
  EXPECT_THAT(warning(), HasSubstr("no route to host"));
  EXPECT_EQ(result.cloud.getInt("indexed"), 1);
  EXPECT_EQ(result.cloud.getInt("merged_into_local"), 1);
  EXPECT_THAT(result.perSource, ElementsAre(Pair("recordings", 1U), Pair("web", 1U)));
}

TEST_F(WebMerge, IndexThatStartsWithoutNetworkServesTheCache) {
  recordSent("twin", kB);
  web_.put(kA, "1", R"(, "title": "Alpha")");
  web_.put(kB, "1", R"(, "user_notes": "From the web")");
  refresh();
  restart();
  web_.offline = true;
  refresh();
  EXPECT_THAT(ids(), ElementsAre(webId(kA), "rec-twin"));
  EXPECT_EQ(entry(webId(kA)).meeting->title, "Alpha");
  EXPECT_EQ(userNotes("rec-twin"), R"("From the web")");
  web_.offline = false;
  web_.takeDownloaded();
  refresh();
  EXPECT_THAT(web_.takeDownloaded(), IsEmpty());
}

TEST_F(WebMerge, WithoutAFetcherThereAreNoWebMeetings) {
  web_.put(kA, "1");
  refresh();
  Index alone(home_.config, [this] { return home_.now; });
  const auto result = alone.refresh(false);
  EXPECT_FALSE(alone.cloudStatus());
  EXPECT_TRUE(result.cloud.empty());
  EXPECT_THAT(result.perSource, ElementsAre(Pair("recordings", 0U)));
  EXPECT_TRUE(alone.entries().empty()) << "not even those of the cache";
}

TEST_F(WebMerge, WithoutKeyNothingIsAskedAndNothingServed) {
  web_.put(kA, "1");
  refresh();
  web_.urls.clear();
  home_.config.env.erase("VELTA_TOKEN");
  restart();
  const auto result = refresh();
  EXPECT_THAT(ids(), IsEmpty());
  EXPECT_THAT(web_.urls, IsEmpty());
  EXPECT_EQ(result.cloud.getBool("connected"), false);
  EXPECT_EQ(result.cloud.getBool("ok"), false);
  EXPECT_FALSE(result.cloud.has("indexed"));
  EXPECT_THAT(std::string(result.cloud.getString("note").value_or("")),
              HasSubstr("has no Velta connection key"));
  EXPECT_THAT(result.perSource, ElementsAre(Pair("recordings", 0U), Pair("web", 0U)));
}

TEST_F(WebMerge, RefusedKeyServesWhatIsThere) {
  web_.put(kA, "1");
  refresh();
  web_.status = 401;
  refresh();
  EXPECT_THAT(ids(), ElementsAre(webId(kA)));
  EXPECT_EQ(index_->cloudStatus()->getString("kind"), "auth");
}

TEST_F(WebMerge, TurningWebMeetingsOffAndOnNeedsNoDownload) {
  web_.put(kA, "1");
  refresh();
  web_.urls.clear();
  configure(R"({"enabled": false})");
  const auto off = refresh();
  EXPECT_THAT(ids(), IsEmpty());
  EXPECT_THAT(web_.urls, IsEmpty());
  EXPECT_EQ(off.cloud.getBool("connected"), false);
  EXPECT_EQ(off.cloud.getBool("ok"), false);
  EXPECT_EQ(off.cloud.getString("note"),
            "web meetings are turned off (cloud.enabled false in mcp-config.json)");
  configure("{}");
  web_.takeDownloaded();
  refresh();
  EXPECT_THAT(ids(), ElementsAre(webId(kA)));
  EXPECT_THAT(web_.takeDownloaded(), IsEmpty()) << "the cache stayed";
}

// --- who may see them

TEST_F(WebMerge, VisibilityIsThatOfTheSettings) {
  // The service's own words on it do not count.
  web_.put(kA, "1", R"(, "visibility": "shared", "visibility_hint": "shared")");
  const std::pair<std::string, std::string> cases[] = {
      {"{}", "private"},
      {R"({"visibility": "private"})", "private"},
      {R"({"visibility": "work"})", "work"},
      {R"({"visibility": "shared"})", "shared"},
      {R"({"visibility": "public"})", "private"},
      {R"({"visibility": "Work"})", "private"},
      {R"({"visibility": ""})", "private"},
      {R"({"visibility": 5})", "private"},
      {R"({"visibility": null})", "private"},
      {R"({"visibility": ["shared"]})", "private"},
      {R"("shared")", "private"},
  };
  for (const auto& [cloud, visibility] : cases) {
    configure(cloud);
    refresh();
    EXPECT_EQ(entry(webId(kA)).visibility, visibility) << cloud;
  }
}

TEST_F(WebMerge, OverridesCountByTheIdOfTheWebMeeting) {
  web_.put(kA, "1", R"(, "tags": ["own"])");
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {R"("cloud-)" + kA + R"(": "shared")", "shared", ""},
      {R"("cloud-)" + kA + R"(": "private")", "private", ""},
      {R"("cloud-)" + kA + R"(": "public")", "private", "an unknown word never widens access"},
      {R"("cloud-)" + kA + R"(": "")", "work", "an empty override says nothing"},
      {R"("cloud-)" + kA + R"(": 5)", "work", "neither does a number"},
      {"\"" + kA + R"(": "shared")", "work", "the bare UUID is no id"},
  };
  for (const auto& [overrides, visibility, why] : cases) {
    configure(R"({"visibility": "work"})", R"(, "visibility_overrides": {)" + overrides + "}");
    refresh();
    EXPECT_EQ(entry(webId(kA)).visibility, visibility) << overrides << ": " << why;
  }
}

TEST_F(WebMerge, TagOverridesReplaceTheTagsOfTheService) {
  web_.put(kA, "1", R"(, "tags": ["own", 5])");
  refresh();
  EXPECT_THAT(entry(webId(kA)).tags, ElementsAre("own"));
  configure("{}", R"(, "tag_overrides": {"cloud-)" + kA + R"(": ["x", 1, "y"]})");
  refresh();
  EXPECT_THAT(entry(webId(kA)).tags, ElementsAre("x", "y"));
  configure("{}", R"(, "tag_overrides": {"cloud-)" + kA + R"(": []})");
  refresh();
  EXPECT_THAT(entry(webId(kA)).tags, IsEmpty());
  configure("{}", R"(, "tag_overrides": {"cloud-)" + kA + R"(": "x"})");
  refresh();
  EXPECT_THAT(entry(webId(kA)).tags, ElementsAre("own"));
}

TEST_F(WebMerge, ChangedSettingsCountWithoutANewRevision) {
  web_.put(kA, "1");
  refresh();
  const auto order = entry(webId(kA)).order;
  web_.takeDownloaded();
  configure(R"({"visibility": "work"})", R"(, "tag_overrides": {"cloud-)" + kA + R"(": ["x"]})");
  web_.offline = true;  // nor a network
  refresh();
  EXPECT_EQ(entry(webId(kA)).visibility, "work");
  EXPECT_THAT(entry(webId(kA)).tags, ElementsAre("x"));
  EXPECT_EQ(entry(webId(kA)).order, order);
  configure("{}");
  refresh();
  EXPECT_EQ(entry(webId(kA)).visibility, "private");
  EXPECT_THAT(entry(webId(kA)).tags, IsEmpty());
  EXPECT_THAT(web_.takeDownloaded(), IsEmpty());
}

TEST_F(WebMerge, WebSettingsThatAreNotTheUsualOnesHaveAllReadAgain) {
  home_.record("local");
  struct Case {
    std::string before, after;
    bool readsAgain;
  };
  const Case cases[] = {
      {R"({"visibility": "private"})", R"({"visibility": "work"})", true},
      {R"({"visibility": "work"})", R"({"visibility": "shared"})", true},
      {R"({"visibility": "work"})", R"({"visibility": "private"})", true},
      {"{}", R"({"enabled": false})", true},
      {R"({"enabled": false})", R"({"enabled": true})", true},
      {"{}", R"({"visibility": "private"})", false},
      {"{}", R"({"visibility": null, "enabled": true})", false},
      {"{}", R"({"enabled": null})", false},
      {"{}", R"({"enabled": 0})", false},
      {R"({"enabled": true, "refresh_seconds": 120})", R"({"refresh_seconds": 5})", false},
      {R"({"visibility": "work"})", R"({"visibility": "work", "refresh_seconds": 5})", false},
      {R"({"visibility": "work"})", R"({"base": "https://b.invalid", "visibility": "work"})",
       false},
      {"{}", R"("work")", false},
  };
  for (const auto& [before, after, readsAgain] : cases) {
    configure(before);
    refresh();
    EXPECT_EQ(refresh().changed, 0U) << before;
    configure(after);
    EXPECT_EQ(refresh().changed, readsAgain ? 1U : 0U) << before << " to " << after;
  }
}

// --- a web meeting that is also here

TEST_F(WebMerge, LocalMeetingIsServedInPlaceOfItsTwin) {
  web_.put(kA, "1", R"(, "title": "Web", "tags": ["web"])");
  refresh();
  EXPECT_THAT(ids(), ElementsAre(webId(kA)));
  recordSent("twin", "AAAAAAAA-0000-4000-8000-000000000001");  // kA in capitals
  const auto result = refresh();
  EXPECT_THAT(ids(), ElementsAre("rec-twin"));
  EXPECT_EQ(entry("rec-twin").meeting->title, "Local");
  EXPECT_THAT(entry("rec-twin").tags, IsEmpty());
  EXPECT_EQ(result.cloud.getInt("indexed"), 0);
  EXPECT_EQ(result.cloud.getInt("merged_into_local"), 1);
}

TEST_F(WebMerge, VisibilityOfATwinIsThatOfTheLocalMeeting) {
  configure(R"({"visibility": "shared"})",
            R"(, "visibility_overrides": {"cloud-)" + kA + R"(": "shared"})");
  recordSent("twin", kA);
  web_.put(kA, "1", R"(, "user_notes": "Secret")");
  refresh();
  EXPECT_EQ(entry("rec-twin").visibility, "private");
}

TEST_F(WebMerge, UserNotesComeFromTheWebWhereTheLocalMeetingHasNone) {
  web_.put(kA, "1", R"(, "user_notes": "From the web")");
  const std::pair<std::string, std::string> cases[] = {
      {"{}", R"("From the web")"},
      {R"({"user_notes": null})", R"("From the web")"},
      {R"({"user_notes": ""})", R"("From the web")"},
      {R"({"user_notes": []})", R"("From the web")"},
      {R"({"user_notes": "Mine"})", R"("Mine")"},
      {R"({"user_notes": ["Mine"]})", R"(["Mine"])"},
      {R"({"user_notes": {"text": "Mine"}})", R"({"text":"Mine"})"},
  };
  int seconds = 0;
  for (const auto& [notes, expected] : cases) {
    recordSent("twin", kA, notes);
    TestHome::touch(home_.folder.file("recordings/twin/notes.json"), seconds += 5);
    refresh();
    EXPECT_EQ(userNotes("rec-twin"), expected) << notes;
  }
}

TEST_F(WebMerge, WebMeetingWithoutUserNotesChangesNothing) {
  for (const std::string more : {"", R"(, "user_notes": null)", R"(, "user_notes": "")"}) {
    web_.put(kA, "rev" + more, more);
    recordSent("twin", kA, R"({"user_notes": ""})");
    refresh();
    EXPECT_EQ(userNotes("rec-twin"), R"("")") << more;
    EXPECT_FALSE(entry("rec-twin").webNotes) << more;
  }
}

TEST_F(WebMerge, NotesFromTheWebAreFoundBySearch) {
  recordSent("twin", kA, R"({"title": "Local", "summary": "Own summary"})");
  web_.put(kA, "1", R"(, "user_notes": ["Ask Joan", "ABOUT the deposit"], "summary": "Web's")");
  refresh();
  EXPECT_THAT(bodyLowerOf(*entry("rec-twin").meeting),
              AllOf(HasSubstr("ask joan"), HasSubstr("about the deposit"), HasSubstr("own summary"),
                    Not(HasSubstr("web's"))));
  std::vector<std::string> found;
  for (const NoteText& note : noteTextsOf(*entry("rec-twin").meeting))
    found.push_back(note.lineId + ": " + note.text);
  EXPECT_THAT(found, ElementsAre("summary: Own summary", "user_notes-1: Ask Joan",
                                 "user_notes-2: ABOUT the deposit"));
}

TEST_F(WebMerge, MergedNotesFollowTheWeb) {
  recordSent("twin", kA, R"({"user_notes": ""})");
  web_.put(kA, "1", R"(, "user_notes": "First")");
  refresh();
  const auto order = entry("rec-twin").order;
  web_.put(kA, "2", R"(, "user_notes": "Second")");
  EXPECT_EQ(refresh().changed, 0U);
  EXPECT_EQ(userNotes("rec-twin"), R"("Second")");
  EXPECT_THAT(bodyLowerOf(*entry("rec-twin").meeting),
              AllOf(HasSubstr("second"), Not(HasSubstr("first"))));
  web_.put(kA, "3", R"(, "user_notes": null)");
  refresh();
  EXPECT_EQ(userNotes("rec-twin"), R"("")") << "what stood there before";
  EXPECT_THAT(bodyLowerOf(*entry("rec-twin").meeting), Not(HasSubstr("second")));
  EXPECT_THAT(noteTextsOf(*entry("rec-twin").meeting), IsEmpty());
  EXPECT_EQ(entry("rec-twin").order, order);
}

TEST_F(WebMerge, MergedNotesGoWithTheWebMeeting) {
  const auto goAndComeBack = [this](const std::string& how, const auto& go, const auto& comeBack) {
    refresh();
    ASSERT_EQ(userNotes("rec-twin"), R"("From the web")") << "before " << how;
    go();
    refresh();
    EXPECT_EQ(userNotes("rec-twin"), "absent") << how;
    EXPECT_THAT(bodyLowerOf(*entry("rec-twin").meeting), Not(HasSubstr("web"))) << how;
    EXPECT_THAT(noteTextsOf(*entry("rec-twin").meeting), IsEmpty()) << how;
    comeBack();
  };
  const auto put = [this] { web_.put(kA, "1", R"(, "user_notes": "From the web")"); };
  recordSent("twin", kA);
  put();
  goAndComeBack(
      "the meeting is gone", [this] { web_.remove(kA); }, put);
  goAndComeBack(
      "it is processed again", [this] { web_.setUnfinished(kA); }, put);
  const std::string key = home_.config.env.at("VELTA_TOKEN");
  goAndComeBack(
      "there is no key", [this] { home_.config.env.erase("VELTA_TOKEN"); },
      [&] { home_.config.env["VELTA_TOKEN"] = key; });
  goAndComeBack(
      "web meetings are turned off", [this] { configure(R"({"enabled": false})"); },
      [this] { configure("{}"); });
  goAndComeBack(
      "the local meeting is not that one any more",
      [this] {
        const std::string file =
            home_.folder.write("recordings/twin/upload.json", R"({"meeting_id": ")" + kB + "\"}");
        TestHome::touch(file, 60);
      },
      [] {});
  EXPECT_THAT(ids(), ElementsAre(webId(kA), "rec-twin"));
}

TEST_F(WebMerge, WhatStoodInPlaceOfMergedNotesComesBackAsItWas) {
  const std::pair<std::string, std::string> cases[] = {
      {"{}", "absent"},
      {R"({"user_notes": null})", "null"},
      {R"({"user_notes": ""})", R"("")"},
      {R"({"user_notes": []})", "[]"},
  };
  int seconds = 0;
  for (const auto& [notes, own] : cases) {
    recordSent("twin", kA, notes);
    TestHome::touch(home_.folder.file("recordings/twin/notes.json"), seconds += 5);
    web_.put(kA, "1", R"(, "user_notes": "From the web")");
    refresh();
    EXPECT_EQ(userNotes("rec-twin"), R"("From the web")") << notes;
    web_.remove(kA);
    refresh();
    EXPECT_EQ(userNotes("rec-twin"), own) << notes;
  }
}

TEST_F(WebMerge, LocalMeetingThatIsReadAgainKeepsMergedNotes) {
  recordSent("twin", kA);
  web_.put(kA, "1", R"(, "user_notes": "From the web")");
  refresh();
  home_.record("twin", R"({"title": "Renamed"})");
  TestHome::touch(home_.folder.file("recordings/twin/notes.json"));
  EXPECT_EQ(refresh().changed, 1U);
  EXPECT_EQ(entry("rec-twin").meeting->title, "Renamed");
  EXPECT_EQ(userNotes("rec-twin"), R"("From the web")");
  home_.record("twin", R"({"user_notes": "Mine now"})");
  TestHome::touch(home_.folder.file("recordings/twin/notes.json"), 10);
  refresh();
  EXPECT_EQ(userNotes("rec-twin"), R"("Mine now")");
  web_.remove(kA);
  refresh();
  EXPECT_EQ(userNotes("rec-twin"), R"("Mine now")");
}

TEST_F(WebMerge, LocalMeetingThatStopsParsingKeepsItsTwin) {
  recordSent("twin", kA);
  web_.put(kA, "1", R"(, "user_notes": "From the web")");
  refresh();
  home_.record("twin", R"({"title": )");
  TestHome::touch(home_.folder.file("recordings/twin/notes.json"));
  for (int i = 0; i < 2; ++i) {
    const auto result = refresh();
    EXPECT_EQ(result.errors.size(), 1U);
    EXPECT_THAT(ids(), ElementsAre("rec-twin"));
    EXPECT_EQ(userNotes("rec-twin"), R"("From the web")");
  }
  web_.put(kA, "2", R"(, "user_notes": "Newer")");
  refresh();
  EXPECT_EQ(userNotes("rec-twin"), R"("Newer")");
}

TEST_F(WebMerge, WebMeetingComesBackWhenItsLocalTwinGoes) {
  recordSent("twin", kA);
  web_.put(kA, "1", R"(, "title": "Web")");
  refresh();
  web_.takeDownloaded();
  home_.remove("recordings/twin");
  const auto result = refresh();
  EXPECT_THAT(ids(), ElementsAre(webId(kA)));
  EXPECT_EQ(result.cloud.getInt("indexed"), 1);
  EXPECT_EQ(result.cloud.getInt("merged_into_local"), 0);
  EXPECT_EQ(result.removed, 1U);
  EXPECT_THAT(web_.takeDownloaded(), IsEmpty());
}

TEST_F(WebMerge, TwoLocalTwinsOfOneWebMeetingBothGetItsNotesAndCountOnce) {
  recordSent("one", kA);
  recordSent("two", kA);
  web_.put(kA, "1", R"(, "user_notes": "From the web")");
  const auto result = refresh();
  EXPECT_THAT(ids(), ElementsAre("rec-one", "rec-two"));
  EXPECT_EQ(userNotes("rec-one"), R"("From the web")");
  EXPECT_EQ(userNotes("rec-two"), R"("From the web")");
  EXPECT_EQ(result.cloud.getInt("merged_into_local"), 1);
  EXPECT_EQ(result.cloud.getInt("indexed"), 0);
}

TEST_F(WebMerge, LocalMeetingWithoutATwinIsLeftAlone) {
  recordSent("sent", kB, R"({"title": "Sent and deleted there"})");
  web_.put(kA, "1", R"(, "user_notes": "From the web")");
  const auto result = refresh();
  EXPECT_THAT(ids(), ElementsAre(webId(kA), "rec-sent"));
  EXPECT_EQ(userNotes("rec-sent"), "absent");
  EXPECT_EQ(result.cloud.getInt("merged_into_local"), 0);
}

// --- the cache

TEST_F(WebMerge, CacheSaysWhichRevisionWasMerged) {
  recordSent("twin", kA);
  web_.put(kA, "1");
  web_.put(kB, "1");
  refresh();
  EXPECT_EQ(cachedRow(kA).getString("applied"), "1");
  EXPECT_FALSE(cachedRow(kB).has("applied"));
  web_.put(kA, "2");
  refresh();
  EXPECT_EQ(cachedRow(kA).getString("applied"), "2");
  home_.remove("recordings/twin");
  refresh();
  EXPECT_FALSE(cachedRow(kA).has("applied"));
}

TEST_F(WebMerge, CacheHoldsTheMeetingAsTheServiceSentIt) {
  recordSent("twin", kA, R"({"title": "Local"})");
  web_.put(kA, "1", R"(, "title": "Web", "user_notes": "From the web")");
  refresh();
  const JSONObject row = cachedRow(kA);
  EXPECT_EQ(row.getObject("meeting")->getString("id"), webId(kA));
  EXPECT_EQ(row.getObject("meeting")->getString("title"), "Web");
}

TEST_F(WebMerge, CacheIsWrittenOnlyWhenItChanged) {
  web_.put(kA, "1");
  refresh();
  const std::string text = home_.folder.read(kCache);
  home_.folder.write(kCache, "untouched");
  refresh();
  EXPECT_EQ(home_.folder.read(kCache), "untouched");
  web_.put(kA, "2");
  refresh();
  EXPECT_NE(home_.folder.read(kCache), "untouched");
  EXPECT_NE(home_.folder.read(kCache), text);
}

TEST_F(WebMerge, CacheThatCannotBeWrittenIsAWarningAndIsWrittenLater) {
  home_.folder.write(std::string(kCache) + "/in the way", "");
  web_.put(kA, "1");
  const auto result = refresh();
  EXPECT_THAT(ids(), ElementsAre(webId(kA)));
  EXPECT_EQ(result.cloud.getBool("ok"), true);
  EXPECT_EQ(warning(),
            "web meetings: the cache could not be written (Is a directory); they are downloaded "
            "again after a restart. Next step: free space on the disk, or make the data home "
            "writable");
  home_.remove(kCache);
  refresh();
  EXPECT_EQ(warning(), "");
  EXPECT_EQ(cachedRow(kA).getString("rev"), "1");
}

TEST_F(WebMerge, ReadOnlyHomeIsAWarning) {
  if (::geteuid() == 0) GTEST_SKIP() << "root may write everywhere";
  web_.put(kA, "1");
  ASSERT_EQ(::chmod(home_.folder.path().c_str(), 0555), 0);
  refresh();
  ASSERT_EQ(::chmod(home_.folder.path().c_str(), 0755), 0);
  EXPECT_THAT(ids(), ElementsAre(webId(kA)));
  EXPECT_THAT(warning(), HasSubstr("could not be written (Permission denied)"));
}

TEST_F(WebMerge, WarningOfTheSyncWinsOverThatOfTheCache) {
  web_.put(kA, "1");
  web_.losesDownloads = true;
  refresh();
  EXPECT_EQ(warning(),
            "web meetings: 1 of 1 changed meetings did not come back; they are left out until the "
            "next sync");
  EXPECT_THAT(ids(), IsEmpty());
  web_.losesDownloads = false;
  refresh();
  EXPECT_EQ(warning(), "");
  EXPECT_THAT(ids(), ElementsAre(webId(kA)));
}

// --- against an index that is built anew

using ShownById = std::map<std::string, std::vector<std::string>>;

// What an index shows of its meetings, by id.
ShownById shownById(const Index& index) {
  ShownById shown;
  for (const auto& [id, entry] : index.entries()) {
    std::vector<std::string>& values = shown[id];
    values = {entry.key, entry.visibility, writeCompact(entry.meeting->toJSON()),
              std::to_string(entry.decisionCount) + " " + std::to_string(entry.openQuestionCount)};
    values.insert(values.end(), entry.tags.begin(), entry.tags.end());
    // What search passes by when it should not would show here.
    for (const NoteText& note : noteTextsOf(*entry.meeting))
      values.push_back(note.lineId +
                       (QueryToken({lowerASCII(note.text)}).mayBeIn(entry.bodySignature.view())
                            ? ""
                            : " missed"));
  }
  return shown;
}

class ChangingWebMeetings : public WebMerge {
 protected:
  void change() {
    static const std::string kNotes[] = {"", "null", "\"\"", "\"web\"", "[\"x\",\"y\"]"};
    static const std::string kClouds[] = {"{}", R"({"visibility": "work"})",
                                          R"({"enabled": false})"};
    const std::string uuid = std::vector<std::string>{kA, kB, kC}[below(3)];
    const std::string name = std::string(1, static_cast<char>('a' + below(4)));
    const std::string notes = kNotes[below(std::size(kNotes))];
    const std::string member = notes.empty() ? "" : R"(, "user_notes": )" + notes;
    ++step_;
    switch (below(8)) {
      case 0:
        web_.remove(uuid);
        break;
      case 1:
        home_.remove("recordings/" + name);
        break;
      case 2:
        home_.remove("recordings/" + name + "/upload.json");
        break;
      case 3:
        configure(kClouds[below(std::size(kClouds))]);
        break;
      case 4:
      case 5:
        web_.put(uuid, std::to_string(step_), R"(, "title": "W")" + member);
        break;
      default:
        recordSent(name, uuid, R"({"title": "L")" + member + "}");
        for (const char* const file : {"/notes.json", "/upload.json"})
          TestHome::touch(home_.folder.file("recordings/" + name + file), step_);
    }
  }

  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_);
  }

  std::mt19937 random_{20260921};
  int step_ = 0;
};

TEST_F(ChangingWebMeetings, RefreshedIndexIsTheOneThatIsBuiltAnew) {
  std::size_t merged = 0;
  for (int round = 0; round < 150; ++round) {
    change();
    const auto result = refresh();
    merged += static_cast<std::size_t>(result.cloud.getInt("merged_into_local").value_or(0));
    Index anew(
        home_.config, [this] { return home_.now; }, &web_);
    const auto built = anew.refresh(false);
    ASSERT_EQ(shownById(*index_), shownById(anew)) << "round " << round;
    ASSERT_EQ(result.cloud.getInt("indexed"), built.cloud.getInt("indexed"));
    ASSERT_EQ(result.cloud.getInt("merged_into_local"), built.cloud.getInt("merged_into_local"));
  }
  EXPECT_GT(merged, 50U) << "hardly anything was merged";
}

}  // namespace
}  // namespace velta
