#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSONParser.h"
#include "meetings/Sources.h"

namespace velta {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The items as "id section text @t".
std::vector<std::string> digestOf(const std::string& notes) {
  const JSON value = parseJSON(notes);
  std::vector<std::string> items;
  for (const auto& item : digestOfNotes(*value.asObject())) {
    std::string text = item.id + " " + item.section + " " + item.text;
    if (item.t) text += " @" + std::to_string(static_cast<int>(*item.t));
    items.push_back(text);
  }
  return items;
}

std::string textOf(const std::string& item) { return itemText(parseJSON(item)); }

TEST(NotesDigest, SectionsComeInTheirOrderWithOneNumbering) {
  EXPECT_THAT(
      digestOf(R"({"viewpoints":[{"speaker":"Amy","points":["p"]}],"chapters":[{"title":"c"}],
                           "open_questions":["q"],"decisions":["d"],"topics":["t"]})"),
      ElementsAre("D1 decisions d", "D2 open_questions q", "D3 chapters c",
                  "D4 viewpoints Amy: p"));
}

TEST(NotesDigest, AViewpointIsOneItemAPoint) {
  EXPECT_THAT(
      digestOf(
          R"({"viewpoints":[{"speaker":"Amy","t":9,"points":["a",{"text":"b","t_start":5},"",{}]},
                                 {"name":"Bo","points":["c"]},{"points":["d"]},{"speaker":"Cy","points":[]}]})"),
      ElementsAre("D1 viewpoints Amy: a @9", "D2 viewpoints Amy: b @5", "D3 viewpoints Bo: c",
                  "D4 viewpoints d"));
}

TEST(NotesDigest, AViewpointWithoutAListOfPointsIsAnItemLikeAnyOther) {
  EXPECT_THAT(
      digestOf(R"({"viewpoints":["all agree",{"speaker":"Amy","points":"yes","start":3}]})"),
      ElementsAre("D1 viewpoints all agree", "D2 viewpoints yes Amy @3"));
}

TEST(NotesDigest, ItemsWithoutTextAreLeftOut) {
  EXPECT_THAT(digestOf(R"({"decisions":[null,5,{},[],"",{"line":"L1"},{"text":5},"x"]})"),
              ElementsAre("D1 decisions x"));
}

TEST(NotesDigest, SectionsThatAreNoListsGiveNothing) {
  EXPECT_THAT(digestOf(R"({"decisions":"x","open_questions":{"text":"y"},"chapters":null})"),
              IsEmpty());
}

TEST(NotesDigest, TextIsMadeOfTheTellingMembersInFixedOrder) {
  EXPECT_EQ(textOf(R"({"speaker":"o","who":"n","owner":"m","points":"l","note":"k","next":"j",
                       "positions":"i","outcome":"h","result":"g","oneLine":"f","name":"e",
                       "question":"d","topic":"c","text":"b","title":"a","line":"L1","id":"x"})"),
            "a b c d e f g h i j k l m n o");
}

TEST(ItemText, WhoThatRepeatsTheOwnerIsSaidOnce) {
  EXPECT_EQ(textOf(R"({"text":"keep it","who":"Joan","owner":"Joan"})"), "keep it Joan");
  EXPECT_EQ(textOf(R"({"text":"keep it","who":"Joan","owner":"Amy"})"), "keep it Amy Joan");
  EXPECT_EQ(textOf(R"({"text":"keep it","who":"Joan"})"), "keep it Joan");
}

TEST(NotesDigest, TextTakesStringLeavesAtAnyDepthInOrder) {
  EXPECT_EQ(
      textOf(R"({"positions":[{"who":"Amy","says":["yes",3,["no"]]},"later"],"next":{"a":"b"}})"),
      "Amy yes no later b");
  EXPECT_EQ(textOf(R"({"title":"","text":"x","note":["",null]})"), "x");
}

TEST(NotesDigest, TextOfAStringIsTheString) {
  EXPECT_EQ(textOf(R"("  as it is ")"), "  as it is ");
  EXPECT_EQ(textOf("[\"x\"]"), "");
  EXPECT_EQ(textOf("5"), "");
}

TEST(NotesDigest, NestingHasNoLimit) {
  const std::size_t depth = 300000;
  const std::string nested = std::string(depth, '[') + "\"x\"" + std::string(depth, ']');
  EXPECT_EQ(textOf("{\"text\":" + nested + "}"), "x");
}

TEST(NotesDigest, TimeIsTheFirstNumber) {
  const auto time = [](const char* item) { return itemTime(parseJSON(item)); };
  EXPECT_EQ(time(R"({"t":3,"start":2,"t_start":1})"), 1.0);
  EXPECT_EQ(time(R"({"t":3,"start":2.5,"t_start":"1"})"), 2.5);
  EXPECT_EQ(time(R"({"t":3,"start":null})"), 3.0);
  EXPECT_EQ(time(R"({"t_end":3})"), std::nullopt);
  EXPECT_EQ(time(R"("x")"), std::nullopt);
}

}  // namespace
}  // namespace velta
