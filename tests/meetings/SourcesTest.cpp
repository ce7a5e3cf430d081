#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "meetings/Sources.h"
#include "platform/Files.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class SourcesListing : public testing::Test {
 protected:
  SourcesListing() : sources_(folder_.path()) {}

  std::vector<Sources::FileSet> recordings(const std::string& pattern = "/r/*/notes.json") {
    return sources_.listSource({{"type", "recordings"}, {"glob", folder_.path() + pattern}});
  }

  std::vector<Sources::FileSet> legacy() {
    return sources_.listSource({{"type", "legacy"}, {"path", folder_.path()}});
  }

  // The names of a file set's files.
  static std::vector<std::string> names(const Sources::FileSet& set) {
    std::vector<std::string> result;
    for (const auto& path : set.files) result.push_back(std::string(lastComponent(path)));
    return result;
  }

  std::string faultOf(const JSONObject& source) {
    try {
      sources_.listSource(source);
    } catch (const Sources::ReadError& error) {
      return error.what();
    }
    return "no error";
  }

  // Sets the modification time of a file some seconds off the present one.
  void touch(const std::string& name, int seconds) {
    const auto path = folder_.file(name);
    std::filesystem::last_write_time(
        path, std::filesystem::last_write_time(path) + std::chrono::seconds(seconds));
  }

  double modified(const std::string& name) { return fileStatus(folder_.file(name))->modified; }

  TemporaryFolder folder_;
  Sources sources_;
};

TEST_F(SourcesListing, ASourceOfUnknownTypeIsAnError) {
  EXPECT_EQ(faultOf({}), "unknown source type ''; use recordings, imported or legacy");
  EXPECT_EQ(faultOf({{"type", 5}}), "unknown source type ''; use recordings, imported or legacy");
  EXPECT_EQ(faultOf({{"type", "web"}}),
            "unknown source type 'web'; use recordings, imported or legacy");
}

TEST_F(SourcesListing, ASourceWithoutItsPlaceIsAnError) {
  EXPECT_EQ(faultOf({{"type", "recordings"}}), "source recordings has no glob");
  EXPECT_EQ(faultOf({{"type", "imported"}, {"glob", 5}}), "source imported has no glob");
  EXPECT_EQ(faultOf({{"type", "legacy"}, {"glob", "x"}}), "source legacy has no path");
}

TEST_F(SourcesListing, APatternWithoutMatchesYieldsNothing) {
  EXPECT_THAT(recordings("/nowhere/*/notes.json"), IsEmpty());
  EXPECT_THAT(recordings("/[/notes.json"), IsEmpty());
  EXPECT_THAT(legacy(), IsEmpty());
  EXPECT_THAT(sources_.listSource({{"type", "recordings"}, {"glob", ""}}), IsEmpty());
}

TEST_F(SourcesListing, RecordingsComeInOrderWithTheirSessions) {
  folder_.write("r/b/notes.json", "{}");
  folder_.write("r/a/notes.json", "{}");
  folder_.write("r/a/session.json", "{}");
  folder_.write("r/c/other.json", "{}");
  const auto sets = recordings();
  ASSERT_EQ(sets.size(), 2U);
  EXPECT_EQ(sets[0].keyPath, folder_.file("r/a/notes.json"));
  EXPECT_THAT(sets[0].files,
              ElementsAre(folder_.file("r/a/notes.json"), folder_.file("r/a/session.json")));
  EXPECT_THAT(sets[1].files, ElementsAre(folder_.file("r/b/notes.json")));
}

TEST_F(SourcesListing, AFolderNamedSessionJsonIsNoSession) {
  folder_.write("r/a/notes.json", "{}");
  folder_.makeFolder("r/a/session.json");
  EXPECT_THAT(names(recordings().at(0)), ElementsAre("notes.json"));
}

TEST_F(SourcesListing, ModifiedIsTheLatestOfTheFiles) {
  folder_.write("r/a/notes.json", "{}");
  folder_.write("r/a/session.json", "{}");
  touch("r/a/session.json", 100);
  EXPECT_EQ(recordings().at(0).modified, modified("r/a/session.json"));
  touch("r/a/notes.json", 200);
  EXPECT_EQ(recordings().at(0).modified, modified("r/a/notes.json"));
}

