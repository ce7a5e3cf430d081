// JSONLexer: the words of JSON text, for the parser of JSONParser.h.
//
// Every function that reads takes the place where a word begins and tells the place behind it, so
// that the parser's place is a variable of its own, which stays in a register: as a member of the
// lexer it made every word wait for memory. Places are pointers into the bytes, which outlive the
// lexer. What reads throws JSONParseError on a fault.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "json/Scan.h"

namespace velta {

class JSONLexer {
 public:
  explicit JSONLexer(std::string_view bytes);

  const char* begin() const { return begin_; }
  const char* end() const { return end_; }
  // Whether `byte` stands at `at`.
  bool isAt(const char* at, char byte) const { return at != end_ && *at == byte; }

  const char* skipWhiteSpace(const char* at) const {
    // None and one are by far the most frequent; longer runs are indentation.
    if (at == end_ || isVisible(*at)) return at;
    if (*at == ' ' && at + 1 != end_ && isVisible(at[1])) return at + 1;
    return skipIndentation(at);
  }

  // Goes past `word`, whose first letter stands at `at`.
  const char* readWord(const char* at, std::string_view word) const;

  struct Text {
    std::string_view text;
    const char* next;
  };
  // The text of the string whose opening quote stands at `at`, as well-formed UTF-8. The view is of
  // the input or of a buffer: it is valid until the next string is read.
  Text readString(const char* at) {
    const char* const start = at + 1;
    const char* const stop = findStringEnd(start, end_);
    if (wellFormed_ && isAt(stop, '"')) return {{start, stop}, stop + 1};
    return readDifficultString(start, stop);
  }

  struct Number {
    bool isInteger;
    std::int64_t integer;
    double number;
    const char* next;
  };
  // The number at `start`; whatever begins nothing else counts as a faulty number.
  Number readNumber(const char* start) const;

  // Throws JSONParseError: `text` and the place.
  [[noreturn]] void fail(const char* at, std::string_view text) const;

 private:
  // Neither white space nor a control character.
  static bool isVisible(char byte) { return static_cast<unsigned char>(byte) > ' '; }
  const char* skipIndentation(const char* at) const;
  Text readDifficultString(const char* start, const char* stop);
  const char* collectEscapedString(const char* start, const char* at);
  const char* readEscape(const char* at);
  const char* readUnicodeEscape(const char* at);
  std::uint32_t readHexDigits(const char* at) const;
  bool isUnicodeEscape(const char* at) const;
  Number readUnusualNumber(const char* start) const;

  const char* begin_;
  const char* end_;
  bool wellFormed_;        // the whole input is well-formed UTF-8, so its strings are
  std::string collected_;  // the last string with escapes or with ill-formed UTF-8
};

}  // namespace velta
