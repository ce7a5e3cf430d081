#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSONWriter.h"
#include "meetings/RecordingReader.h"
#include "meetings/Sources.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kUUID = "0190F3C2-7b1a-4c8d-9e2f-ABCDEFabcdef";

// A recording folder with the files that a test writes.
class RecordingReader : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& content) {
    folder_.write("2025-03-14 Weekly/" + name, content);
  }

  Meeting read(const std::string& kind = "recordings") {
    Sources sources(folder_.path());
    const auto sets =
        sources.listSource({{"type", kind}, {"glob", folder_.path() + "/2025*/notes.json"}});
    EXPECT_EQ(sets.size(), 1U);
    return Sources::readMeeting({{"type", kind}}, sets.at(0), systemNow());
  }

  Meeting readNotes(const std::string& notes) {
    write("notes.json", notes);
    return read();
  }

  std::string faultOf(const std::string& notes) {
    try {
      readNotes(notes);
    } catch (const Sources::ReadError& error) {
      return error.what();
    }
    return "no error";
  }

  TemporaryFolder folder_;
};

TEST_F(RecordingReader, AnEmptyObjectIsAMeetingNamedByItsFolder) {
  const Meeting meeting = readNotes("{}");
  EXPECT_EQ(meeting.id, "rec-2025-03-14-weekly");
  EXPECT_EQ(meeting.source, "recordings");
  EXPECT_EQ(meeting.title, "2025-03-14 Weekly");
  EXPECT_EQ(meeting.date, "2025-03-14");
  EXPECT_EQ(meeting.startedAt, std::nullopt);
  EXPECT_EQ(meeting.durationSec, std::nullopt);
  EXPECT_EQ(meeting.verdict, "");
  EXPECT_TRUE(meeting.notes.empty());
  EXPECT_TRUE(meeting.lines.empty());
  EXPECT_EQ(meeting.visibilityHint, std::nullopt);
  EXPECT_EQ(meeting.cloudId, std::nullopt);
  EXPECT_EQ(meeting.status, std::nullopt);
  EXPECT_THAT(meeting.files, ElementsAre(folder_.file("2025-03-14 Weekly/notes.json")));
}

TEST_F(RecordingReader, ImportedNotesHaveTheirOwnPrefix) {
  write("notes.json", "{}");
  const Meeting meeting = read("imported");
  EXPECT_EQ(meeting.id, "imp-2025-03-14-weekly");
  EXPECT_EQ(meeting.source, "imported");
}

TEST_F(RecordingReader, TheMeetingsFolderLiesAboveAppNotes) {
  EXPECT_EQ(recordingFolder("/r/a/notes.json"), "/r/a");
  EXPECT_EQ(recordingFolder("/r/a/app-notes/notes.json"), "/r/a");
  EXPECT_EQ(recordingFolder("/r/app-notes-2/notes.json"), "/r/app-notes-2");
  folder_.write("3-1-x 會議/app-notes/main.json", "{}");
  folder_.write("3-1-x 會議/upload.json", R"({"state":"uploading"})");
  Sources sources(folder_.path());
  const auto sets =
      sources.listSource({{"type", "imported"}, {"glob", folder_.path() + "/*/app-notes/*.json"}});
  ASSERT_EQ(sets.size(), 1U);
  EXPECT_TRUE(sets[0].uploadModified);
  const Meeting meeting = Sources::readMeeting({{"type", "imported"}}, sets[0], systemNow());
  EXPECT_EQ(meeting.id, "imp-3-1-x-會議");
  EXPECT_EQ(meeting.title, "3-1-x 會議");
  EXPECT_EQ(meeting.status, "uploading");
}

TEST_F(RecordingReader, NotesAreTheFileWithoutWhatHasAFieldOfItsOwnAndWithoutActionItems) {
  const Meeting meeting = readNotes(
      R"({"title":"t","summary":"s","lines":[],"speakers":[],"started_at":"x","duration_sec":1,
          "visibility":"work","tags":[],"verdict":"v","app-notes":null,"action_items":["do"],
          "actions":["do"],"decisions":[{"text":"d"}],"custom":5})");
  EXPECT_EQ(writeCompact(meeting.notes.unpack()),
            R"({"summary":"s","verdict":"v","decisions":[{"text":"d"}],"custom":5})");
}

TEST_F(RecordingReader, AppNotesOverlayTheNotes) {
  const Meeting meeting = readNotes(
      R"({"verdict":"old","summary":"s","app-notes":{"verdict":"new","chapters":[{"title":"c"}],
          "actions":["do"],"title":"no","lines":[{"text":"no"}]}})");
  EXPECT_EQ(writeCompact(meeting.notes.unpack()),
            R"({"verdict":"new","summary":"s","chapters":[{"title":"c"}]})");
  EXPECT_EQ(meeting.verdict, "new");
  ASSERT_EQ(meeting.digestItems().size(), 1U);
  EXPECT_EQ(meeting.digestItems()[0].text, "c");
  EXPECT_EQ(meeting.title, "2025-03-14 Weekly");
  EXPECT_TRUE(meeting.lines.empty());
}

