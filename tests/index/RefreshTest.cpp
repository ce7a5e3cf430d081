#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "index/Index.h"
#include "index/TestHome.h"

namespace velta {
namespace {

using test::TestHome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

std::vector<std::string> idsOf(const Index& index) {
  std::vector<std::string> ids;
  for (const auto& [id, entry] : index.entries()) ids.push_back(id);
  std::ranges::sort(ids);
  return ids;
}

// Every entry stands under its key and no key leads elsewhere.
void expectConsistent(const Index& index) {
  EXPECT_EQ(index.byKey().size(), index.entries().size());
  for (const auto& [id, entry] : index.entries()) {
    EXPECT_EQ(entry.meeting->id, id);
    const auto key = index.byKey().find(entry.key);
    ASSERT_NE(key, index.byKey().end()) << entry.key;
    EXPECT_EQ(key->second, id);
  }
  EXPECT_EQ(index.newestFirst().size(), index.entries().size());
}

class Refresh : public testing::Test {
 protected:
  ~Refresh() override { expectConsistent(home_.index); }

  std::string configuration(const std::vector<std::string>& sources, const std::string& more = "") {
    std::string list;
    for (const std::string& source : sources) list += (list.empty() ? "" : ", ") + source;
    return R"({"sources": [)" + list + "]" + more + "}";
  }

  void configure(const std::vector<std::string>& sources, const std::string& more = "") {
    home_.configure(configuration(sources, more));
  }

  std::string keyOf(const std::string& name, int source = 0) const {
    return home_.folder.file(name) + "/notes.json|local:" + std::to_string(source);
  }

