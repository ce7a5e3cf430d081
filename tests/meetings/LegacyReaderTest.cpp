#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSONWriter.h"
#include "meetings/LegacyReader.h"
#include "meetings/Sources.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A notes tree with one record, "2024-05-06 Sync".
class LegacyReader : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& content) {
    folder_.write("records/2024-05-06 Sync/" + name, content);
  }

  Meeting read() {
    Sources sources(folder_.path());
    const JSONObject source{{"type", "legacy"}, {"path", folder_.path()}};
    return Sources::readMeeting(source, sources.listSource(source).at(0), systemNow());
  }

  Meeting readRecord(const std::string& record) {
    write("meeting.json", record);
    return read();
  }

  Meeting readTranscript(const std::string& markdown) {
    write("transcript.md", markdown);
    return readRecord("{}");
  }

  // The items of a digest note as "id section: text @t".
  std::vector<std::string> digestOf(const std::string& markdown,
                                    const std::string& record = R"({"id":"a"})") {
    write("a-digest.md", markdown);
    std::vector<std::string> items;
    for (const auto& item : readRecord(record).digestItems()) {
      std::string text = item.id + " " + item.section + ": " + item.text;
      if (item.t) text += " @" + std::to_string(static_cast<int>(*item.t));
      items.push_back(text);
    }
    return items;
  }

  TemporaryFolder folder_;
};

TEST_F(LegacyReader, AnEmptyRecordIsNamedByItsFolder) {
  const Meeting meeting = readRecord("{}");
  EXPECT_EQ(meeting.id, "legacy-2024-05-06-sync");
  EXPECT_EQ(meeting.source, "legacy");
  EXPECT_EQ(meeting.title, "2024-05-06 Sync");
  EXPECT_EQ(meeting.date, "2024-05-06");
  EXPECT_EQ(meeting.startedAt, std::nullopt);
  EXPECT_EQ(meeting.durationSec, std::nullopt);
  EXPECT_EQ(meeting.visibilityHint, std::nullopt);
  EXPECT_EQ(meeting.cloudId, std::nullopt);
  EXPECT_EQ(meeting.status, std::nullopt);
  EXPECT_TRUE(meeting.notes.empty());
}

TEST_F(LegacyReader, ThePrefixOfTheIdIsNotDoubled) {
  EXPECT_EQ(readRecord(R"({"id":"M 1"})").id, "legacy-M 1");
  EXPECT_EQ(readRecord(R"({"id":"legacy-7"})").id, "legacy-7");
  EXPECT_EQ(readRecord(R"({"id":""})").id, "legacy-2024-05-06-sync");
  EXPECT_EQ(readRecord(R"({"id":7})").id, "legacy-2024-05-06-sync");
}

TEST_F(LegacyReader, TheDateIsKeptAsWritten) {
  EXPECT_EQ(readRecord(R"({"date":"May 6"})").date, "May 6");
}

TEST_F(LegacyReader, AMissingDateIsDerivedFromIdFolderAndTitle) {
  EXPECT_EQ(readRecord(R"({"id":"2023-01-02-x"})").date, "2023-01-02");
  EXPECT_EQ(readRecord(R"({"id":"x","title":"of 2022-01-01"})").date, "2024-05-06");
}

TEST_F(LegacyReader, ReadsTheFieldsOfTheRecord) {
  const Meeting meeting = readRecord(
      R"({"title":"週會","durationSec":90,"status":"draft","tags":["a",1,"b"],"verdict":"go",
          "people":[{"name":"Amy","labels":["S1"],"role":"PM","talk_sec":5},"x"],"visibility":"shared"})");
  EXPECT_EQ(meeting.title, "週會");
  EXPECT_EQ(meeting.durationSec, 90.0);
  EXPECT_EQ(meeting.status, "draft");
  EXPECT_THAT(meeting.tags, ElementsAre("a", "b"));
  EXPECT_EQ(meeting.verdict, "go");
  ASSERT_EQ(meeting.people.unpack().size(), 1U);
  EXPECT_EQ(writeCompact(meeting.people.unpack()[0]),
            R"({"name":"Amy","labels":["S1"],"role":"PM","talk_sec":5})");
  EXPECT_EQ(meeting.visibilityHint, std::nullopt);
}

TEST_F(LegacyReader, NotesHaveTheNewerKeysAndForms) {
  const Meeting meeting = readRecord(
      R"({"ideas":["i"],"topics":[{"topic":"t"}],"viewpoints":[{"speaker":"Amy","points":["p"]}],
          "segments":[{"oneLine":"c"}],"openQuestions":["q"],
          "decisions":[{"text":"d","who":"Bo"},{"text":"e","who":"Bo","owner":"Cy"},"f"],
          "verdict":"v","else":1})");
  EXPECT_EQ(writeCompact(meeting.notes.unpack()),
            R"({"verdict":"v","decisions":[{"text":"d","who":"Bo","owner":"Bo"},)"
            R"({"text":"e","who":"Bo","owner":"Cy"},{"text":"f"}],)"
            R"("open_questions":[{"text":"q"}],"chapters":[{"oneLine":"c"}],)"
            R"("viewpoints":[{"speaker":"Amy","points":["p"]}],"topics":[{"topic":"t"}],)"
            R"("ideas":[{"text":"i"}]})");
}

