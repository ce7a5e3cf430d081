// Regex: a compiled regular expression (PCRE2), matched against UTF-8.
//
// Syntax and meaning: Perl's, with look-behind and lazy quantifiers; "\s" is Unicode white space,
// "\d" is written [0-9] by our patterns; "." stops at every Unicode line end; "$" is the very end
// of the text, never the place before a final line feed. A compiled expression is immutable and may
// be matched from several threads at once.
//
//   static const Regex date("([0-9]{4})-([0-9]{2})-([0-9]{2})");
//   if (auto match = date.search("on 2026-10-12")) { match->group(1);  /* "2026" */ }
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velta {

class Regex {
 public:
  // One match. Groups are views into the subject, which must outlive it.
  class Match {
   public:
    // Text of group `index` (0 is the whole match); empty when the group took no part.
    std::string_view group(std::size_t index) const;
    // Byte offsets of the whole match in the subject.
    std::size_t begin() const;
    std::size_t end() const;

   private:
    friend class Regex;
    std::string_view subject_;
    std::vector<std::size_t> offsets_;  // begin and end of every group, in turn
  };

  // Throws std::invalid_argument when `pattern` does not compile.
  explicit Regex(std::string_view pattern);
  ~Regex();
  Regex(Regex&&) noexcept;
  Regex& operator=(Regex&&) noexcept;
  Regex(const Regex&) = delete;
  Regex& operator=(const Regex&) = delete;

  // The first match in `subject` at or after byte `from`. `subject` must be well-formed UTF-8.
  std::optional<Match> search(std::string_view subject, std::size_t from = 0) const;

  // Whether there is a match anywhere.
  bool matches(std::string_view subject) const;

  // `subject` with every match replaced by `replacement`, taken literally.
  std::string replaceAll(std::string_view subject, std::string_view replacement) const;

 private:
  struct Code;
  std::unique_ptr<Code> code_;
};

}  // namespace velta
