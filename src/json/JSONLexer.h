// JSONLexer: the words of JSON text, one after another, for the parser of JSONParser.h.
//
// It holds a cursor into bytes that outlive it. Every function that reads throws JSONParseError on
// a fault.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "json/Scan.h"
#include "platform/Text.h"

namespace velta {

class JSONLexer {
 public:
  explicit JSONLexer(std::string_view bytes)
      : begin_(bytes.data()),
        at_(begin_),
        end_(begin_ + bytes.size()),
        isWellFormed_(isValidUTF8(bytes)) {}

  bool atEnd() const { return at_ == end_; }
  // The byte at the cursor, which is not at the end.
  char peek() const { return *at_; }
  // Whether `byte` stands at the cursor.
  bool isAt(char byte) const { return at_ != end_ && *at_ == byte; }
  void skip() { ++at_; }

  void skipWhiteSpace() {
    // None and one are by far the most frequent; longer runs are indentation.
    if (at_ == end_ || !isSpace(*at_)) return;
    ++at_;
    if (at_ != end_ && isSpace(*at_)) at_ = findNonSpace(at_, end_);
  }

  // Goes past `word`, whose first letter stands at the cursor.
  void readWord(std::string_view word);

  // The text of the string whose opening quote stands at the cursor, as well-formed UTF-8. The view
  // is of the input or of a buffer: it is valid until the next string is read.
  std::string_view readString() {
    const char* const start = ++at_;
    at_ = isWellFormed_ ? findStringEnd(start, end_) : findStringEndOrNonASCII(start, end_);
    if (at_ != end_ && *at_ == '"') return {start, at_++};
    return readDifficultString(start);
  }

  struct Number {
    bool isInteger;
    std::int64_t integer;
    double number;
  };
  // The number at the cursor; whatever begins nothing else counts as a faulty number.
  Number readNumber();

  // Throws JSONParseError: `text` and the cursor's place.
  [[noreturn]] void fail(std::string_view text) const;

 private:
  static bool isSpace(char byte) {
    return static_cast<unsigned char>(byte) <= ' ' &&
           (byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t');
  }
  std::string_view readDifficultString(const char* start);
  void collectEscapedString(const char* start);
  void readEscape();
  void readUnicodeEscape();
  std::uint32_t readHexDigits();
  bool skipUnicodeEscapeStart();
  std::size_t readDigits(std::uint64_t& value);
  Number readUnusualNumber();

  const char* begin_;
  const char* at_;
  const char* end_;
  // Whether all of the input is UTF-8, as nearly every input is: then no string has to be looked at
  // for that, and the look at all of it at once takes a fraction of the time.
  const bool isWellFormed_;
  std::string collected_;  // the last string with escapes or with ill-formed UTF-8
};

}  // namespace velta