TEST_F(SourcesListing, UploadIsNoFileOfTheSetButItsTimeIsKnown) {
  folder_.write("r/a/notes.json", "{}");
  EXPECT_EQ(recordings().at(0).uploadModified, std::nullopt);
  folder_.write("r/a/upload.json", "{}");
  touch("r/a/upload.json", 500);
  const auto set = recordings().at(0);
  EXPECT_EQ(set.uploadModified, modified("r/a/upload.json"));
  EXPECT_EQ(set.modified, modified("r/a/notes.json"));
  EXPECT_THAT(names(set), ElementsAre("notes.json"));
}

TEST_F(SourcesListing, ListingDoesNotReadRecordings) {
  folder_.write("r/a/notes.json", "this is no JSON");
  EXPECT_EQ(recordings().size(), 1U);
}

TEST_F(SourcesListing, ADanglingLinkIsListedSoThatReadingReportsIt) {
  folder_.makeFolder("r/a");
  std::filesystem::create_symlink("nowhere", folder_.file("r/a/notes.json"));
  const auto sets = recordings();
  ASSERT_EQ(sets.size(), 1U);
  EXPECT_EQ(sets[0].modified, 0);
  EXPECT_THROW(Sources::readMeeting({{"type", "recordings"}}, sets[0], systemNow()),
               Sources::ReadError);
}

TEST_F(SourcesListing, ReadingAnUnknownTypeIsAnError) {
  EXPECT_THROW(Sources::readMeeting({{"type", "x"}}, {"k", {"f"}, 0, {}}, systemNow()),
               Sources::ReadError);
}

TEST_F(SourcesListing, LegacyRecordsHaveUpToThreeFiles) {
  folder_.write("records/a/meeting.json", R"({"digestFile":"note.md"})");
  folder_.write("records/a/transcript.md", "");
  folder_.write("records/a/note.md", "");
  folder_.write("records/b/meeting.json", R"({"id":"b"})");
  folder_.write("records/b/b-digest.md", "");
  const auto sets = legacy();
  ASSERT_EQ(sets.size(), 2U);
  EXPECT_EQ(sets[0].keyPath, folder_.file("records/a/meeting.json"));
  EXPECT_THAT(names(sets[0]), ElementsAre("meeting.json", "transcript.md", "note.md"));
  EXPECT_THAT(names(sets[1]), ElementsAre("meeting.json", "b-digest.md"));
  EXPECT_EQ(sets[0].uploadModified, std::nullopt);
}

TEST_F(SourcesListing, ADigestFileThatIsNotThereIsNotReplacedByAnother) {
  folder_.write("records/a/meeting.json", R"({"digestFile":"gone.md","id":"a"})");
  folder_.write("records/a/transcript.md", "");
  folder_.write("records/a/a-digest.md", "");
  EXPECT_THAT(names(legacy().at(0)), ElementsAre("meeting.json", "transcript.md"));
}

TEST_F(SourcesListing, ADigestFileOutsideTheFolderIsIgnored) {
  folder_.write("records/secret.md", "");
  folder_.write("records/a/meeting.json", R"({"digestFile":"../secret.md","id":"../../x"})");
  EXPECT_THAT(names(legacy().at(0)), ElementsAre("meeting.json"));
}

TEST_F(SourcesListing, ARecordThatDoesNotParseListsWhatExists) {
  folder_.write("records/a/meeting.json", "{");
  folder_.write("records/a/transcript.md", "");
  folder_.write("records/a/a-digest.md", "");
  EXPECT_THAT(names(legacy().at(0)), ElementsAre("meeting.json", "transcript.md"));
}

