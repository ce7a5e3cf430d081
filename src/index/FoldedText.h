// FoldedText: text seen through ASCII folding (A to Z compare as a to z), without a second copy of
// it. Needles are given folded already.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velta {

// A needle prepared for many searches: which of its bytes is looked for first is decided once.
class FoldedNeedle {
 public:
  static constexpr std::size_t npos = std::string_view::npos;

  // `lowered` holds no A to Z; it may be empty (found everywhere).
  explicit FoldedNeedle(std::string lowered);

  const std::string& text() const { return lowered_; }

  // Offset of the first occurrence in `haystack` at or after `from`, npos when there is none.
  // Looks little further than the occurrence, so going from one to the next takes linear time.
  std::size_t find(std::string_view haystack, std::size_t from = 0) const;

  bool isIn(std::string_view haystack) const { return find(haystack) != npos; }

  // Offset of the first occurrence that begins at or after `from` and before `end`; `end` may lie
  // beyond the haystack.
  std::size_t findBefore(std::string_view haystack, std::size_t from, std::size_t end) const;

 private:
  bool isAt(const char* place) const;

  std::string lowered_;
  std::size_t rarest_ = 0;  // index of the byte that is scanned for
};

// A word of a query: it is found where any of its script variants is.
class QueryToken {
 public:
  explicit QueryToken(const std::vector<std::string>& loweredVariants);

  // Offset of the first occurrence of any variant at or after `from`, npos when there is none.
  // Looks little further than the occurrence, whichever variants are missing.
  std::size_t find(std::string_view haystack, std::size_t from = 0) const;

  bool isIn(std::string_view haystack) const { return find(haystack) != FoldedNeedle::npos; }

 private:
  std::vector<FoldedNeedle> variants_;
};

}  // namespace velta