TEST_F(LegacyReader, ChaptersComeBeforeSegments) {
  EXPECT_EQ(writeCompact(readRecord(R"({"segments":["s"],"chapters":["c"]})").notes.unpack()),
            R"({"chapters":[{"text":"c"}]})");
}

TEST_F(LegacyReader, ADigestObjectSuppliesWhatTheRecordLacks) {
  const Meeting meeting = readRecord(
      R"({"verdict":"own","decisions":null,"digest":{"verdict":"no","decisions":["d"],
          "durationSec":5,"people":[{"name":"Amy"}],"status":"x","openQuestions":["q"]}})");
  EXPECT_EQ(meeting.verdict, "own");
  EXPECT_EQ(meeting.durationSec, 5.0);
  EXPECT_EQ(meeting.people.unpack().size(), 1U);
  EXPECT_EQ(meeting.status, "x");
  EXPECT_EQ(writeCompact(meeting.notes.unpack()),
            R"({"verdict":"own","decisions":[{"text":"d"}],"open_questions":[{"text":"q"}]})");
}

TEST_F(LegacyReader, TranscriptRowsBecomeLines) {
  const Meeting meeting = readTranscript(
      "# Transcript\nnobody's\n@Amy  0:05\n  hello \n\n世界\n@Bo Lee   1:02:03\nyes\n");
  ASSERT_EQ(meeting.lines.size(), 2U);
  EXPECT_EQ(meeting.lines.id(0), "L1");
  EXPECT_EQ(meeting.lines.speaker(0), "Amy");
  EXPECT_EQ(meeting.lines.tStart(0), 5.0);
  EXPECT_EQ(meeting.lines.tEnd(0), std::nullopt);
  EXPECT_EQ(meeting.lines.text(0), "hello\n世界");
  EXPECT_EQ(meeting.lines.id(1), "L2");
  EXPECT_EQ(meeting.lines.speaker(1), "Bo Lee");
  EXPECT_EQ(meeting.lines.tStart(1), 3723.0);
  EXPECT_EQ(meeting.lines.text(1), "yes");
}

TEST_F(LegacyReader, OneCarriageReturnAtTheEndOfALineIsDropped) {
  const auto rows = Sources::parseTranscript("@Amy  0:05\r\nhello\r\r\nx");
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_THAT(rows[0].text, ElementsAre("hello\r", "x"));
  EXPECT_EQ(readTranscript("@Amy  0:05\r\nhello\r\r\nx").lines.text(0), "hello\nx");
}

TEST_F(LegacyReader, ASpeakerWithoutTextIsALineWithoutText) {
  const Meeting meeting = readTranscript("@Amy  0:05\n@Bo  0:06");
  ASSERT_EQ(meeting.lines.size(), 2U);
  EXPECT_EQ(meeting.lines.text(0), "");
}

TEST_F(LegacyReader, ALineThatOnlyLooksLikeASpeakerIsText) {
  EXPECT_EQ(readTranscript("@Amy  0:05\n@Bo 0:06\n@Cy  later").lines.text(0),
            "@Bo 0:06\n@Cy  later");
}

TEST_F(LegacyReader, AnEmptyTranscriptHasNoLines) {
  EXPECT_TRUE(readTranscript("").lines.empty());
  EXPECT_TRUE(readTranscript("\n\nno speaker\n").lines.empty());
}

TEST_F(LegacyReader, AByteOrderMarkIsNotPartOfTheText) {
  EXPECT_EQ(readTranscript("\xEF\xBB\xBF@Amy  0:05\nx").lines.size(), 1U);
  EXPECT_EQ(Sources::parseDigest("\xEF\xBB\xBF# a\nx").size(), 1U);
}

TEST_F(LegacyReader, IllFormedBytesBecomeReplacementCharacters) {
  const Meeting meeting = readTranscript("@A\xFF  0:05\nx\xE6\x9C\n");
  ASSERT_EQ(meeting.lines.size(), 1U);
  EXPECT_EQ(meeting.lines.speaker(0), "A\uFFFD");
  EXPECT_EQ(meeting.lines.text(0), "x\uFFFD");
}

TEST_F(LegacyReader, EveryFilledLineUnderAHeadingIsADigestItem) {
  EXPECT_THAT(
      digestOf("above\n# 決議\n\n - ship at 12:30, not 12:45 \n#tag\n### Open  \n題 1:02:03\n"),
      ElementsAre("D1 決議: - ship at 12:30, not 12:45 @750", "D2 決議: #tag",
                  "D3 Open: 題 1:02:03 @3723"));
}

