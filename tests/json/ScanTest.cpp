#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "json/Scan.h"

namespace velta {
namespace {

// Texts of every length over a few bytes, of which some stop each scan, in exact memory so that a
// sanitizer sees a read behind them.
template <class Check>
void forManyTexts(Check check) {
  std::mt19937 random(3);
  const std::string bytes = "aaaaaaaaaaaaaaaaaa     \"\\\n\r\t\x01\x1F\x20\x7F\x80\xFF";
  for (std::size_t length = 0; length < 80; ++length) {
    for (int i = 0; i < 50; ++i) {
      std::vector<char> text(length);
      for (char& byte : text) byte = i % 2 == 0 ? 'a' : bytes[random() % bytes.size()];
      check(text.data(), text.data() + text.size());
    }
  }
}

template <class Test>
const char* naive(const char* at, const char* end, Test test) {
  while (at != end && !test(*at)) ++at;
  return at;
}

bool endsString(char byte) { return byte == '"' || byte == '\\'; }
bool isSpace(char byte) { return byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t'; }
bool isControl(char byte) { return static_cast<unsigned char>(byte) < 0x20; }

template <class B>
class Scan : public testing::Test {};
using Blocks = testing::Types<PortableBlock, Block>;
TYPED_TEST_SUITE(Scan, Blocks);

TYPED_TEST(Scan, FindsWhatAWalkFinds) {
  forManyTexts([](const char* begin, const char* end) {
    EXPECT_EQ(findStringEnd<TypeParam>(begin, end), naive(begin, end, endsString));
    EXPECT_EQ(findNonBlank<TypeParam>(begin, end),
              naive(begin, end, [](char c) { return c != ' '; }));
    EXPECT_EQ(findNonSpace<TypeParam>(begin, end),
              naive(begin, end, [](char c) { return !isSpace(c); }));
    EXPECT_EQ(findByte<TypeParam>(begin, end, [](TypeParam block) { return escapable(block); }),
              naive(begin, end, [](char c) { return endsString(c) || isControl(c); }));
  });
}

TYPED_TEST(Scan, APartOfABlockIsFollowedByZeros) {
  for (std::size_t count = 0; count < kBlockSize; ++count) {
    const std::string text = std::string("0123456789abcdef").substr(0, count);
    const std::vector<char> exact(text.begin(), text.end());
    std::string stored(kBlockSize, 'x');
    TypeParam::loadPart(exact.data(), count).store(stored.data());
    EXPECT_EQ(stored, text + std::string(kBlockSize - count, '\0'));
  }
}

}  // namespace
}  // namespace velta
