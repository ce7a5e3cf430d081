#include <cstddef>
#include <filesystem>
#include <fstream>
#include <ios>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/StoreError.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Files.h"
#include "support/TemporaryFolder.h"
#include "terms/Terms.h"

namespace velta {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

const Instant kNow = instantFromSeconds(1760000000);

class TermsTest : public ::testing::Test {
 protected:
  TermsTest() { config_.home = folder_.file("home"); }

  std::string file() const { return config_.home + "/dictionary.json"; }

  void write(const std::string& text) {
    std::filesystem::create_directories(config_.home);
    std::ofstream(file(), std::ios::binary) << text;
  }

  JSON saved() const { return parseJSON(readFile(file())); }

  JSONObject add(std::string wrong, std::string right, std::optional<std::string> tier = {}) {
    return terms().addTerm({std::move(wrong), std::move(right), std::move(tier)}, client_, kNow);
  }

  std::string refusal(std::string wrong, std::string right, std::optional<std::string> tier = {}) {
    try {
      add(std::move(wrong), std::move(right), std::move(tier));
    } catch (const StoreError& error) {
      return error.what();
    }
    return "(no refusal)";
  }

  Terms terms() {
    return {config_, [this] { return people_; }};
  }

  TemporaryFolder folder_;
  Config config_;
  std::optional<std::string> client_ = "claude-code";
  std::vector<std::string> people_;
};

std::string asAuto(const std::string& reason) {
  return "Refused as auto: " + reason +
         ". Names and very short strings may only be hints. Next step: call add_term again with "
         "tier hint";
}

TEST_F(TermsTest, FirstTermCreatesTheDictionaryInItsOrder) {
  const JSONObject result = add("蝶沙", "碟煞");
  EXPECT_EQ(writeCompact(result),
            R"({"saved":true,"created":true,"term":{"right":"碟煞","wrong":"蝶沙","tier":"hint"},)"
            R"("dictionary_terms":1,"note":"Applies to the next processed meeting; existing )"
            R"(meetings are not rewritten"})");
  const JSON dictionary = saved();
  EXPECT_THAT(dictionary.asObject()->keys(),
              ::testing::ElementsAre("_note", "self_name", "terms", "speakers"));
  EXPECT_EQ(dictionary.asObject()->getString("_note"),
            "Personal dictionary for the meeting notes pipeline. Same schema as "
            "pipeline/dictionary.example.json.");
  EXPECT_EQ(dictionary.asObject()->getString("self_name"), "");
  EXPECT_EQ(writeCompact(*dictionary.asObject()->get("speakers")), "[]");
  const JSONObject& term = *dictionary.asObject()->getArray("terms")->front().asObject();
  EXPECT_THAT(term.keys(),
              ::testing::ElementsAre("wrong", "right", "tier", "updated_at", "updated_by"));
  EXPECT_EQ(term.getString("updated_by"), "mcp:claude-code");
  EXPECT_THAT(readFile(file()), StartsWith("{\n  \"_note\": \"Personal dictionary"));
}

TEST_F(TermsTest, WithoutAClientNameTheTermIsByUnknown) {
  client_.reset();
  add("蝶沙", "碟煞");
  EXPECT_THAT(readFile(file()), HasSubstr("\"updated_by\": \"mcp:unknown\""));
}

TEST_F(TermsTest, TextsAreTrimmedOfUnicodeWhiteSpace) {
  add(" 蝶沙\n", "\xE3\x80\x80碟煞\t", " auto ");
  const JSON dictionary = saved();
  const JSONObject& term = *dictionary.asObject()->getArray("terms")->front().asObject();
  EXPECT_EQ(term.getString("wrong"), "蝶沙");
  EXPECT_EQ(term.getString("right"), "碟煞");
  EXPECT_EQ(term.getString("tier"), "auto");
}

TEST_F(TermsTest, SameWrongTwiceReplacesInPlace) {
  add("甲乙丙丁", "一");
  add("戊己庚辛", "二");
  const JSONObject again = add("甲乙丙丁", "三");
  EXPECT_EQ(again.getBool("created"), false);
  EXPECT_EQ(again.getInt("dictionary_terms"), 2);
  const JSON dictionary = saved();
  const JSON::Array& terms = *dictionary.asObject()->getArray("terms");
  EXPECT_EQ(terms[0].asObject()->getString("right"), "三");
  EXPECT_EQ(terms[1].asObject()->getString("right"), "二");
}