TEST_F(RecordingReader, AppNotesOfAnotherKindAreIgnored) {
  EXPECT_EQ(writeCompact(readNotes(R"({"verdict":"v","app-notes":["x"]})").notes.unpack()),
            R"({"verdict":"v"})");
}

TEST_F(RecordingReader, AVerdictThatIsNoStringStaysInTheNotesOnly) {
  const Meeting meeting = readNotes(R"({"verdict":{"text":"x"}})");
  EXPECT_EQ(meeting.verdict, "");
  EXPECT_EQ(writeCompact(meeting.notes.unpack()), R"({"verdict":{"text":"x"}})");
}

TEST_F(RecordingReader, SpeakersAreThePeople) {
  const Meeting meeting =
      readNotes(R"({"speakers":["x",{"name":"Amy","labels":["S1"]},5],"people":[{"name":"Bo"}]})");
  ASSERT_EQ(meeting.people.unpack().size(), 1U);
  EXPECT_EQ(writeCompact(meeting.people.unpack()[0]), R"({"name":"Amy","labels":["S1"]})");
}

TEST_F(RecordingReader, PeopleCountOnlyWithoutAListOfSpeakers) {
  EXPECT_EQ(readNotes(R"({"speakers":"x","people":[{"name":"Bo"}]})").people.unpack().size(), 1U);
  EXPECT_TRUE(readNotes(R"({"speakers":[],"people":[{"name":"Bo"}]})").people.empty());
}

TEST_F(RecordingReader, SessionSettlesTitleAndStart) {
  write("session.json", R"({"title":"From session","started_at":"2025-02-01T10:00:00Z"})");
  const Meeting meeting =
      readNotes(R"({"title":"From notes","started_at":"2024-01-01T00:00:00Z"})");
  EXPECT_EQ(meeting.title, "From session");
  EXPECT_EQ(meeting.startedAt, "2025-02-01T10:00:00Z");
  EXPECT_EQ(meeting.date, "2025-02-01");
  EXPECT_THAT(meeting.files, ElementsAre(folder_.file("2025-03-14 Weekly/notes.json"),
                                         folder_.file("2025-03-14 Weekly/session.json")));
}

TEST_F(RecordingReader, EmptyOrWrongTextsOfTheSessionDoNotCount) {
  write("session.json", R"({"title":"","started_at":5})");
  const Meeting meeting =
      readNotes(R"({"title":"From notes","started_at":"2024-01-01T00:00:00Z"})");
  EXPECT_EQ(meeting.title, "From notes");
  EXPECT_EQ(meeting.startedAt, "2024-01-01T00:00:00Z");
}

TEST_F(RecordingReader, ASessionAloneDecidesTheVisibilityHint) {
  EXPECT_EQ(readNotes(R"({"visibility":"work"})").visibilityHint, "work");
  write("session.json", R"({"visibility":"shared"})");
  EXPECT_EQ(read().visibilityHint, "shared");
  write("session.json", "{}");
  EXPECT_EQ(read().visibilityHint, std::nullopt);
  write("session.json", R"({"visibility":""})");
  EXPECT_EQ(read().visibilityHint, std::nullopt);
}

TEST_F(RecordingReader, ASessionThatIsNoObjectCountsAsAbsent) {
  for (const char* session : {"[]", "{", "", "\"x\""}) {
    write("session.json", session);
    const Meeting meeting = readNotes(R"({"visibility":"work","title":"t","tags":["a"]})");
    EXPECT_EQ(meeting.visibilityHint, "work");
    EXPECT_EQ(meeting.title, "t");
    EXPECT_THAT(meeting.tags, ElementsAre("a"));
    EXPECT_EQ(meeting.files.size(), 2U);
  }
}

TEST_F(RecordingReader, TagsAreTheSessionsWhenItHasAList) {
  write("session.json", R"({"tags":[]})");
  EXPECT_THAT(readNotes(R"({"tags":["a"]})").tags, IsEmpty());
  write("session.json", R"({"tags":["s",1,"t"]})");
  EXPECT_THAT(read().tags, ElementsAre("s", "t"));
  write("session.json", R"({"tags":"s"})");
  EXPECT_THAT(read().tags, ElementsAre("a"));
}

TEST_F(RecordingReader, DurationIsTheMainFilesNumber) {
  EXPECT_EQ(readNotes(R"({"duration_sec":90})").durationSec, 90.0);
  EXPECT_EQ(readNotes(R"({"duration_sec":90.5})").durationSec, 90.5);
  EXPECT_EQ(readNotes(R"({"duration_sec":"90"})").durationSec, std::nullopt);
}

TEST_F(RecordingReader, ReadsTheTranscript) {
  const Meeting meeting = readNotes(
      R"({"lines":[{"id":"s1","t_start":1.5,"t_end":2,"speaker":"Amy","text":"好"},7,{"text":"x"}]})");
  ASSERT_EQ(meeting.lines.size(), 2U);
  EXPECT_EQ(meeting.lines.id(0), "s1");
  EXPECT_EQ(meeting.lines.id(1), "L2");
  EXPECT_EQ(meeting.lines.text(0), "好");
  EXPECT_FALSE(meeting.notes.unpack().has("lines"));
}