TEST_F(SourcesListing, TheDigestNameIsReadAgainOnlyWhenTheRecordChanged) {
  folder_.write("records/a/meeting.json", R"({"digestFile":"one.md"})");
  folder_.write("records/a/one.md", "");
  folder_.write("records/a/two.md", "");
  EXPECT_THAT(names(legacy().at(0)), ElementsAre("meeting.json", "one.md"));
  const auto path = folder_.file("records/a/meeting.json");
  const auto time = std::filesystem::last_write_time(path);
  folder_.write("records/a/meeting.json", R"({"digestFile":"two.md"})");
  std::filesystem::last_write_time(path, time);
  EXPECT_THAT(names(legacy().at(0)), ElementsAre("meeting.json", "one.md"));  // not read
  touch("records/a/meeting.json", 1);
  EXPECT_THAT(names(legacy().at(0)), ElementsAre("meeting.json", "two.md"));
}

TEST_F(SourcesListing, AFolderThatCannotBeListedIsAWarningThatNamesThePattern) {
  folder_.write("r/a/notes.json", "{}");
  std::filesystem::create_symlink("loop", folder_.file("loop"));  // what opens it goes in circles
  EXPECT_THAT(recordings("/loop/*/notes.json"), IsEmpty());
  EXPECT_THAT(sources_.takeWarnings(),
              ElementsAre(AllOf(HasSubstr("the source " + folder_.path() + "/loop/*/notes.json "),
                                HasSubstr(". Next step: "))));
  EXPECT_THAT(sources_.takeWarnings(), IsEmpty());
}

TEST_F(SourcesListing, AFolderThatIsNotThereIsNoWarning) {
  folder_.write("file", "");
  for (const char* pattern : {"/gone/*/notes.json", "/file/*/notes.json"})
    EXPECT_THAT(recordings(pattern), IsEmpty());
  EXPECT_THAT(legacy(), IsEmpty());
  EXPECT_THAT(sources_.takeWarnings(), IsEmpty());
}

TEST_F(SourcesListing, LegacyRecordsThatCannotBeListedAreAWarning) {
  std::filesystem::create_symlink("records", folder_.file("records"));
  EXPECT_THAT(legacy(), IsEmpty());
  EXPECT_THAT(sources_.takeWarnings(),
              ElementsAre(HasSubstr("the source " + folder_.path() + " ")));
}

TEST_F(SourcesListing, ATildeStandsForTheUsersHome) {
  folder_.write("r/a/notes.json", "{}");
  folder_.write("notes/records/a/meeting.json", "{}");
  EXPECT_THAT(sources_.globFiles("~/r/*/notes.json"), ElementsAre(folder_.file("r/a/notes.json")));
  EXPECT_EQ(sources_.listSource({{"type", "legacy"}, {"path", "~/notes"}}).size(), 1U);
  EXPECT_EQ(sources_.listSource({{"type", "legacy"}, {"path", "~/notes/"}}).size(), 1U);
}

TEST_F(SourcesListing, PathsAreTakenLiterallyAndOnlyPatternsAsPatterns) {
  folder_.write("x [1]*/records/a/meeting.json", "{}");
  folder_.write("x [1]*/r/a/notes.json", "{}");
  const std::string home = folder_.file("x [1]*");
  Sources sources(home);
  EXPECT_EQ(sources.listSource({{"type", "legacy"}, {"path", home}}).size(), 1U);
  EXPECT_EQ(sources.globFiles("~/r/*/notes.json").size(), 1U);
}

TEST_F(SourcesListing, GlobbedPathsAreInByteOrder) {
  for (const char* name : {"B", "a", "é", "A", "會"}) folder_.write(name, "");
  std::vector<std::string> found;
  for (const auto& path : sources_.globFiles("~/*"))
    found.push_back(std::string(lastComponent(path)));
  EXPECT_THAT(found, ElementsAre("A", "B", "a", "é", "會"));
}

TEST_F(SourcesListing, NamesWithSpecialCharactersAreFound) {
  folder_.write("r/[x] * 會議?/notes.json", "{}");
  folder_.write("r/[x] * 會議?/session.json", "{}");
  ASSERT_EQ(recordings().size(), 1U);
  EXPECT_THAT(names(recordings()[0]), ElementsAre("notes.json", "session.json"));
}

}  // namespace
}  // namespace velta