TEST_F(LegacyReader, DigestNoteItemsFollowThoseOfTheRecord) {
  EXPECT_THAT(digestOf("# h\nline", R"({"id":"a","openQuestions":["q"],"decisions":["d"]})"),
              ElementsAre("D1 decisions: d", "D2 open_questions: q", "D3 h: line"));
}

TEST_F(LegacyReader, ADigestNoteWithoutHeadingsGivesNothing) {
  EXPECT_THAT(digestOf("line\nline\n"), IsEmpty());
  EXPECT_THAT(digestOf(""), IsEmpty());
}

TEST_F(LegacyReader, ARecordWithoutTranscriptHasItsDigest) {
  write("a-digest.md", "# h\nx");
  const Meeting meeting = readRecord(R"({"id":"a","decisions":["d"]})");
  EXPECT_TRUE(meeting.lines.empty());
  EXPECT_EQ(meeting.digestItems().size(), 2U);
}

TEST_F(LegacyReader, FilesAreAllThatWereListed) {
  write("transcript.md", "");
  write("a-digest.md", "");
  const std::string root = folder_.file("records/2024-05-06 Sync/");
  EXPECT_THAT(readRecord(R"({"id":"a"})").files,
              ElementsAre(root + "meeting.json", root + "transcript.md", root + "a-digest.md"));
}

TEST_F(LegacyReader, ARecordThatIsNoObjectIsAnErrorThatNamesIt) {
  const std::string path = folder_.file("records/2024-05-06 Sync/meeting.json");
  const auto faultOf = [this](const std::string& record) -> std::string {
    try {
      readRecord(record);
    } catch (const Sources::ReadError& error) {
      return error.what();
    }
    return "no error";
  };
  EXPECT_EQ(faultOf("[]"), path + " is not a JSON object");
  EXPECT_THAT(faultOf("{"), HasSubstr(path + " is not a JSON object ("));
  EXPECT_THAT(faultOf(""), HasSubstr(path + " is not a JSON object ("));
}

TEST_F(LegacyReader, WrongKindsEverywhereAreSurvived) {
  for (const char* wrong : {"null", "5", "true", "\"x\"", "[1,[2],null]", "{\"a\":[]}"}) {
    std::string record = "{";
    for (const char* key : {"id", "title", "date", "verdict", "status", "durationSec", "people",
                            "decisions", "openQuestions", "chapters", "viewpoints", "topics",
                            "ideas", "segments", "digest", "digestFile"}) {
      record += "\"" + std::string(key) + "\":" + wrong + ",";
    }
    const Meeting meeting = readRecord(record + "\"tags\":" + wrong + "}");
    EXPECT_TRUE(meeting.id.starts_with("legacy-")) << wrong;
    EXPECT_TRUE(meeting.people.empty()) << wrong;
    EXPECT_TRUE(meeting.tags.empty()) << wrong;
    EXPECT_TRUE(meeting.digestItems().empty()) << wrong;
  }
}

TEST_F(LegacyReader, NestingHasNoLimit) {
  const std::size_t depth = 200000;
  const std::string nested = std::string(depth, '[') + std::string(depth, ']');
  EXPECT_TRUE(readRecord("{\"decisions\":[{\"text\":" + nested + "}]}").digestItems().empty());
}

TEST(LegacyDigestName, IsTheNamedFileElseMadeOfTheId) {
  EXPECT_EQ(legacyDigestName({{"digestFile", "摘要.md"}, {"id", "a"}}), "摘要.md");
  EXPECT_EQ(legacyDigestName({{"digestFile", 5}, {"id", "a"}}), "a-digest.md");
  EXPECT_EQ(legacyDigestName({{"id", "a"}}), "a-digest.md");
  EXPECT_EQ(legacyDigestName({{"id", 5}}), std::nullopt);
  EXPECT_EQ(legacyDigestName({}), std::nullopt);
}

TEST(LegacyDigestName, NeverLeavesTheFolder) {
  for (const std::string name : {"../x.md", "/etc/passwd", "a/b.md", "..", "a..md", "", "."}) {
    EXPECT_EQ(legacyDigestName({{"digestFile", name}, {"id", "a"}}), "a-digest.md") << name;
  }
  EXPECT_EQ(legacyDigestName({{"digestFile", std::string("a\0b", 3)}}), std::nullopt);
  EXPECT_EQ(legacyDigestName({{"id", "../a"}}), std::nullopt);
  EXPECT_EQ(legacyDigestName({{"id", "a/b"}}), std::nullopt);
}

TEST(LegacyTranscript, ALongLineOfBlanksIsOnlyText) {
  const auto rows = Sources::parseTranscript("@Amy  0:05\n@" + std::string(20000, ' ') + "x");
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].text.size(), 1U);
}

}  // namespace
}  // namespace velta
