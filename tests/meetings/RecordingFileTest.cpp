#include <cmath>
#include <cstddef>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "meetings/RecordingFile.h"
#include "meetings/Sources.h"

namespace velta {
namespace {

// The slow way that parseRecordingFile must agree with: the whole value first, then its lines.

std::optional<double> finite(std::optional<double> number) {
  return number && std::isfinite(*number) ? number : std::nullopt;
}

std::vector<Meeting::Line> naiveLines(const JSON& value) {
  std::vector<Meeting::Line> lines;
  const JSONObject* object = value.asObject();
  const JSON::Array* elements = object != nullptr ? object->getArray("lines") : nullptr;
  if (elements == nullptr) return lines;
  for (const JSON& element : *elements) {
    const JSONObject* line = element.asObject();
    if (line == nullptr) continue;
    lines.push_back({std::string(line->getString("id").value_or("")),
                     finite(line->getNumber("t_start")).value_or(0),
                     finite(line->getNumber("t_end")),
                     std::string(line->getString("speaker").value_or("?")),
                     std::string(line->getString("text").value_or(""))});
  }
  return lines;
}

void settleNaively(std::vector<Meeting::Line>& lines) {
  std::set<std::string> taken;
  std::vector<std::pair<Meeting::Line*, std::string>> wanting;
  for (auto& line : lines) {
    if (!line.id.empty() && !taken.insert(line.id).second) wanting.emplace_back(&line, line.id);
  }
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].id.empty()) wanting.emplace_back(&lines[i], "L" + std::to_string(i + 1));
  }
  for (auto& [line, wish] : wanting) {
    line->id = wish;
    for (int n = 2; !taken.insert(line->id).second; ++n) line->id = wish + "-" + std::to_string(n);
  }
}

std::string shown(const Meeting::Line& line) {
  return line.id + "|" + std::to_string(line.tStart) + "|" +
         (line.tEnd ? std::to_string(*line.tEnd) : "none") + "|" + line.speaker + "|" + line.text +
         "\n";
}

std::string naively(const std::string& text) {
  JSON value;
  try {
    value = parseJSON(text);
  } catch (const JSONParseError& error) {
    return error.what();
  }
  std::vector<Meeting::Line> lines = naiveLines(value);
  settleNaively(lines);
  if (JSONObject* object = value.asObject()) object->erase("lines");
  std::string result = writeCompact(value) + "\n";
  for (const auto& line : lines) result += shown(line);
  return result;
}

std::string inOnePass(const std::string& text) {
  try {
    const RecordingFile file = parseRecordingFile(text);
    std::string result = writeCompact(file.rest) + "\n";
    for (std::size_t i = 0; i < file.lines.size(); ++i) result += shown(file.lines.line(i));
    return result;
  } catch (const JSONParseError& error) {
    return error.what();
  }
}

