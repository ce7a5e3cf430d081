#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "admin/EmailGuard.h"
#include "json/JSONParser.h"
#include "platform/Regex.h"

namespace velta {
namespace {

bool holdsInJSON(std::string_view text) {
  JSON value = parseJSON(text);
  return holdsEmailAddress(*value.asObject());
}

TEST(EmailGuard, FindsFullAddressesInAllThreeFormsOfTheAtSign) {
  for (const std::string_view text :
       {"bob@example.com", "write to bob.li+x@mail.example.co today", "bob＠example.com",
        "bob﹫example.com", "%@a.io", "-@-.bc", "x_y@a-b.c1.museum", "a@@b@c.de",
        "***bob@example.com", "鮑勃a@例.例 bob@example.tw"}) {
    EXPECT_TRUE(holdsEmailAddress(text)) << text;
  }
}

TEST(EmailGuard, LetsMaskedAddressesAndOtherTextsPass) {
  for (const std::string_view text :
       {"", "@", "a***@example.com", "bob*@example.com", "@example.com", "bob@example",
        "bob@example.c", "bob@example.1com", "bob@.com", "bob@example..com", "bob @example.com",
        "bob@ example.com", "bob@*.com", "bob@e.c.d", "bob.example.com", "鮑@example.com",
        "bob@例.com"}) {
    EXPECT_FALSE(holdsEmailAddress(text)) << text;
  }
}

TEST(EmailGuard, LooksAtKeysAndTextsAtEveryDepth) {
  EXPECT_TRUE(holdsInJSON(R"({"users":[{"mail":"bob@example.com"}]})"));
  EXPECT_TRUE(holdsInJSON(R"({"bob@example.com":1})"));
  EXPECT_TRUE(holdsInJSON(R"({"a":[[{"bob@example.com":null}]]})"));
  EXPECT_TRUE(holdsInJSON(R"({"a":"bob\u0040example.com"})"));
  EXPECT_TRUE(holdsInJSON(R"({"a":"bob\uff20example\u002ecom"})"));
  EXPECT_FALSE(holdsInJSON(R"({"a":"bob","b":"@example.com"})"));
  EXPECT_FALSE(holdsInJSON(R"({"a***@example.com":["a***@example.com"]})"));
}

TEST(EmailGuard, AgreesWithTheRegularExpressionThatItStandsFor) {
  const Regex pattern(R"([A-Za-z0-9._%+-]+[@＠﹫][A-Za-z0-9-]+(?:\.[A-Za-z0-9-]+)*\.[A-Za-z]{2,})");
  const std::vector<std::string> pieces = {"a",  "Z",  "7", "-", ".", ".",   "@",
                                           "＠", "﹫", "_", "%", "*", "com", "io"};
  std::mt19937 random(20261121);
  int found = 0;
  for (int round = 0; round < 200'000; ++round) {
    std::string text;
    for (std::size_t length = random() % 14; length > 0; --length)
      text += pieces[random() % pieces.size()];
    ASSERT_EQ(holdsEmailAddress(text), pattern.matches(text)) << text;
    found += pattern.matches(text) ? 1 : 0;
  }
  EXPECT_GT(found, 1000);  // or the texts were no test
}

// A pattern matched by backtracking needs hours for some of these.
TEST(EmailGuard, TakesHostileAnswersInOnePass) {
  constexpr std::size_t kSize = 2'000'000;
  for (const std::string_view piece : {"a.", "a", "a@", "a@b.", "@a.b-", "＠a.1"}) {
    std::string text;
    while (text.size() < kSize) text += piece;
    EXPECT_FALSE(holdsEmailAddress(text)) << piece;
    EXPECT_TRUE(holdsEmailAddress(text + " bob@example.com")) << piece;
  }
}

}  // namespace
}  // namespace velta
