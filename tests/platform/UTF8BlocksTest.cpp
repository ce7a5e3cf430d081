#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Text.h"
#include "platform/UTF8Blocks.h"

namespace velta {
namespace {

std::uint8_t byteAt(std::string_view text, std::size_t i) {
  return i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0;
}

// Length of the well-formed character at the beginning, 0 when there is none: Unicode's table 3-7,
// one byte after another.
std::size_t characterLength(std::string_view text) {
  const std::uint8_t lead = byteAt(text, 0);
  if (lead < 0x80) return 1;
  const std::size_t length = lead < 0xC2   ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length == 0 || text.size() < length) return 0;
  const std::uint8_t least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const std::uint8_t most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byteAt(text, 1) < least || byteAt(text, 1) > most) return 0;
  for (std::size_t i = 2; i < length; ++i)
    if (byteAt(text, i) < 0x80 || byteAt(text, i) > 0xBF) return 0;
  return length;
}

// Where the first ill-formed part begins, or the size.
std::size_t wellFormedLength(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t length = characterLength(text.substr(at));
    if (length == 0) return at;
    at += length;
  }
  return at;
}

void expectRight(const std::string& text) {
  // Copied to just its size, so that a sanitizer sees a byte read beyond it.
  const std::vector<char> exact(text.begin(), text.end());
  const std::string_view bytes(exact.data(), exact.size());
  const std::size_t good = wellFormedLength(bytes);
  const std::size_t skipped = skipWellFormedBlocks(bytes);
  ASSERT_LE(skipped, good);
  ASSERT_EQ(wellFormedLength(bytes.substr(0, skipped)), skipped) << "cuts a character";
  if (good == bytes.size() && hasUTF8Blocks()) {
    ASSERT_LT(bytes.size() - skipped, kUTF8Stretch + 4);
  }
  ASSERT_EQ(isValidUTF8(bytes), good == bytes.size());
}

TEST(UTF8Blocks, EveryPairOfBytesIsJudgedRightAtEveryPlaceOfABlock) {
  for (unsigned first = 0; first < 256; ++first) {
    for (unsigned second = 0; second < 256; ++second) {
      const std::size_t place = (first * 7 + second * 3) % 130;
      std::string text(200, 'a');
      text[place] = static_cast<char>(first);
      text[place + 1] = static_cast<char>(second);
      for (const std::string tail : {"", "\x80", "\x80\x80", "\xBF\xBF\xBF"})
        expectRight(text.substr(0, place + 2) + tail + std::string(80, 'b'));
    }
  }
}

TEST(UTF8Blocks, CharactersAcrossTheBordersOfBlocksAreKept) {
  for (std::size_t before = 0; before < 140; ++before) {
    for (const std::string character : {"é", "押", "😀", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                                        "\xC0\xAF", "\xE0\x80\xAF", "\xF0\x8F\xBF\xBF", "\xFF"}) {
      for (std::size_t cut = 1; cut <= character.size(); ++cut) {
        expectRight(std::string(before, 'x') + character.substr(0, cut));
        expectRight(std::string(before, 'x') + character.substr(0, cut) + std::string(70, 'y'));
      }
    }
  }
}

TEST(UTF8Blocks, AgreesWithTheTableOnRandomTexts) {
  std::mt19937 random(7);
  const std::vector<std::string> pieces = {"a", "押", "é", "😀", "the line", "，", "金額"};
  int broken = 0;
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    while (text.size() < random() % 300) text += pieces[random() % pieces.size()];
    if (!text.empty() && random() % 2 == 0) {
      text[random() % text.size()] = static_cast<char>(random() % 256);
    }
    expectRight(text);
    broken += wellFormedLength(text) < text.size() ? 1 : 0;
  }
  EXPECT_GT(broken, 3000);
}

}  // namespace
}  // namespace velta
