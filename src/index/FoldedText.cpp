#include "index/FoldedText.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <span>
#include <utility>

namespace velta {
namespace {

// How often a byte stands in notes that are Chinese with English mixed in, on a rough scale of 0 to
// 255. Only the order matters, and only for speed: the scan looks for the rarest byte of a needle.
constexpr std::array<std::uint8_t, 256> makeByteFrequencies() {
  std::array<std::uint8_t, 256> frequencies{};
  for (std::size_t byte = 0; byte < 0x80; ++byte) frequencies[byte] = 5;
  for (std::size_t byte = '0'; byte <= '9'; ++byte) frequencies[byte] = 10;
  constexpr std::array<std::uint8_t, 26> kLetters = {82, 15, 28, 43, 127, 22, 20, 61, 70,
                                                     2,  8,  40, 24, 67,  75, 19, 1,  60,
                                                     63, 91, 28, 10, 24,  2,  20, 1};
  for (std::size_t letter = 0; letter < kLetters.size(); ++letter) {
    frequencies['a' + letter] = kLetters[letter];
  }
  // Continuation bytes: two in three bytes of Chinese text, spread over 64 values, those of the
  // commonest characters and of punctuation being more frequent.
  for (std::size_t byte = 0x80; byte < 0xC0; ++byte) frequencies[byte] = byte < 0xB8 ? 30 : 45;
  frequencies[0x80] = 60;
  // Lead bytes: nearly all Chinese characters begin with E4 to E9, punctuation with E3 and EF.
  for (std::size_t byte = 0xC0; byte < 0x100; ++byte) frequencies[byte] = 1;
  for (std::size_t byte = 0xE4; byte <= 0xE9; ++byte) frequencies[byte] = 200;
  frequencies[0xE3] = 100;
  frequencies[0xEF] = 100;
  return frequencies;
}

constexpr std::array<std::uint8_t, 256> kByteFrequencies = makeByteFrequencies();

std::uint8_t frequency(char byte) { return kByteFrequencies[static_cast<unsigned char>(byte)]; }

bool isLowerLetter(char byte) { return byte >= 'a' && byte <= 'z'; }

char folded(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

// The two rarest bytes of a needle that is not empty; of a single byte twice the same.
PairScan rarestPairOf(std::string_view needle) {
  std::vector<std::size_t> offsets(needle.size());
  std::iota(offsets.begin(), offsets.end(), 0U);
  if (offsets.size() == 1) offsets.push_back(0);
  std::ranges::partial_sort(offsets, offsets.begin() + 2, {},
                            [&](std::size_t i) { return frequency(needle[i]); });
  PairScan scan;
  for (std::size_t i = 0; i < 2; ++i) {
    const char byte = needle[offsets[i]];
    scan.offset[i] = offsets[i];
    scan.byte[i] = static_cast<std::uint8_t>(byte);
    scan.fold[i] = isLowerLetter(byte) ? 0x20 : 0;
  }
  return scan;
}

// The first place in [from, end) of `haystack` at which the pair of any of `scans` stands and
// `isMatch(place)` holds; `end` when there is none.
template <class IsMatch>
std::size_t findMatch(std::string_view haystack, std::size_t from, std::size_t end,
                      std::span<const PairScan> scans, IsMatch isMatch) {
  const char* const begin = haystack.data();
  for (const char* at = begin + from; from < end; ++at) {
    at = findPair(at, begin + end, scans);
    from = static_cast<std::size_t>(at - begin);
    if (from >= end || isMatch(from)) return from;
  }
  return end;
}

}  // namespace

FoldedNeedle::FoldedNeedle(std::string lowered) : lowered_(std::move(lowered)) {
  if (!lowered_.empty()) scan_ = rarestPairOf(lowered_);
}

std::size_t FoldedNeedle::find(std::string_view haystack, std::size_t from) const {
  if (haystack.size() < lowered_.size()) return npos;
  const std::size_t end = haystack.size() - lowered_.size() + 1;
  if (from >= end) return npos;
  if (lowered_.empty()) return from;
  const std::size_t place = findMatch(haystack, from, end, {&scan_, 1}, [&](std::size_t candidate) {
    return isAt(haystack.data() + candidate);
  });
  return place < end ? place : npos;
}

bool FoldedNeedle::isAt(const char* place) const {
  return std::ranges::all_of(lowered_, [&](char byte) { return folded(*place++) == byte; });
}

QueryToken::QueryToken(const std::vector<std::string>& loweredVariants) {
  for (const std::string& variant : loweredVariants) {
    const FoldedNeedle& needle = variants_.emplace_back(variant);
    scans_.push_back(needle.scan());
    grams_.push_back(gramsOf(variant));
    longest_ = std::max(longest_, variant.size());
    shortest_ = variants_.size() == 1 ? variant.size() : std::min(shortest_, variant.size());
    for (const std::uint8_t byte : needle.scan().byte)
      commonness_ += frequency(static_cast<char>(byte));
  }
}

// Where every variant has room behind it they are looked for in one pass; what is left is shorter
// than the longest of them, and too little to save anything on.
std::size_t QueryToken::find(std::string_view haystack, std::size_t from) const {
  if (shortest_ > 0 && haystack.size() >= longest_) {
    const std::size_t end = haystack.size() - longest_ + 1;
    const std::size_t place =
        findMatch(haystack, from, end, scans_, [&](std::size_t at) { return isAt(haystack, at); });
    if (place < end) return place;
    from = std::max(from, end);
    if (shortest_ == longest_) return FoldedNeedle::npos;
  }
  std::size_t first = FoldedNeedle::npos;
  for (const FoldedNeedle& variant : variants_) {
    first = std::min(first, variant.find(haystack, from));
  }
  return first;
}

bool QueryToken::isAt(std::string_view haystack, std::size_t place) const {
  return std::ranges::any_of(variants_, [&](const FoldedNeedle& variant) {
    return variant.isAt(haystack.data() + place);
  });
}

bool QueryToken::isEscapedInJSON() const {
  const auto isEscaped = [](char c) {
    return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20;
  };
  return std::ranges::any_of(variants_, [&](const FoldedNeedle& variant) {
    return std::ranges::any_of(variant.text(), isEscaped);
  });
}

bool QueryToken::holds(char byte) const {
  return std::ranges::any_of(variants_, [&](const FoldedNeedle& variant) {
    return variant.text().find(byte) != std::string::npos;
  });
}

bool QueryToken::mayBeIn(const SignatureView& signature) const {
  return std::ranges::any_of(
      grams_, [&](const std::vector<std::uint64_t>& grams) { return signature.mayHold(grams); });
}

}  // namespace velta
