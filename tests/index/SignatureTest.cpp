#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "index/Signature.h"

namespace velta {
namespace {

Signature signatureOf(std::string_view text, std::uint32_t salt = 7) { return {{text}, salt}; }

bool mayHold(const Signature& signature, std::string_view word) {
  return signature.view().mayHold(gramsOf(word));
}

TEST(Signature, MayHoldEveryWordThatIsThere) {
  const Signature signature = signatureOf("那我做結論：OKR 押金一律免 🚲e-Bike\nnext 行");
  for (const std::string_view word : {"okr", "ok", "o", "押金", "押", "押金一律免", "結論：okr",
                                      "🚲", "🚲e-bike", "bike", "e-b", "ext 行", "r 押", ""}) {
    EXPECT_TRUE(mayHold(signature, word)) << word;
  }
}

TEST(Signature, OfALongTextRulesMostOtherWordsOut) {
  std::string text;
  for (int i = 0; i < 2000; ++i) text += "客戶說押金 deposit 要退\n";
  const Signature signature = signatureOf(text);
  for (const std::string_view word : {"电车", "電車", "posit客", "zebra", "退款"}) {
    EXPECT_FALSE(mayHold(signature, word)) << word;
  }
}

TEST(Signature, NoGramSpansALineFeed) {
  int passed = 0;
  for (std::uint32_t salt = 0; salt < 100; ++salt)
    passed += mayHold(signatureOf("押\n金，ab\ncd and more of the same", salt), "押金") ? 1 : 0;
  EXPECT_LT(passed, 50);  // by chance some do; with the gram all would
}

TEST(Signature, WithoutTextHoldsNothing) {
  EXPECT_FALSE(mayHold(Signature(), "押"));
  EXPECT_FALSE(mayHold(Signature(), ""));
}

TEST(Signature, WordOfOneASCIICharacterIsNeverRuledOut) {
  EXPECT_TRUE(mayHold(signatureOf("押金"), "z"));
}

TEST(Grams, AreTheSinglesPairsTriplesAndQuadruplesOfAWord) {
  EXPECT_EQ(gramsOf("押").size(), 1U);
  EXPECT_EQ(gramsOf("押金").size(), 3U);
  EXPECT_EQ(gramsOf("ab").size(), 1U);
  EXPECT_EQ(gramsOf("abc").size(), 3U);
  EXPECT_EQ(gramsOf("abcd").size(), 6U);
  EXPECT_EQ(gramsOf("abcde").size(), 9U);
  EXPECT_EQ(gramsOf("a押b").size(), 3U);
  EXPECT_TRUE(gramsOf("a").empty());
}

// Whatever a text holds, its signature lets through: the one promise that answers rest on.
TEST(Signature, NeverRulesOutAPartOfItsText) {
  const std::vector<std::string> characters = {"a",  "B",  "z", "[", "@", " ",  "0",    "金", "押",
                                               "錢", "，", "é", "ß", "😀", "\n", "\x7F", "߿"};
  std::mt19937 random(3);
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::string> text(random() % 60 + 1);
    std::string whole;
    for (std::string& character : text)
      whole += character = characters[random() % characters.size()];
    const Signature signature = signatureOf(whole, static_cast<std::uint32_t>(random()));
    const std::size_t from = random() % text.size();
    std::string part;
    for (std::size_t i = from; i < text.size() && i < from + 6 && text[i] != "\n"; ++i)
      part += text[i] == "B" ? "b" : text[i];
    ASSERT_TRUE(mayHold(signature, part)) << whole << " / " << part;
  }
}

// Words up to fifteen bytes are hashed once a text, longer ones wherever they stand; what a word
// touches counts each time, also at the very end of the text.
TEST(Signature, MayHoldWordsOfEveryLengthAndWhatTheyTouch) {
  std::string word;
  for (int length = 1; length <= 40; ++length) {
    word += static_cast<char>('a' + length * 7 % 26);
    const Signature signature = signatureOf(word + " 押" + word + "金 " + word + "\n錢" + word);
    const std::string last(1, word.back());
    for (const std::string& part : {word, "押" + word, last + "金", "錢" + word})
      EXPECT_TRUE(mayHold(signature, part)) << word << " / " << part;
  }
}

// Two words of which each begins like the other must not be taken for one.
TEST(Signature, MayHoldWordsThatDifferLate) {
  std::string text;
  std::vector<std::string> words;
  for (int i = 0; i < 26; ++i) {
    for (const std::string_view stem : {"", "abc", "abcdefg", "abcdefgh", "abcdefghijklmn"}) {
      words.push_back(std::string(stem) + static_cast<char>('a' + i) + static_cast<char>('z' - i));
      text += words.back() + ' ';
    }
  }
  const Signature signature = signatureOf(text);
  for (const std::string& word : words) EXPECT_TRUE(mayHold(signature, word)) << word;
}

// A word that no meeting holds must not pass most of them: the salt spreads the mistakes.
TEST(Signature, MistakesAreFewAndNotTheSameInEveryMeeting) {
  std::mt19937 random(5);
  const auto character = [&random] {
    std::string text;
    const auto code = 0x4E00U + static_cast<unsigned>(random() % 2500);
    text += static_cast<char>(0xE0U | code >> 12U);
    text += static_cast<char>(0x80U | (code >> 6U & 0x3FU));
    text += static_cast<char>(0x80U | (code & 0x3FU));
    return text;
  };
  constexpr int kMeetings = 300;
  constexpr int kWords = 50;
  std::vector<Signature> signatures;
  for (int meeting = 0; meeting < kMeetings; ++meeting) {
    std::string text;
    for (int i = 0; i < 6000; ++i) text += character();
    signatures.push_back(signatureOf(text, static_cast<std::uint32_t>(meeting)));
  }
  int worst = 0;
  for (int word = 0; word < kWords; ++word) {
    const std::string absent = "龘" + character();
    int passed = 0;
    for (const Signature& signature : signatures) passed += mayHold(signature, absent) ? 1 : 0;
    worst = std::max(worst, passed);
  }
  EXPECT_LT(worst, kMeetings / 8);
}

}  // namespace
}  // namespace velta
