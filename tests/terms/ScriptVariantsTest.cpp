#include <algorithm>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "terms/ScriptTable.h"
#include "terms/ScriptVariants.h"

namespace velta {
namespace {

using testing::Contains;
using testing::ElementsAre;

TEST(ScriptVariants, OfAnEnglishWordAreTheLoweredWord) {
  EXPECT_THAT(scriptVariants("Budget"), ElementsAre("budget"));
  EXPECT_THAT(scriptVariants(""), ElementsAre(""));
}

TEST(ScriptVariants, OfASimplifiedWordHoldTheTraditionalOne) {
  EXPECT_THAT(scriptVariants("会议"), ElementsAre("会议", "會議"));
  EXPECT_THAT(scriptVariants("开发"), ElementsAre("开发", "開發"));
}

TEST(ScriptVariants, OfATraditionalWordHoldTheSimplifiedOne) {
  EXPECT_THAT(scriptVariants("電話"), ElementsAre("電話", "电话"));
  EXPECT_THAT(scriptVariants("頭髮"), ElementsAre("頭髮", "头发"));
}

TEST(ScriptVariants, OfAMixedWordHoldBothForms) {
  EXPECT_THAT(scriptVariants("会議"), ElementsAre("会議", "會議", "会议"));
}

TEST(ScriptVariants, OfAWordThatIsTheSameInBothScriptsAreTheWord) {
  EXPECT_THAT(scriptVariants("人工"), ElementsAre("人工"));
}

TEST(ScriptVariants, AreLowered) {
  EXPECT_THAT(scriptVariants("App会议"), ElementsAre("app会议", "app會議"));
  EXPECT_THAT(scriptVariants("Ä"), ElementsAre("Ä"));
}

TEST(ScriptVariants, ACharacterWithSeveralFormsTakesTheCommonOne) {
  EXPECT_THAT(scriptVariants("后端"), ElementsAre("后端", "後端"));
  EXPECT_THAT(scriptVariants("这里"), ElementsAre("这里", "這裡"));
  EXPECT_THAT(scriptVariants("因为"), ElementsAre("因为", "因為"));
  EXPECT_THAT(scriptVariants("分钟"), ElementsAre("分钟", "分鐘"));
  EXPECT_THAT(scriptVariants("车辆"), ElementsAre("车辆", "車輛"));
}

TEST(ScriptVariants, ACharacterThatUsuallyStaysStays) {
  EXPECT_THAT(scriptVariants("系统"), ElementsAre("系统", "系統"));
  EXPECT_THAT(scriptVariants("回顾"), ElementsAre("回顾", "回顧"));
  EXPECT_THAT(scriptVariants("这方面"), ElementsAre("这方面", "這方面"));
  EXPECT_THAT(scriptVariants("体制"), ElementsAre("体制", "體制"));
  EXPECT_THAT(scriptVariants("台湾"), ElementsAre("台湾", "台灣"));
}

TEST(ScriptVariants, EveryTraditionalFormGoesBackToItsSimplifiedCharacter) {
  for (const char* form : {"裡", "裏"}) EXPECT_THAT(scriptVariants(form), Contains("里")) << form;
  for (const char* form : {"為", "爲"}) EXPECT_THAT(scriptVariants(form), Contains("为")) << form;
  for (const char* form : {"發", "髮"}) EXPECT_THAT(scriptVariants(form), Contains("发")) << form;
  for (const char* form : {"臺", "檯", "颱"})
    EXPECT_THAT(scriptVariants(form), Contains("台")) << form;
  for (const char* form : {"麵", "麪"}) EXPECT_THAT(scriptVariants(form), Contains("面")) << form;
  for (const char* form : {"後", "繫", "係", "製", "迴"})
    EXPECT_EQ(scriptVariants(form).size(), 2U);
}

TEST(ScriptVariants, CharactersBeyondTheBasicPlaneArePairsToo) {
  EXPECT_THAT(scriptVariants("\U0002003E"), ElementsAre("\U0002003E", "\U0002005E"));
  EXPECT_THAT(scriptVariants("\U0002005E"), ElementsAre("\U0002005E", "\U0002003E"));
}

TEST(ScriptTable, StringsAreParallel) {
  EXPECT_EQ(kSimplifiedCharacters.size(), kTraditionalCharacters.size());
  EXPECT_GT(kSimplifiedCharacters.size(), 3000U);
}

TEST(ScriptTable, HoldsNoPairTwice) {
  std::vector<std::pair<char32_t, char32_t>> pairs;
  for (std::size_t i = 0; i < kSimplifiedCharacters.size(); ++i) {
    pairs.emplace_back(kSimplifiedCharacters[i], kTraditionalCharacters[i]);
  }
  std::sort(pairs.begin(), pairs.end());
  EXPECT_EQ(std::adjacent_find(pairs.begin(), pairs.end()), pairs.end());
}

// A pair of equal characters says that the character stays although others become it.
TEST(ScriptTable, EqualPairsStandOnlyWhereAnotherPairWouldDecide) {
  std::unordered_map<char32_t, int> pairsOf;
  for (const char32_t character : kSimplifiedCharacters) ++pairsOf[character];
  for (std::size_t i = 0; i < kSimplifiedCharacters.size(); ++i) {
    if (kSimplifiedCharacters[i] == kTraditionalCharacters[i]) {
      EXPECT_GT(pairsOf[kSimplifiedCharacters[i]], 1) << i;
    }
  }
}

}  // namespace
}  // namespace velta