TEST_F(TermsTest, ChecksComeInTheirOrder) {
  EXPECT_EQ(refusal("", "", "Auto"), "tier must be auto or hint, got 'Auto'");
  EXPECT_EQ(refusal(" ", "x"),
            "both wrong and right are required, for example wrong 蝶沙, right 碟煞");
  EXPECT_EQ(refusal("x", ""),
            "both wrong and right are required, for example wrong 蝶沙, right 碟煞");
  EXPECT_EQ(refusal("{", " {"), "wrong and right are the same text, nothing to correct");
  EXPECT_THAT(refusal("OK", "a{b", "auto"), StartsWith("right must be under 50 characters"));
  EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(TermsTest, RightMayHaveFortyNineCharactersAndNotFifty) {
  std::string fortyNine;
  for (int i = 0; i < 49; ++i) fortyNine += "é";
  EXPECT_EQ(refusal("錯字長長", fortyNine), "(no refusal)");
  EXPECT_EQ(refusal("錯字長長", fortyNine + "字"),
            "right must be under 50 characters without <>{}[] or backslash (the transcription API "
            "rejects those)");
}

TEST_F(TermsTest, EveryForbiddenCharacterInRightIsRefused) {
  for (const char c : std::string("<>{}[]\\")) {
    EXPECT_THAT(refusal("錯字", std::string("a") + c), StartsWith("right must be under 50")) << c;
  }
}

TEST_F(TermsTest, FullNamesNicknamesAndShortTextsAreNotAutomatic) {
  const struct {
    const char* wrong;
    std::string message;
  } cases[] = {
      {"陳大文",
       asAuto("'陳大文' looks like a full Chinese name (common surname plus two characters)")},
      {"小明", asAuto("'小明' looks like a nickname (小／阿／老 plus one character)")},
      {"阿華", asAuto("'阿華' looks like a nickname (小／阿／老 plus one character)")},
      {"老王", asAuto("'老王' looks like a nickname (小／阿／老 plus one character)")},
      {"字", asAuto("'字' is a single Chinese character")},
      {"OK", asAuto("'OK' is English of two letters or fewer")},
      {"a", asAuto("'a' is English of two letters or fewer")},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(refusal(c.wrong, "對的", "auto"), c.message);
    EXPECT_EQ(refusal(c.wrong, "對的", "hint"), "(no refusal)");
  }
}

TEST_F(TermsTest, EveryCommonSurnameWithTwoCharactersLooksLikeAFullName) {
  const std::string surnames =
      "王李張劉陳楊黃趙吳周徐孫馬朱胡郭何高林羅鄭梁謝宋"
      "唐許韓馮鄧曹彭曾蕭田董袁潘蔣蔡余杜葉程蘇魏呂丁任"
      "沈姚盧姜崔鍾譚陸汪范金石廖賈夏韋方白鄒孟熊秦邱江"
      "尹薛段雷侯龍史陶黎賀顧毛郝龔邵萬錢嚴武戴莫孔向湯";
  constexpr std::size_t kBytes = 3;  // of each character
  ASSERT_EQ(surnames.size(), 96 * kBytes);
  for (std::size_t at = 0; at < surnames.size(); at += kBytes) {
    const std::string name = surnames.substr(at, kBytes) + "大文";
    EXPECT_EQ(refusal(name, "對的", "auto"),
              asAuto("'" + name +
                     "' looks like a full Chinese name (common surname plus two characters)"));
  }
}

TEST_F(TermsTest, PersonNameIsTheFirstReason) {
  people_ = {"陳大文", "OK"};
  for (const std::string wrong : {"陳大文", "OK"})
    EXPECT_EQ(refusal(wrong, "對的", "auto"),
              asAuto("'" + wrong + "' is a person name in your speaker list or meetings"));
}

TEST_F(TermsTest, OtherTextsMayBeAutomatic) {
  for (const char* wrong :
       {"OKR", "蝶沙", "大陳文", "陳大", "陳大文武", "O1", "陳a文", "2", "陈大文", "大小文"}) {
    EXPECT_EQ(refusal(wrong, "對的", "auto"), "(no refusal)") << wrong;
  }
}

TEST_F(TermsTest, NamesOfTheDictionaryAndOfMeetingsAreNotAutomatic) {
  write(R"({"self_name":" Arlo ","speakers":[{"name":"Beth Ng","aliases":["Bee-Bee",7]},"x"]})");
  people_ = {"Carol Diaz"};
  for (const char* wrong : {"arlo", "BETH NG", "bee-bee", "carol DIAZ"}) {
    EXPECT_EQ(
        refusal(wrong, "對的", "auto"),
        asAuto("'" + std::string(wrong) + "' is a person name in your speaker list or meetings"));
  }
  EXPECT_EQ(refusal("Beth", "Bess", "auto"), "(no refusal)");  // whole names only
}

TEST_F(TermsTest, UnknownMembersAreKeptInValueAndOrder) {
  write(R"({"zeta":[1,2.5,{"b":1,"a":null}],"terms":[{"wrong":"甲乙","x":1,"right":"丙"},5],)"
        R"("self_name":"A","extra":"é\u0001"})");
  add("錯錯錯錯", "對");
  EXPECT_THAT(saved().asObject()->keys(),
              ::testing::ElementsAre("zeta", "terms", "self_name", "extra"));
  EXPECT_EQ(writeCompact(*saved().asObject()->get("zeta")), R"([1,2.5,{"b":1,"a":null}])");
  EXPECT_EQ(writeCompact(saved().asObject()->getArray("terms")->at(0)),
            R"({"wrong":"甲乙","x":1,"right":"丙"})");
  EXPECT_EQ(saved().asObject()->getArray("terms")->size(), 3U);
  EXPECT_EQ(saved().asObject()->getString("extra"), "é\x01");
}

TEST_F(TermsTest, TermsOfAnotherKindCountAsNone) {
  write(R"({"terms":"many","self_name":"A"})");
  EXPECT_EQ(add("錯錯錯錯", "對").getInt("dictionary_terms"), 1);
  EXPECT_THAT(saved().asObject()->keys(), ::testing::ElementsAre("terms", "self_name"));
}

TEST_F(TermsTest, ANumberThatCannotBeWrittenBackRefusesInsteadOfLosingTheFile) {
  const std::string text = R"({"x":1e400,"terms":[{"wrong":"舊","right":"新"}]})";
  write(text);
  EXPECT_THAT(refusal("錯錯錯錯", "對"), StartsWith("could not save " + file() +
                                                    ": it holds a number that cannot be written"));
  EXPECT_EQ(readFile(file()), text);
}

TEST_F(TermsTest, NestingTooDeepToBeIndentedRefusesAtOnce) {
  const std::string text =
      "{\"deep\":" + std::string(200'000, '[') + std::string(200'000, ']') + "}";
  write(text);
  EXPECT_THROW(add("錯錯錯錯", "對"), std::length_error);
  EXPECT_EQ(readFile(file()), text);
}

TEST_F(TermsTest, ADictionaryThatDoesNotParseIsReplaced) {
  for (const char* text : {"{", "[]", ""}) {
    write(text);
    EXPECT_EQ(add("錯錯錯錯", "對").getInt("dictionary_terms"), 1);
    EXPECT_EQ(saved().asObject()->size(), 4U);
  }
}

TEST_F(TermsTest, AFileThatCannotBeReplacedIsNamedWithTheCause) {
  std::filesystem::create_directories(file() + "/occupied");
  EXPECT_THAT(refusal("錯錯錯錯", "對"),
              StartsWith("could not save " + file() + ": Is a directory. Nothing was changed."));
  for (const auto& entry : std::filesystem::directory_iterator(config_.home)) {
    EXPECT_EQ(entry.path().string(), file()) << "a temporary file stays";
  }
}

TEST_F(TermsTest, AFolderThatCannotBeMadeIsNamedWithTheCause) {
  std::ofstream(config_.home) << "a file where the folder should be";
  EXPECT_THAT(refusal("錯錯錯錯", "對"),
              StartsWith("could not save " + file() + ": Not a directory. Nothing was changed."));
}

TEST_F(TermsTest, ALinkedDictionaryStaysLinked) {
  write("{}");
  std::filesystem::rename(file(), folder_.file("real.json"));
  std::filesystem::create_symlink(folder_.file("real.json"), file());
  add("錯錯錯錯", "對");
  EXPECT_TRUE(std::filesystem::is_symlink(file()));
  EXPECT_THAT(readFile(folder_.file("real.json")), HasSubstr("錯錯錯錯"));
}

}  // namespace
}  // namespace velta