// Writes random JSON texts in which everything that matters to the parser is frequent.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  std::string file() {
    if (below(20) == 0) return value(3);
    std::string text = "{";
    const std::size_t members = below(6);
    for (std::size_t i = 0; i < members; ++i) {
      if (i > 0) text += ",";
      text += below(2) == 0 ? "\"lines\":" + lines() : key() + ":" + value(3);
    }
    return text + "}";
  }

  // `text` with some of its bytes changed, lost or doubled.
  std::string damaged(std::string text) {
    for (std::size_t i = 0, n = 1 + below(3); i < n && !text.empty(); ++i) {
      const std::size_t at = below(text.size());
      switch (below(4)) {
        case 0:
          text.erase(at, 1 + below(3));
          break;
        case 1:
          text.resize(at);
          break;
        case 2:
          text.insert(at, 1, "{}[]\",:\\0"[below(9)]);
          break;
        default:
          text[at] = static_cast<char>(below(256));
          break;
      }
    }
    return text;
  }

 private:
  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
  }

  std::string pick(const std::vector<std::string>& choices) {
    return choices[below(choices.size())];
  }

  std::string key() {
    return pick({R"("lines")", R"("id")", R"("text")", R"("t_start")", R"("t_end")", R"("speaker")",
                 R"("l\u0069nes")", R"("x")", R"("")"});
  }

  std::string scalar() {
    return pick({"null", "true", "false", "0", "7", "-1.5", "1e400", "12.25", R"("")", R"("a")",
                 R"("L1")", R"("L2")", R"("a-2")", R"("Amy")", R"("會議")", R"("\ud83d\ude00")",
                 R"("line\nbreak")", "\"\xFF\""});
  }

  std::string value(int depth) {
    const std::size_t kind = depth == 0 ? 0 : below(4);
    if (kind < 2) return scalar();
    std::string text;
    const std::size_t count = below(4);
    for (std::size_t i = 0; i < count; ++i) {
      if (i > 0) text += ",";
      if (kind == 2) text += key() + ":";
      text += value(depth - 1);
    }
    return kind == 2 ? "{" + text + "}" : "[" + text + "]";
  }

  std::string lines() {
    if (below(5) == 0) return value(3);
    std::string text = "[";
    for (std::size_t i = 0, n = below(6); i < n; ++i) {
      if (i > 0) text += ", ";
      text += below(5) == 0 ? value(2) : line();
    }
    return text + "]";
  }

  std::string line() {
    std::string text = "{";
    for (std::size_t i = 0, n = below(7); i < n; ++i) {
      if (i > 0) text += " ,\n";
      text += key() + ": " + (below(6) == 0 ? value(2) : scalar());
    }
    return text + "}";
  }

  std::mt19937 random_;
};

TEST(RecordingFile, LinesGoToTheTranscriptAndTheRestStays) {
  const RecordingFile file = parseRecordingFile(
      R"({"title":"t","lines":[{"id":"a","t_start":1,"t_end":2.5,"speaker":"Amy","text":"好"}],"x":[1]})");
  EXPECT_EQ(writeCompact(file.rest), R"({"title":"t","x":[1]})");
  ASSERT_EQ(file.lines.size(), 1U);
  EXPECT_EQ(shown(file.lines.line(0)), "a|1.000000|2.500000|Amy|好\n");
}

TEST(RecordingFile, ALineHasDefaults) {
  EXPECT_EQ(
      inOnePass(R"({"lines":[{},{"speaker":"","t_start":"1","t_end":null,"text":5,"id":6}]})"),
      "{}\nL1|0.000000|none|?|\nL2|0.000000|none||\n");
}

TEST(RecordingFile, NumberingCountsTheKeptLinesOnly) {
  EXPECT_EQ(inOnePass(R"({"lines":[1,{"text":"a"},[{"text":"no"}],"x",null,{"text":"b"}]})"),
            "{}\nL1|0.000000|none|?|a\nL2|0.000000|none|?|b\n");
}

TEST(RecordingFile, TheLastLinesOfARepeatedKeyAreTheLines) {
  EXPECT_EQ(inOnePass(R"({"lines":[{"text":"old"}],"lines":[{"text":"new"}]})"),
            "{}\nL1|0.000000|none|?|new\n");
  for (const char* last : {"5", "null", "\"x\"", "{}", R"({"a":{"text":"no"}})", "[]"}) {
    EXPECT_EQ(inOnePass(R"({"lines":[{"text":"old"}],"lines":)" + std::string(last) + "}"), "{}\n");
  }
}

TEST(RecordingFile, TheLastValueOfARepeatedMemberOfALineWinsWhateverItsKind) {
  EXPECT_EQ(inOnePass(R"({"lines":[{"text":"a","text":"b","id":"x","id":{},"speaker":"Amy",
                         "speaker":[],"t_start":4,"t_start":"5","t_end":6,"t_end":true}]})"),
            "{}\nL1|0.000000|none|?|b\n");
}

