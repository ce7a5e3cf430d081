// FoldedText: text seen through ASCII folding (A to Z compare as a to z), without a second copy of
// it. Needles are given folded already.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "index/PairScan.h"
#include "index/Signature.h"

namespace velta {

// A needle prepared for many searches: which of its bytes are looked for first is decided once.
class FoldedNeedle {
 public:
  static constexpr std::size_t npos = std::string_view::npos;

  // `lowered` holds no A to Z; it may be empty (found everywhere).
  explicit FoldedNeedle(std::string lowered);

  const std::string& text() const { return lowered_; }

  // Offset of the first occurrence in `haystack` at or after `from`, npos when there is none.
  // Looks no further than the occurrence, so going from one to the next takes linear time.
  std::size_t find(std::string_view haystack, std::size_t from = 0) const;

  bool isIn(std::string_view haystack) const { return find(haystack) != npos; }

  // Whether it stands at `place`, where there are as many bytes.
  bool isAt(const char* place) const;
  // The bytes by which it is looked for; the needle is not empty.
  const PairScan& scan() const { return scan_; }

 private:
  std::string lowered_;
  PairScan scan_;
};

// A word of a query: it is found where any of its script variants is.
class QueryToken {
 public:
  explicit QueryToken(const std::vector<std::string>& loweredVariants);

  // Offset of the first occurrence of any variant at or after `from`, npos when there is none.
  // Looks no further than the occurrence, for all variants in one pass.
  std::size_t find(std::string_view haystack, std::size_t from = 0) const;

  bool isIn(std::string_view haystack) const { return find(haystack) != FoldedNeedle::npos; }

  // Whether a text with this signature may hold it; false is certain.
  bool mayBeIn(const SignatureView& signature) const;

  // Whether some character of it stands in JSON text in another form: a quote, a backslash or a
  // control character.
  bool isEscapedInJSON() const;
  // Whether a variant holds this byte.
  bool holds(char byte) const;

  // How rare the bytes are by which it is looked for: a larger number is found more often. Only for
  // choosing which of several words to look for first.
  int commonness() const { return commonness_; }

 private:
  bool isAt(std::string_view haystack, std::size_t place) const;

  std::vector<FoldedNeedle> variants_;
  std::vector<PairScan> scans_;                    // of the variants
  std::vector<std::vector<std::uint64_t>> grams_;  // of the variants
  std::size_t shortest_ = 0;                       // bytes
  std::size_t longest_ = 0;                        // bytes
  int commonness_ = 0;
};

}  // namespace velta
