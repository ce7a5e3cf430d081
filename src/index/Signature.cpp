#include "index/Signature.h"

#include <algorithm>
#include <bit>

namespace velta {
namespace {

// Bits a byte of text, to begin with: twice what a text needs in which every gram is new.
constexpr std::size_t kBitsPerByte = 4;
// Divides by all numbers up to kMostFolds.
constexpr std::size_t kSizeUnit = 2520;
constexpr std::size_t kMostFolds = 10;
// So full a signature is in the end: a word of two characters then passes six meetings in a
// hundred by chance. One that is half as large lets three times as many pass.
constexpr double kFullness = 0.25;

// Grams of different kinds never have one number.
constexpr std::uint64_t kSingle = std::uint64_t{1} << 60U;
constexpr std::uint64_t kPair = std::uint64_t{2} << 60U;
constexpr std::uint64_t kTriple = std::uint64_t{3} << 60U;
constexpr std::uint64_t kQuadruple = std::uint64_t{4} << 60U;
constexpr unsigned kCharacterBits = 21;

struct Character {
  std::uint32_t code;
  std::size_t length;
};

// The character at the beginning of well-formed UTF-8 that is no ASCII.
Character wideCharacter(const char* at) {
  const auto byte = [at](std::size_t i) { return static_cast<std::uint32_t>(at[i]) & 0x3FU; };
  const auto lead = static_cast<unsigned char>(*at);
  if (lead < 0xE0) return {(lead & 0x1FU) << 6U | byte(1), 2};
  if (lead < 0xF0) return {(lead & 0x0FU) << 12U | byte(1) << 6U | byte(2), 3};
  return {(lead & 0x07U) << 18U | byte(1) << 12U | byte(2) << 6U | byte(3), 4};
}

std::uint32_t lowered(unsigned char ascii) {
  return ascii >= 'A' && ascii <= 'Z' ? ascii + 0x20U : ascii;
}

// Calls sink(gram) for every gram of `text`, from left to right.
template <class Sink>
void visitGrams(std::string_view text, Sink sink) {
  std::uint64_t before = 0;  // the character before, 0 at the beginning of a word
  std::uint64_t run = 0;     // the ASCII characters just before, at most three, a byte each
  const char* at = text.data();
  for (const char* const end = at + text.size(); at < end;) {
    const auto byte = static_cast<unsigned char>(*at);
    if (byte >= 0x80) {
      const Character character = wideCharacter(at);
      sink(kSingle | character.code);
      if (before != 0) sink(kPair | before << kCharacterBits | character.code);
      before = character.code;
      run = 0;
      at += character.length;
    } else if (byte <= ' ') {  // no word spans white space
      before = run = 0;
      ++at;
    } else {
      const std::uint64_t code = lowered(byte);
      if (before != 0) sink(kPair | before << kCharacterBits | code);
      run = run << 8U | code;
      if (run > 0xFFFF) sink(kTriple | (run & 0xFFFFFF));
      if (run > 0xFFFFFF) sink(kQuadruple | run);
      run &= 0xFFFFFF;
      before = code;
      ++at;
    }
  }
}

struct Places {
  std::size_t first;
  std::size_t second;
};

// The two bits of a gram, from the two halves of one multiplicative hash, scaled to the size
// without dividing.
Places placesOf(std::uint64_t gram, std::uint64_t salt, std::uint64_t size) {
  std::uint64_t hash = (gram ^ salt) * std::uint64_t{0x9E3779B97F4A7C15};
  hash = (hash ^ (hash >> 32U)) * std::uint64_t{0xD6E8FEB86659FD93};
  hash ^= hash >> 32U;
  return {static_cast<std::size_t>(((hash >> 32U) * size) >> 32U),
          static_cast<std::size_t>(((hash & 0xFFFFFFFFU) * size) >> 32U)};
}

std::size_t wordsFor(std::size_t bits) { return (bits + 63) / 64; }

void setBit(std::vector<std::uint64_t>& words, std::size_t place) {
  words[place / 64] |= std::uint64_t{1} << (place % 64);
}

std::size_t bitsSet(const std::vector<std::uint64_t>& words) {
  std::size_t count = 0;
  for (const std::uint64_t word : words) count += static_cast<std::size_t>(std::popcount(word));
  return count;
}

}  // namespace

std::vector<std::uint64_t> gramsOf(std::string_view lowered) {
  std::vector<std::uint64_t> grams;
  visitGrams(lowered, [&grams](std::uint64_t gram) { grams.push_back(gram); });
  // The more a gram spans the rarer it is: those are asked for first.
  std::ranges::sort(grams, std::ranges::greater());
  return grams;
}

Signature::Signature(std::size_t bytes, std::uint32_t salt)
    : size_((bytes * kBitsPerByte / kSizeUnit + 1) * kSizeUnit),
      bits_(wordsFor(size_)),
      salt_(salt * std::uint64_t{0xD6E8FEB86659FD93}) {}

void Signature::add(std::string_view text) {
  visitGrams(text, [this](std::uint64_t gram) {
    const Places places = placesOf(gram, salt_, size_);
    setBit(bits_, places.first);
    setBit(bits_, places.second);
  });
}

// Since a place is a hash scaled to the size, a signature of a size that is so many times smaller
// is this one with so many neighbouring bits made one.
void Signature::settle() {
  const auto wanted = static_cast<std::size_t>(static_cast<double>(bitsSet(bits_)) / kFullness);
  const std::size_t factor =
      std::clamp<std::size_t>(size_ / std::max<std::size_t>(wanted, 1), 1, kMostFolds);
  std::vector<std::uint64_t> folded(wordsFor(size_ / factor));
  for (std::size_t word = 0; word < bits_.size(); ++word) {
    for (std::uint64_t left = bits_[word]; left != 0; left &= left - 1) {
      const std::size_t place = word * 64 + static_cast<std::size_t>(std::countr_zero(left));
      setBit(folded, static_cast<std::uint32_t>(place) / static_cast<std::uint32_t>(factor));
    }
  }
  bits_ = std::move(folded);
  size_ /= factor;
}

bool SignatureView::mayHold(const std::vector<std::uint64_t>& grams) const {
  if (size == 0) return false;
  const auto holds = [this](std::size_t place) {
    return ((bits[place / 64] >> (place % 64)) & 1U) != 0;
  };
  return std::ranges::all_of(grams, [&](std::uint64_t gram) {
    const Places places = placesOf(gram, salt, size);
    return holds(places.first) && holds(places.second);
  });
}

}  // namespace velta
