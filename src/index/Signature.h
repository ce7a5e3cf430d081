// Signature: a small set of bits that tells at a glance that a text does not hold a word.
//
// It remembers, hashed, which grams stand in the text: every character beyond ASCII, every pair of
// neighbouring characters, every three and every four neighbours of ASCII (English words share
// their threes). A word can only be there when all its grams are. ASCII capitals count as small
// letters. It is never wrong about a word that is there; about one that is not it is wrong now and
// then (a Bloom filter).
//
// Each signature is salted, so that grams that collide in one meeting do not in the next: a word
// that no meeting holds then passes a few of them by chance and not nearly all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace velta {

// The grams of a word, lowered; none for a single ASCII character or an empty word.
std::vector<std::uint64_t> gramsOf(std::string_view lowered);

// A signature to ask, without owning it. A gram has two bits, both in one block of 64.
struct SignatureView {
  const std::uint64_t* blocks = nullptr;
  std::size_t size = 0;          // in blocks
  std::uint64_t multiplier = 1;  // what salts it

  // Whether the texts may hold a word with these grams. Where no text is nothing can be.
  bool mayHold(const std::vector<std::uint64_t>& grams) const;
};

class Signature {
 public:
  // Of nothing: no word may be there.
  Signature() = default;

  // Of `texts`, well-formed UTF-8. It is as small as it can be without letting many more words pass
  // by chance. No gram spans a blank or a line feed, as no word of a query does.
  Signature(const std::vector<std::string_view>& texts, std::uint32_t salt);

  SignatureView view() const { return {blocks_.data(), blocks_.size(), multiplier_}; }

 private:
  std::vector<std::uint64_t> blocks_;
  std::uint64_t multiplier_ = 1;
};

}  // namespace velta
