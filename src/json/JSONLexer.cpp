#include "json/JSONLexer.h"

#include <array>
#include <charconv>
#include <cstdlib>

#include "json/JSONParser.h"
#include "platform/Text.h"

namespace velta {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }
bool isNumberByte(char byte) {
  return isDigit(byte) || byte == '.' || byte == 'e' || byte == 'E' || byte == '-' || byte == '+';
}

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// The powers of ten that a double holds exactly and that kSafeDigits asks for.
constexpr std::array<double, 19> kPowersOfTen = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,
                                                 1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13,
                                                 1e14, 1e15, 1e16, 1e17, 1e18};
constexpr std::size_t kSafeDigits = 18;  // so many fit 64 bits, with a sign
constexpr std::uint64_t kExactIntegers = std::uint64_t{1} << 53;  // up to here doubles hold all

}  // namespace

void JSONLexer::fail(std::string_view text) const {
  throw JSONParseError(std::string(text) + " at byte " + std::to_string(at_ - begin_));
}

void JSONLexer::readWord(std::string_view word) {
  const std::string_view rest(at_, static_cast<std::size_t>(end_ - at_));
  if (!rest.starts_with(word)) fail("expected " + std::string(word));
  at_ += word.size();
}

// A string in which the cursor has come to an escape, a non-ASCII byte or the end of the input.
std::string_view JSONLexer::readDifficultString(const char* start) {
  const char* const firstDifficulty = at_;
  at_ = findStringEnd(at_, end_);
  std::string_view text;
  if (isAt('"')) {
    text = {start, at_};
    if (isValidUTF8({firstDifficulty, at_})) {
      skip();
      return text;
    }
  } else {
    collectEscapedString(start);
    text = collected_;
  }
  skip();
  if (!isWellFormed_ && !isValidUTF8(text)) {
    collected_ = repairUTF8(text);
    text = collected_;
  }
  return text;
}

// Collects the bytes of a string up to its closing quote, where the cursor then stands. On entry
// it stands at the string's first backslash or at the end of the input.
void JSONLexer::collectEscapedString(const char* start) {
  collected_.assign(start, at_);
  while (!isAt('"')) {
    if (atEnd()) fail("unterminated string");
    skip();
    readEscape();
    const char* const run = at_;
    at_ = findStringEnd(at_, end_);
    collected_.append(run, at_);
  }
}

// The letter after a backslash and what belongs to it.
void JSONLexer::readEscape() {
  if (atEnd()) fail("unterminated string");
  switch (peek()) {
    case '"':
    case '\\':
    case '/':
      collected_ += peek();
      break;
    case 'b':
      collected_ += '\b';
      break;
    case 'f':
      collected_ += '\f';
      break;
    case 'n':
      collected_ += '\n';
      break;
    case 'r':
      collected_ += '\r';
      break;
    case 't':
      collected_ += '\t';
      break;
    case 'u':
      skip();
      readUnicodeEscape();
      return;
    default:
      fail("bad escape");
  }
  skip();
}

// The digits of a \u escape and, after a high surrogate, the next \u escape with it.
void JSONLexer::readUnicodeEscape() {
  char32_t codePoint = readHexDigits();
  if (isHighSurrogate(codePoint) && skipUnicodeEscapeStart()) {
    const char32_t second = readHexDigits();
    // A high surrogate before an escape that is no low surrogate is dropped, on purpose: writers
    // that cut a pair in two lose the half character, not the character after it.
    codePoint = isLowSurrogate(second) ? 0x10000 + ((codePoint - 0xD800) << 10) + (second - 0xDC00)
                                       : second;
  }
  const bool lone = isHighSurrogate(codePoint) || isLowSurrogate(codePoint);
  appendUTF8(collected_, lone ? kReplacement : codePoint);
}

bool JSONLexer::skipUnicodeEscapeStart() {
  if (end_ - at_ < 2 || at_[0] != '\\' || at_[1] != 'u') return false;
  at_ += 2;
  return true;
}

// Four hexadecimal digits.
std::uint32_t JSONLexer::readHexDigits() {
  constexpr std::ptrdiff_t kDigits = 4;
  std::uint32_t value = 0;
  // from_chars takes no sign for an unsigned type and no prefix, so the digits are all it takes.
  const bool good =
      end_ - at_ >= kDigits && std::from_chars(at_, at_ + kDigits, value, 16).ptr == at_ + kDigits;
  if (!good) fail("bad \\u escape");
  at_ += kDigits;
  return value;
}

// The usual numbers, which need no copy: integers and plain decimal fractions that are short
// enough. An integer below 2^53 over a power of ten up to 10^22 is one correctly rounded division.
JSONLexer::Number JSONLexer::readNumber() {
  const char* const start = at_;
  const bool negative = isAt('-');
  if (negative) skip();
  std::uint64_t digits = 0;
  const std::size_t whole = readDigits(digits);
  std::size_t fraction = 0;
  const bool isInteger = !isAt('.');
  if (!isInteger) {
    skip();
    fraction = readDigits(digits);
  }
  const bool usual = whole > 0 && whole + fraction <= kSafeDigits && (isInteger || fraction > 0) &&
                     (atEnd() || !isNumberByte(peek()));
  if (usual && isInteger) {
    const auto value = static_cast<std::int64_t>(digits);
    return {true, negative ? -value : value, 0};
  }
  if (usual && digits <= kExactIntegers) {
    const double value = static_cast<double>(digits) / kPowersOfTen[fraction];
    return {false, 0, negative ? -value : value};
  }
  at_ = start;
  return readUnusualNumber();
}

// Goes past decimal digits, appends them to `value` (which may overflow), and tells their count.
std::size_t JSONLexer::readDigits(std::uint64_t& value) {
  const char* const start = at_;
  while (at_ != end_ && isDigit(*at_))
    value = 10 * value + static_cast<std::uint64_t>(*at_++ - '0');
  return static_cast<std::size_t>(at_ - start);
}

// Whatever number stands at the cursor, by the library.
JSONLexer::Number JSONLexer::readUnusualNumber() {
  const char* const start = at_;
  if (isAt('-')) skip();
  const char* const digits = at_;
  while (at_ != end_ && isNumberByte(*at_)) skip();
  if (at_ == start) fail("unexpected character");
  if (std::all_of(digits, at_, isDigit)) {
    std::int64_t integer = 0;
    const auto [stop, error] = std::from_chars(start, at_, integer);
    if (error == std::errc() && stop == at_) return {true, integer, 0};
  }
  // strtod wants a terminated text. Of what it takes beyond JSON (white space, inf, nan,
  // hexadecimal) nothing can be spelled with the bytes of a number. No part of the program calls
  // setlocale, so that the decimal point is a point.
  const std::string text(start, at_);
  char* stop = nullptr;
  const double number = std::strtod(text.c_str(), &stop);
  if (stop == text.c_str() || *stop != '\0') fail("bad number " + text);
  return {false, 0, number};
}

}  // namespace velta