  TestHome home_;
  const Index& index_ = home_.index;
};

constexpr const char* kBroken = R"({"title": )";

TEST_F(Refresh, WritesTheDefaultConfigurationAndFinishesEmpty) {
  EXPECT_FALSE(index_.indexedAt());
  const auto result = home_.refresh();
  EXPECT_EQ(result.meetings, 0u);
  EXPECT_THAT(result.errors, IsEmpty());
  EXPECT_THAT(result.perSource, ElementsAre(Pair("recordings", 0u)));
  EXPECT_TRUE(home_.folder.has("mcp-config.json"));
  EXPECT_EQ(index_.indexedAt(), home_.now);
  EXPECT_FALSE(index_.cloudStatus());
  EXPECT_TRUE(result.cloud.empty());
}

TEST_F(Refresh, ReadsEveryListedMeetingInListingOrder) {
  home_.record("b", R"({"lines": [{"text": "1"}, {"text": "2"}]})");
  home_.record("a", R"({"lines": [{"text": "3"}]})");
  const auto result = home_.refresh();
  EXPECT_EQ(result.meetings, 2u);
  EXPECT_EQ(result.lines, 3u);
  EXPECT_EQ(result.changed, 2u);
  EXPECT_EQ(result.removed, 0u);
  EXPECT_EQ(home_.entry("rec-a").order, 1u);
  EXPECT_EQ(home_.entry("rec-b").order, 2u);
  EXPECT_THAT(index_.byKey(), UnorderedElementsAre(Pair(keyOf("recordings/a"), "rec-a"),
                                                   Pair(keyOf("recordings/b"), "rec-b")));
}

TEST_F(Refresh, KeepsListingOrderHoweverManyThreadsRead) {
  for (int number = 100; number < 180; ++number) {
    home_.record(std::to_string(number),
                 R"({"lines": [)" + std::string(number % 7 == 0 ? 20'000 : 0, ' ') + "]}");
  }
  home_.refresh();
  for (int number = 100; number < 180; ++number) {
    EXPECT_EQ(home_.entry("rec-" + std::to_string(number)).order,
              static_cast<std::uint64_t>(number - 99));
  }
}

TEST_F(Refresh, ReadsNothingWhenNothingChanged) {
  home_.record("a");
  home_.refresh();
  home_.now += std::chrono::seconds(10);
  const auto result = home_.refresh();
  EXPECT_EQ(result.changed, 0u);
  EXPECT_EQ(result.meetings, 1u);
  EXPECT_EQ(home_.entry("rec-a").order, 1u);
  EXPECT_EQ(index_.indexedAt(), home_.now);
}

TEST_F(Refresh, ReadsATouchedMeetingAloneAndMovesItToTheEnd) {
  const std::string a = home_.record("a");
  home_.record("b");
  home_.refresh();
  const double before = home_.entry("rec-a").mtime;
  TestHome::touch(a);
  EXPECT_EQ(home_.refresh().changed, 1u);
  EXPECT_EQ(home_.entry("rec-a").order, 3u);
  EXPECT_NEAR(home_.entry("rec-a").mtime, before + 5, 1e-5);
  EXPECT_EQ(home_.entry("rec-b").order, 2u);
}

TEST_F(Refresh, ReadsAMeetingWhoseFileBecameOlder) {
  const std::string a = home_.record("a");
  home_.refresh();
  TestHome::touch(a, -5);
  EXPECT_EQ(home_.refresh().changed, 1u);
}

TEST_F(Refresh, ReadsAMeetingWhoseSessionFileComesChangesOrGoes) {
  const std::string notes = home_.record("a");
  home_.refresh();
  const std::string session =
      home_.folder.write("recordings/a/session.json", R"({"title": "From the session"})");
  std::filesystem::last_write_time(session, std::filesystem::last_write_time(notes));
  EXPECT_EQ(home_.refresh().changed, 1u) << "the list of files changed, the latest time did not";
  EXPECT_EQ(home_.entry("rec-a").meeting->title, "From the session");
  TestHome::touch(session);
  EXPECT_EQ(home_.refresh().changed, 1u);
  std::filesystem::remove(session);
  EXPECT_EQ(home_.refresh().changed, 1u);
  EXPECT_EQ(home_.entry("rec-a").meeting->title, "A");
  EXPECT_EQ(home_.refresh().changed, 0u);
}

TEST_F(Refresh, ReadsAMeetingWhoseUploadStateComesChangesOrGoes) {
  home_.record("a");
  home_.refresh();
  EXPECT_FALSE(home_.entry("rec-a").meeting->status);
  const std::string upload =
      home_.folder.write("recordings/a/upload.json", R"({"state": "uploading"})");
  EXPECT_EQ(home_.refresh().changed, 1u);
  EXPECT_EQ(home_.entry("rec-a").meeting->status, "uploading");
  TestHome::touch(upload);
  EXPECT_EQ(home_.refresh().changed, 1u);
  EXPECT_EQ(home_.refresh().changed, 0u);
  std::filesystem::remove(upload);
  EXPECT_EQ(home_.refresh().changed, 1u);
  EXPECT_FALSE(home_.entry("rec-a").meeting->status);
}

TEST_F(Refresh, ReadsAllWhenForced) {
  home_.record("a");
  home_.record("b");
  home_.refresh();
  EXPECT_EQ(home_.refresh(true).changed, 2u);
  EXPECT_EQ(home_.entry("rec-a").order, 3u);
}

TEST_F(Refresh, DropsWhatIsListedNoMore) {
  home_.record("a");
  home_.record("b");
  home_.refresh();
  home_.remove("recordings/a");
  const auto result = home_.refresh();
  EXPECT_EQ(result.removed, 1u);
  EXPECT_EQ(result.changed, 0u);
  EXPECT_THAT(idsOf(index_), ElementsAre("rec-b"));
}

TEST_F(Refresh, TakesTheConfigurationThatItIsGiven) {
  home_.folder.write("other/a/notes.json", "{}");
  const JSON config = parseJSON(configuration({home_.source("other")}));
  home_.index.refresh(false, config.asObject());
  EXPECT_THAT(idsOf(index_), ElementsAre("rec-a"));
  EXPECT_FALSE(home_.folder.has("mcp-config.json"));
}

TEST_F(Refresh, NamesASourceThatCannotBeListedAndReadsTheOthers) {
  home_.record("a");
  configure({R"({"name": "first"})", home_.source("recordings"), R"({"type": "recordings"})"});
  const auto result = home_.refresh();
  EXPECT_THAT(result.errors,
              ElementsAre("unknown source type ''; use recordings, imported or legacy",
                          "source recordings has no glob"));
  EXPECT_THAT(result.perSource, ElementsAre(Pair("first", 0u), Pair("recordings", 1u)));
  EXPECT_THAT(index_.byKey(), ElementsAre(Pair(keyOf("recordings/a", 1), "rec-a")));
}

TEST_F(Refresh, CountsASourceWithoutNameAndTypeUnderAQuestionMark) {
  configure({"{}", R"({"name": "", "type": 5})"});
  EXPECT_THAT(home_.refresh().perSource, ElementsAre(Pair("?", 0u)));
}

TEST_F(Refresh, CountsByNameBeforeTypeAndJoinsEqualLabels) {
  home_.folder.write("one/a/notes.json", "{}");
  home_.folder.write("two/b/notes.json", "{}");
  home_.folder.write("three/c/notes.json", "{}");
  configure({home_.source("one"), home_.source("two", R"(, "name": "mine")"),
             home_.source("three", R"(, "name": "")")});
  EXPECT_THAT(home_.refresh().perSource, ElementsAre(Pair("recordings", 2u), Pair("mine", 1u)));
}

TEST_F(Refresh, SkipsSourcesThatAreNotObjectsButCountsTheirPlaces) {
  home_.record("a");
  configure({"5", "null", home_.source("recordings")});
  EXPECT_THAT(home_.refresh().errors, IsEmpty());
  EXPECT_THAT(index_.byKey(), ElementsAre(Pair(keyOf("recordings/a", 2), "rec-a")));
}

TEST_F(Refresh, TakesSourcesOfAnotherKindForNone) {
  home_.record("a");
  home_.configure(R"({"sources": "here"})");
  const auto result = home_.refresh();
  EXPECT_EQ(result.meetings, 0u);
  EXPECT_THAT(result.perSource, IsEmpty());
}

// What the configuration changes.

TEST_F(Refresh, ReadsAllWhenASourcesVisibilityChanges) {
  home_.record("a");
  configure({home_.source("recordings")});
  home_.refresh();
  EXPECT_EQ(home_.entry("rec-a").visibility, "private");
  configure({home_.source("recordings", R"(, "visibility": "work")")});
  EXPECT_EQ(home_.refresh().changed, 1u);
  EXPECT_EQ(home_.entry("rec-a").visibility, "work");
}

TEST_F(Refresh, ReadsNothingWhenWhatDoesNotShapeTheIndexChanges) {
  home_.record("a");
  configure({home_.source("recordings")});
  home_.refresh();
  for (const char* more :
       {R"(, "stale_after_hours": 5)", R"(, "clients": {})", R"(, "cloud": {"refresh_seconds": 1})",
        R"(, "cloud": {"visibility": "private", "enabled": true})",
        R"(, "cloud": {"visibility": null, "enabled": "no"})"}) {
    configure({home_.source("recordings")}, more);
    EXPECT_EQ(home_.refresh().changed, 0u) << more;
  }
}

TEST_F(Refresh, ReadsAllWhenWhatShapesTheWebMeetingsChanges) {
  home_.record("a");
  configure({home_.source("recordings")});
  home_.refresh();
  for (const char* more :
       {R"(, "cloud": {"visibility": "work"})", R"(, "cloud": {"enabled": false})",
        R"(, "cloud": {"visibility": 5})", R"(, "tag_overrides": {"x": []})",
        R"(, "visibility_overrides": {"x": "work"})"}) {
    configure({home_.source("recordings")}, more);
    EXPECT_EQ(home_.refresh().changed, 1u) << more;
  }
}

TEST_F(Refresh, LetsAVisibilityOverrideWinOverHintAndSource) {
  home_.record("a", R"({"visibility": "shared"})");
  const auto visibilityWith = [&](const std::string& override) {
    configure({home_.source("recordings", R"(, "visibility": "private")")},
              R"(, "visibility_overrides": {"rec-a": )" + override + "}");
    home_.refresh();
    return home_.entry("rec-a").visibility;
  };
  EXPECT_EQ(visibilityWith(R"("work")"), "work");
  EXPECT_EQ(visibilityWith(R"("")"), "shared");
  EXPECT_EQ(visibilityWith("5"), "shared");
  EXPECT_EQ(visibilityWith(R"("public")"), "private") << "an unknown word never widens access";
}

TEST_F(Refresh, IgnoresOverridesThatAreNotObjects) {
  home_.record("a", R"({"tags": ["own"]})");
  configure({home_.source("recordings", R"(, "visibility": "work")")},
            R"(, "visibility_overrides": ["rec-a"], "tag_overrides": "rec-a")");
  home_.refresh();
  EXPECT_EQ(home_.entry("rec-a").visibility, "work");
  EXPECT_THAT(home_.entry("rec-a").tags, ElementsAre("own"));
}

TEST_F(Refresh, TakesTheHintBeforeTheSourceAndAnUnknownWordAsPrivate) {
  home_.record("hinted", R"({"visibility": "shared"})");
  home_.record("odd", R"({"visibility": "public"})");
  home_.record("plain");
  configure({home_.source("recordings", R"(, "visibility": "work")")});
  home_.refresh();
  EXPECT_EQ(home_.entry("rec-hinted").visibility, "shared");
  EXPECT_EQ(home_.entry("rec-odd").visibility, "private");
  EXPECT_EQ(home_.entry("rec-plain").visibility, "work");
  configure({home_.source("recordings", R"(, "visibility": "everyone")")});
  home_.refresh();
  EXPECT_EQ(home_.entry("rec-plain").visibility, "private");
}

TEST_F(Refresh, ReplacesTagsByTheStringsOfAnOverride) {
  home_.record("a", R"({"tags": ["own", 5]})");
  const auto tagsWith = [&](const std::string& override) {
    configure({home_.source("recordings")}, R"(, "tag_overrides": {"rec-a": )" + override + "}");
    home_.refresh();
    return home_.entry("rec-a").tags;
  };
  EXPECT_THAT(tagsWith(R"(["agents", 1, "private"])"), ElementsAre("agents", "private"));
  EXPECT_THAT(tagsWith("[]"), IsEmpty());
  EXPECT_THAT(tagsWith(R"("agents")"), ElementsAre("own"));
}

// Ids that move between files.

TEST_F(Refresh, LeavesNoStaleEntryWhenAFilesMeetingIdChanges) {
  const std::string file = home_.folder.write("old/records/r/meeting.json", R"({"id": "one"})");
  configure({R"({"type": "legacy", "path": ")" + home_.folder.file("old") + R"("})"});
  home_.refresh();
  EXPECT_THAT(idsOf(index_), ElementsAre("legacy-one"));
  home_.folder.write("old/records/r/meeting.json", R"({"id": "two"})");
  TestHome::touch(file);
  const auto result = home_.refresh();
  EXPECT_THAT(idsOf(index_), ElementsAre("legacy-two"));
  EXPECT_EQ(result.changed, 1u);
}

TEST_F(Refresh, KeepsAMeetingWhoseFolderIsRenamed) {
  home_.record("a b");
  home_.refresh();
  home_.rename("recordings/a b", "recordings/a-b");
  const auto result = home_.refresh();
  EXPECT_THAT(index_.byKey(), ElementsAre(Pair(keyOf("recordings/a-b"), "rec-a-b")));
  EXPECT_EQ(result.removed, 0u);
  EXPECT_THAT(result.errors, IsEmpty());
}

TEST_F(Refresh, KeepsTwoMeetingsThatSwapTheirFiles) {
  const std::string one = home_.folder.write("old/records/1/meeting.json", R"({"id": "a"})");
  const std::string two = home_.folder.write("old/records/2/meeting.json", R"({"id": "b"})");
  configure({R"({"type": "legacy", "path": ")" + home_.folder.file("old") + R"("})"});
  home_.refresh();
  home_.folder.write("old/records/1/meeting.json", R"({"id": "b"})");
  home_.folder.write("old/records/2/meeting.json", R"({"id": "a"})");
  TestHome::touch(one);
  TestHome::touch(two);
  const auto result = home_.refresh();
  EXPECT_THAT(idsOf(index_), ElementsAre("legacy-a", "legacy-b"));
  EXPECT_THAT(home_.entry("legacy-a").key, HasSubstr("/records/2/"));
  EXPECT_EQ(result.removed, 0u);
}

// Two file sets with one meeting id: "a b" is listed before "a-b".

class RefreshDuplicates : public Refresh {
 protected:
  RefreshDuplicates() {
    waiting_ = home_.record("a b", R"({"title": "first"})");
    serving_ = home_.record("a-b", R"({"title": "second"})");
    result_ = home_.refresh();
  }

  std::string waiting_;
  std::string serving_;
  Index::BuildResult result_;
};

TEST_F(RefreshDuplicates, ServeTheLaterListedAndNameTheOther) {
  EXPECT_EQ(home_.entry("rec-a-b").meeting->title, "second");
  EXPECT_EQ(result_.meetings, 1u);
  EXPECT_EQ(result_.changed, 1u);
  EXPECT_EQ(result_.perSource[0].second, 2u);
  EXPECT_THAT(result_.errors,
              ElementsAre("two meetings have the id rec-a-b: " + serving_ + " is served and " +
                          waiting_ + " is left out. Next step: rename or remove one of the two"));
}

TEST_F(RefreshDuplicates, AreSteady) {
  for (int round = 0; round < 3; ++round) {
    const auto result = home_.refresh();
    EXPECT_EQ(result.changed, 0u);
    EXPECT_EQ(result.removed, 0u);
    EXPECT_THAT(result.errors, ElementsAre(result_.errors[0]));
  }
  EXPECT_EQ(home_.entry("rec-a-b").order, 1u);
}

TEST_F(RefreshDuplicates, BringTheOtherBackInTheRefreshInWhichTheWinnerGoes) {
  home_.remove("recordings/a-b");
  const auto result = home_.refresh();
  EXPECT_EQ(home_.entry("rec-a-b").meeting->title, "first");
  EXPECT_EQ(home_.entry("rec-a-b").key, keyOf("recordings/a b"));
  EXPECT_EQ(result.changed, 1u);
  EXPECT_EQ(result.removed, 0u);
  EXPECT_THAT(result.errors, IsEmpty());
}

TEST_F(RefreshDuplicates, DoNotLetATouchedOneTakeOver) {
  TestHome::touch(waiting_);
  EXPECT_EQ(home_.refresh().changed, 0u);
  EXPECT_EQ(home_.entry("rec-a-b").meeting->title, "second");
}

TEST_F(RefreshDuplicates, DropTheMeetingWhenTheWinnerGoesAndTheOtherIsBroken) {
  home_.folder.write("recordings/a b/notes.json", kBroken);
  TestHome::touch(waiting_);
  home_.remove("recordings/a-b");
  const auto result = home_.refresh();
  EXPECT_THAT(idsOf(index_), IsEmpty());
  EXPECT_EQ(result.removed, 1u);
  ASSERT_EQ(result.errors.size(), 1u);
  home_.folder.write("recordings/a b/notes.json", R"({"title": "mended"})");
  EXPECT_EQ(home_.refresh().changed, 1u);
  EXPECT_EQ(home_.entry("rec-a-b").meeting->title, "mended");
}

TEST_F(RefreshDuplicates, KeepTheWinnersLastEntryWhenItBreaks) {
  home_.folder.write("recordings/a-b/notes.json", kBroken);
  TestHome::touch(serving_);
  const auto result = home_.refresh();
  EXPECT_EQ(home_.entry("rec-a-b").meeting->title, "second");
  EXPECT_EQ(result.errors.size(), 2u) << "what is broken, and what waits";
}

TEST_F(RefreshDuplicates, NameEachOfSeveralThatWait) {
  const std::string third = home_.record("a  b");
  const auto result = home_.refresh();
  EXPECT_THAT(result.errors, UnorderedElementsAre(HasSubstr(waiting_), HasSubstr(third)));
}

TEST_F(Refresh, GivesAMeetingThatTwoSourcesFindToTheLaterOneWithoutError) {
  home_.record("a");
  configure({home_.source("recordings", R"(, "visibility": "shared", "name": "one")"),
             home_.source("recordings", R"(, "visibility": "work", "name": "two")")});
  const auto result = home_.refresh();
  EXPECT_THAT(index_.byKey(), ElementsAre(Pair(keyOf("recordings/a", 1), "rec-a")));
  EXPECT_EQ(home_.entry("rec-a").visibility, "work");
  EXPECT_THAT(result.errors, IsEmpty());
  EXPECT_THAT(result.perSource, ElementsAre(Pair("one", 1u), Pair("two", 1u)));
  EXPECT_EQ(home_.refresh().changed, 0u);
}

TEST_F(Refresh, LetsTheEarlierSourceServeWhenTheLaterFindsTheMeetingNoMore) {
  home_.record("a");
  configure({home_.source("recordings", R"(, "visibility": "shared")"),
             home_.source("link", R"(, "visibility": "work")")});
  std::filesystem::create_directory_symlink(home_.folder.file("recordings"),
                                            home_.folder.file("link"));
  home_.refresh();
  EXPECT_EQ(home_.entry("rec-a").visibility, "work");
  home_.remove("link");
  home_.refresh();
  EXPECT_EQ(home_.entry("rec-a").visibility, "shared");
}

// Files that cannot be read.

TEST_F(Refresh, NamesAFileThatCannotBeReadAndReadsTheRest) {
  const std::string broken = home_.record("a", kBroken);
  home_.record("b");
  const auto result = home_.refresh();
  EXPECT_THAT(idsOf(index_), ElementsAre("rec-b"));
  EXPECT_THAT(result.errors, ElementsAre(HasSubstr(broken + " is not a JSON object")));
  EXPECT_EQ(result.perSource[0].second, 2u);
}

TEST_F(Refresh, TriesABrokenFileAgainWheneverItRefreshes) {
  const std::string file = home_.record("a", kBroken);
  home_.refresh();
  EXPECT_EQ(home_.refresh().errors.size(), 1u);
  const auto time = std::filesystem::last_write_time(file);
  home_.record("a");
  std::filesystem::last_write_time(file, time);
  EXPECT_EQ(home_.refresh().changed, 1u);
}

TEST_F(Refresh, KeepsTheLastGoodEntryOfAFileThatBreaks) {
  const std::string file = home_.record("a", R"({"title": "good"})");
  home_.refresh();
  home_.record("a", kBroken);
  TestHome::touch(file);
  const auto result = home_.refresh();
  EXPECT_EQ(home_.entry("rec-a").meeting->title, "good");
  EXPECT_EQ(home_.entry("rec-a").order, 1u);
  EXPECT_EQ(result.changed, 0u);
  EXPECT_EQ(result.removed, 0u);
  EXPECT_THAT(result.errors, ElementsAre(HasSubstr(file)));
  EXPECT_EQ(home_.refresh().errors, result.errors) << "it stays named as long as it is broken";
  home_.record("a", R"({"title": "good again"})");
  EXPECT_EQ(home_.refresh().changed, 1u);
  EXPECT_EQ(home_.entry("rec-a").meeting->title, "good again");
}

TEST_F(Refresh, LetsAKeptEntryFollowTheConfiguration) {
  home_.record("a", R"({"tags": ["own"]})");
  configure({home_.source("recordings", R"(, "visibility": "shared")")});
  home_.refresh();
  home_.record("a", kBroken);
  configure({home_.source("recordings", R"(, "visibility": "work")")},
            R"(, "tag_overrides": {"rec-a": ["private"]})");
  home_.refresh();
  EXPECT_EQ(home_.entry("rec-a").visibility, "work");
  EXPECT_THAT(home_.entry("rec-a").tags, ElementsAre("private"));
}

// It is read last, and goes when the first was read.
TEST_F(Refresh, MeetingThatVanishesBetweenBeingListedAndReadIsGone) {
  const auto name = [](int i) { return "m" + std::to_string(100 + i); };
  constexpr int kMeetings = 40;
  for (int i = 0; i < kMeetings; ++i) home_.record(name(i));
  home_.refresh();
  for (int i = 0; i < kMeetings; ++i) {
    TestHome::touch(home_.record(name(i), R"({"title": "changed"})"));
  }
  std::once_flag first;
  const auto result = home_.index.refresh(false, nullptr, [&](const std::string& text) {
    if (text.starts_with("reading")) {
      std::call_once(first, [&] { home_.remove("recordings/" + name(0)); });
    }
  });
  EXPECT_EQ(index_.find("rec-" + name(0)), nullptr);
  EXPECT_EQ(index_.entries().size(), std::size_t{kMeetings - 1});
  EXPECT_THAT(result.errors, IsEmpty());
  EXPECT_EQ(result.removed, 1u);
}

TEST_F(Refresh, KeepsTheLastEntryWhenItsSourceTakesAnotherPlace) {
  home_.record("a", R"({"title": "good"})");
  home_.folder.write("other/b/notes.json", "{}");
  configure({home_.source("recordings", R"(, "visibility": "shared")")});
  home_.refresh();
  home_.record("a", kBroken);
  configure({home_.source("other"), home_.source("recordings", R"(, "visibility": "work")")});
  const auto result = home_.refresh();
  EXPECT_EQ(home_.entry("rec-a").meeting->title, "good");
  EXPECT_EQ(home_.entry("rec-a").key, keyOf("recordings/a", 1));
  EXPECT_EQ(home_.entry("rec-a").visibility, "work");
  EXPECT_EQ(result.removed, 0u);
}

TEST_F(Refresh, DropsAKeptEntryWhenItsFileGoes) {
  home_.record("a");
  home_.refresh();
  TestHome::touch(home_.record("a", kBroken));
  home_.refresh();
  home_.remove("recordings/a");
  EXPECT_EQ(home_.refresh().removed, 1u);
  EXPECT_THAT(idsOf(index_), IsEmpty());
}

TEST_F(Refresh, ReadsLegacyRecordsBesideRecordings) {
  home_.record("a");
  home_.folder.write("old/records/r/meeting.json", R"({"id": "r", "title": "Old"})");
  home_.folder.write("old/records/r/transcript.md", "@Amy  0:05\nhello\n");
  configure({home_.source("recordings"), R"({"type": "legacy", "visibility": "work", "path": ")" +
                                             home_.folder.file("old") + R"("})"});
  const auto result = home_.refresh();
  EXPECT_THAT(result.perSource, ElementsAre(Pair("recordings", 1u), Pair("legacy", 1u)));
  EXPECT_EQ(result.lines, 1u);
  EXPECT_EQ(home_.entry("legacy-r").visibility, "work");
}

}  // namespace
}  // namespace velta