TEST(RecordingFile, ValuesNestedInALineAreIgnored) {
  EXPECT_EQ(inOnePass(R"({"lines":[{"words":[{"text":"no","id":"no"}],"text":"yes",
                         "x":{"text":"no","t_end":5,"y":{"speaker":"no"}}}]})"),
            "{}\nL1|0.000000|none|?|yes\n");
}

TEST(RecordingFile, LinesElsewhereBelongToTheRest) {
  EXPECT_EQ(inOnePass(R"({"a":{"lines":[{"text":"x"}]}})"),
            "{\"a\":{\"lines\":[{\"text\":\"x\"}]}}\n");
  EXPECT_EQ(inOnePass(R"([{"lines":[{"text":"x"}]}])"), "[{\"lines\":[{\"text\":\"x\"}]}]\n");
}

TEST(RecordingFile, AFileThatIsNoObjectIsItsOwnRest) {
  for (const char* text : {"null", "5", "\"lines\"", "[]", "[1,{}]"}) {
    EXPECT_EQ(inOnePass(text), std::string(text) + "\n");
  }
}

TEST(RecordingFile, AFaultIsTheParsersOwn) {
  for (const char* text :
       {"", "{", R"({"lines":[{"id":)", R"({"lines":[}]})", R"({"lines"})", "{}x"}) {
    EXPECT_THROW(parseRecordingFile(text), JSONParseError) << text;
    EXPECT_EQ(inOnePass(text), naively(text)) << text;
  }
}

TEST(RecordingFile, NestingHasNoLimit) {
  const std::size_t depth = 1000000;
  const std::string nested = std::string(depth, '[') + std::string(depth, ']');
  EXPECT_EQ(inOnePass("{\"lines\":[{\"text\":\"a\",\"x\":" + nested + "}]}"),
            "{}\nL1|0.000000|none|?|a\n");
  EXPECT_EQ(inOnePass("{\"lines\":" + nested + "}"), "{}\n");
}

TEST(RecordingFile, IllFormedBytesOfALineAreReplaced) {
  const RecordingFile file = parseRecordingFile("{\"lines\":[{\"text\":\"a\xFF\xE6\x9C\"}]}");
  EXPECT_EQ(file.lines.text(0), "a\uFFFD\uFFFD");
}

TEST(RecordingFile, AgreesWithTheWholeValueOnRandomFiles) {
  Generator generator(20250314);
  std::size_t withLines = 0;
  for (int i = 0; i < 4000; ++i) {
    const std::string text = generator.file();
    ASSERT_EQ(inOnePass(text), naively(text)) << text;
    withLines += parseRecordingFile(text).lines.empty() ? 0 : 1;
  }
  EXPECT_GT(withLines, 500U);  // or the comparison would say little
}

TEST(RecordingFile, AgreesWithTheWholeValueOnDamagedFiles) {
  Generator generator(7);
  for (int i = 0; i < 4000; ++i) {
    const std::string text = generator.damaged(generator.file());
    ASSERT_EQ(inOnePass(text), naively(text)) << text;
  }
}

TEST(RecordingFile, TranscriptOfElementsFollowsTheSameRules) {
  Generator generator(99);
  for (int i = 0; i < 2000; ++i) {
    const std::string text = generator.file();
    const JSON value = parseJSON(text);
    const JSONObject* object = value.asObject();
    const JSON::Array* elements = object != nullptr ? object->getArray("lines") : nullptr;
    if (elements == nullptr) continue;
    const Meeting::Transcript lines = transcriptOfElements(*elements);
    std::vector<Meeting::Line> expected = naiveLines(value);
    settleNaively(expected);
    ASSERT_EQ(lines.size(), expected.size()) << text;
    for (std::size_t n = 0; n < lines.size(); ++n)
      EXPECT_EQ(shown(lines.line(n)), shown(expected[n]));
  }
}

}  // namespace
}  // namespace velta