TEST_F(RecordingReader, UploadGivesTheWebIdInLowerCaseAndTheStatus) {
  write("upload.json", R"({"meeting_id":")" + std::string(kUUID) + R"(","state":"uploading"})");
  const Meeting meeting = readNotes("{}");
  EXPECT_EQ(meeting.cloudId, "0190f3c2-7b1a-4c8d-9e2f-abcdefabcdef");
  EXPECT_EQ(meeting.status, "uploading");
}

TEST_F(RecordingReader, AFinishedOrEmptyStateIsNoStatus) {
  for (const char* upload :
       {R"({"state":"done"})", R"({"state":""})", R"({"state":5})", "[]", "{"}) {
    write("upload.json", upload);
    EXPECT_EQ(readNotes("{}").status, std::nullopt) << upload;
  }
}

TEST_F(RecordingReader, AWebIdThatIsNoUUIDIsNone) {
  write("upload.json", R"({"meeting_id":"12"})");
  EXPECT_EQ(readNotes("{}").cloudId, std::nullopt);
}

TEST_F(RecordingReader, AMonthAndDayFolderIsDatedByTheMainFile) {
  folder_.write("3-14-review/notes.json", "{}");
  const auto path = folder_.file("3-14-review/notes.json");
  using namespace std::chrono;
  // 2025-03-10T12:00:00Z in the clock of the file system.
  const auto written = sys_days(year(2025) / 3 / 10) + hours(12);
  std::filesystem::last_write_time(
      path, std::filesystem::file_time_type::clock::now() +
                duration_cast<std::filesystem::file_time_type::duration>(written - systemNow()));
  Sources::FileSet set;
  set.files = {path};
  EXPECT_EQ(Sources::readMeeting({{"type", "recordings"}}, set, systemNow()).date, "2024-03-14");
}

TEST_F(RecordingReader, AMainFileThatIsNoObjectIsAnErrorThatNamesIt) {
  const std::string path = folder_.file("2025-03-14 Weekly/notes.json");
  EXPECT_EQ(faultOf("[]"), path + " is not a JSON object");
  EXPECT_EQ(faultOf("5"), path + " is not a JSON object");
  EXPECT_THAT(faultOf(""), HasSubstr(path + " is not a JSON object ("));
  EXPECT_THAT(faultOf("{\"a\":"), HasSubstr(path + " is not a JSON object ("));
  EXPECT_THAT(faultOf("\xEF\xBB\xBF{}"), HasSubstr(path + " is not a JSON object ("));
}

TEST_F(RecordingReader, AMainFileThatIsGoneIsAnErrorWithTheSystemsWords) {
  Sources::FileSet set;
  set.files = {folder_.file("none/notes.json")};
  try {
    Sources::readMeeting({{"type", "recordings"}}, set, systemNow());
    FAIL();
  } catch (const Sources::ReadError& error) {
    EXPECT_EQ(error.what(), set.files[0] + " is not a JSON object (No such file or directory)");
  }
}

TEST_F(RecordingReader, AFolderNameOfIllFormedBytesBecomesText) {
  const std::string path = folder_.file(
      "a\xFF"
      "b/notes.json");
  folder_.write(
      "a\xFF"
      "b/notes.json",
      "{}");
  Sources::FileSet set;
  set.files = {path};
  const Meeting meeting = Sources::readMeeting({{"type", "recordings"}}, set, systemNow());
  EXPECT_EQ(meeting.title, "a\uFFFDb");
  EXPECT_EQ(meeting.id, "rec-a-b");
  EXPECT_THAT(meeting.files, ElementsAre(folder_.file("a\uFFFDb/notes.json")));
}

TEST_F(RecordingReader, WrongKindsEverywhereLeaveAnEmptyMeeting) {
  for (const char* wrong : {"null", "5", "true", "\"x\"", "[1,[2]]", "{\"a\":{}}"}) {
    std::string notes = "{";
    for (const char* key : {"lines", "speakers", "people", "duration_sec", "decisions",
                            "open_questions", "chapters", "viewpoints", "app-notes", "tags"}) {
      notes += "\"" + std::string(key) + "\":" + wrong + ",";
    }
    const Meeting meeting = readNotes(notes + "\"x\":1}");
    EXPECT_TRUE(meeting.lines.empty()) << wrong;
    EXPECT_TRUE(meeting.people.empty()) << wrong;
    EXPECT_TRUE(meeting.digestItems().empty()) << wrong;
    EXPECT_TRUE(meeting.tags.empty()) << wrong;
  }
}

TEST_F(RecordingReader, IdsAreStableAcrossReads) {
  write("notes.json", R"({"lines":[{"text":"a"},{"id":"L1"},{"id":"L1"}],"decisions":["d"]})");
  const Meeting first = read();
  const Meeting second = read();
  EXPECT_EQ(writeCompact(first.toJSON()), writeCompact(second.toJSON()));
}

}  // namespace
}  // namespace velta
