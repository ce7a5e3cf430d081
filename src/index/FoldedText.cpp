#include "index/FoldedText.h"

#include <algorithm>
#include <array>
#include <cstdint>
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

// The places of one byte in a text, of a letter in both its cases, in ascending order. The two
// cases are looked for separately, because that is what the library searches for fast.
class EitherCase {
 public:
  EitherCase(std::string_view text, char lowered, std::size_t from)
      : text_(text),
        lower_(lowered),
        upper_(isLowerLetter(lowered) ? static_cast<char>(lowered - 'a' + 'A') : lowered),
        nextLower_(text.find(lower_, from)),
        nextUpper_(upper_ == lower_ ? FoldedNeedle::npos : text.find(upper_, from)) {}

  std::size_t place() const { return std::min(nextLower_, nextUpper_); }

  void advance() {
    const std::size_t passed = place();
    if (nextLower_ == passed) {
      nextLower_ = text_.find(lower_, passed + 1);
    } else {
      nextUpper_ = text_.find(upper_, passed + 1);
    }
  }

 private:
  std::string_view text_;
  char lower_;
  char upper_;
  std::size_t nextLower_;
  std::size_t nextUpper_;
};

// Looks through ever wider windows until `findBefore(begin, end)` finds something. A scan for what
// is missing (one case of a letter, one variant of a word) so ends soon after the next occurrence
// of what is there, instead of running to the end of the text for every occurrence.
template <class FindBefore>
std::size_t findInWindows(std::size_t size, std::size_t from, FindBefore findBefore) {
  constexpr std::size_t kFirstWindow = 512;  // bytes
  for (std::size_t width = kFirstWindow; from <= size; width *= 2) {
    const std::size_t place = findBefore(from, from + width);
    if (place != FoldedNeedle::npos) return place;
    from += width;
  }
  return FoldedNeedle::npos;
}

}  // namespace

FoldedNeedle::FoldedNeedle(std::string lowered) : lowered_(std::move(lowered)) {
  const auto rarest = std::ranges::min_element(lowered_, {}, frequency);
  rarest_ = static_cast<std::size_t>(rarest - lowered_.begin());
}

std::size_t FoldedNeedle::find(std::string_view haystack, std::size_t from) const {
  return findInWindows(haystack.size(), from, [&](std::size_t begin, std::size_t end) {
    return findBefore(haystack, begin, end);
  });
}

std::size_t FoldedNeedle::findBefore(std::string_view haystack, std::size_t from,
                                     std::size_t end) const {
  if (haystack.size() < lowered_.size()) return npos;
  end = std::min(end, haystack.size() - lowered_.size() + 1);
  if (from >= end) return npos;
  if (lowered_.empty()) return from;
  EitherCase scan(haystack.substr(0, end + rarest_), lowered_[rarest_], from + rarest_);
  for (; scan.place() != npos; scan.advance()) {
    const std::size_t begin = scan.place() - rarest_;
    if (isAt(haystack.data() + begin)) return begin;
  }
  return npos;
}

bool FoldedNeedle::isAt(const char* place) const {
  return std::ranges::all_of(lowered_, [&](char byte) { return folded(*place++) == byte; });
}

QueryToken::QueryToken(const std::vector<std::string>& loweredVariants) {
  for (const std::string& variant : loweredVariants) variants_.emplace_back(variant);
}

std::size_t QueryToken::find(std::string_view haystack, std::size_t from) const {
  return findInWindows(haystack.size(), from, [&](std::size_t begin, std::size_t end) {
    std::size_t first = FoldedNeedle::npos;
    for (const FoldedNeedle& variant : variants_) {
      first = std::min(first, variant.findBefore(haystack, begin, std::min(first, end)));
    }
    return first;
  });
}

}  // namespace velta
