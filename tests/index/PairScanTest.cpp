#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "index/PairScan.h"

namespace velta {
namespace {

TEST(PairScan, FindsBothCasesOfALetterAndNoOtherByte) {
  const PairScan scan = {.byte = {'o', 'k'}, .fold = {0x20, 0x20}, .offset = {0, 1}};
  const std::string text = "/+OJ o\x0Bok";
  EXPECT_EQ(findPair(text.data(), text.data() + text.size() - 1, {&scan, 1}) - text.data(), 7);
  const std::string capital = "xxOkxx";
  EXPECT_EQ(findPair(capital.data(), capital.data() + 5, {&scan, 1}) - capital.data(), 2);
}

TEST(PairScan, NothingInNoPlaces) {
  const PairScan scan = {.byte = {'a', 'a'}, .fold = {0x20, 0x20}, .offset = {0, 0}};
  const std::string text = "a";
  EXPECT_EQ(findPair(text.data(), text.data(), {&scan, 1}), text.data());
}

TEST(PairScan, FindsWhatTheOneByOneSearchFinds) {
  std::mt19937 random(11);
  const std::string alphabet = "abAB@`[{\x80\xE9";
  const auto anyByte = [&] { return alphabet[random() % alphabet.size()]; };
  std::size_t found = 0;
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    for (std::size_t size = random() % 150; size > 0; --size) text += anyByte();
    std::vector<PairScan> scans(random() % 3 + 1);
    std::size_t reach = 0;
    for (PairScan& scan : scans) {
      for (std::size_t i = 0; i < 2; ++i) {
        const char byte = anyByte();
        const bool isLetter = byte == 'a' || byte == 'b';
        scan.byte[i] = static_cast<std::uint8_t>(byte);
        scan.fold[i] = isLetter ? 0x20 : 0;
        scan.offset[i] = random() % 9;
        reach = std::max(reach, scan.offset[i]);
      }
    }
    if (text.size() <= reach) continue;
    // Copied to just its size, so that a sanitizer sees a byte read beyond it.
    const std::vector<char> exact(text.begin(), text.end());
    const char* const begin = exact.data() + random() % (exact.size() - reach);
    const char* const end = exact.data() + exact.size() - reach;
    const char* const expected = findPairPortably(begin, end, scans);
    ASSERT_EQ(findPair(begin, end, scans), expected) << text;
    found += expected != end ? 1U : 0U;
  }
  EXPECT_GT(found, 1000U);
}

}  // namespace
}  // namespace velta
