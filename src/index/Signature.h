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

// A signature to ask, without owning it.
struct SignatureView {
  const std::uint64_t* bits = nullptr;
  std::size_t size = 0;  // in bits
  std::uint64_t salt = 0;

  // Whether the texts may hold a word with these grams. Where no text is nothing can be.
  bool mayHold(const std::vector<std::uint64_t>& grams) const;
};

class Signature {
 public:
  Signature() = default;

  // Of texts of `bytes` bytes in all, which determine its size.
  Signature(std::size_t bytes, std::uint32_t salt);

  // Adds the grams of a text, well-formed UTF-8. No gram spans a blank or a line feed, as no word
  // of a query does.
  void add(std::string_view text);

  // Makes it as small as it can be without passing many more words by chance; call it once, after
  // the last text. How many different grams a text has shows only when it has been read.
  void settle();

  SignatureView view() const { return {bits_.data(), size_, salt_}; }

 private:
  std::size_t size_ = 0;  // in bits
  std::vector<std::uint64_t> bits_;
  std::uint64_t salt_ = 0;
};

}  // namespace velta
