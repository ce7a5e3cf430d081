#include "json/JSONLexer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <system_error>

#include "json/JSONParser.h"
#include "platform/Text.h"

namespace velta {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

// What may stand in a number.
constexpr std::array<bool, 256> kNumberBytes = [] {
  std::array<bool, 256> table{};
  for (const char byte : std::string_view("0123456789.eE-+")) {
    table[static_cast<unsigned char>(byte)] = true;
  }
  return table;
}();
bool isNumberByte(char byte) { return kNumberBytes[static_cast<unsigned char>(byte)]; }

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// The powers of ten that a double holds exactly and that kSafeDigits asks for.
constexpr std::array<double, 19> kPowersOfTen = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,
                                                 1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13,
                                                 1e14, 1e15, 1e16, 1e17, 1e18};
constexpr std::size_t kSafeDigits = 18;  // so many fit 64 bits, with a sign
constexpr std::uint64_t kExactIntegers = std::uint64_t{1} << 53;  // up to here doubles hold all

constexpr std::ptrdiff_t kHexDigits = 4;  // of a \u escape
constexpr std::string_view kUnicodeEscape = "\\u";

JSONLexer::Number integer(std::uint64_t digits, bool negative, const char* next) {
  const auto value = static_cast<std::int64_t>(digits);
  return {true, negative ? -value : value, 0, next};
}

// An integer up to 2^53 over a power of ten up to 10^22 is one correctly rounded division.
JSONLexer::Number fraction(std::uint64_t digits, std::size_t decimals, bool negative,
                           const char* next) {
  const double value = static_cast<double>(digits) / kPowersOfTen[decimals];
  return {false, 0, negative ? -value : value, next};
}

constexpr std::size_t kWordSize = sizeof(std::uint64_t);
constexpr std::uint64_t eachByte(std::uint64_t byte) { return 0x0101010101010101 * byte; }

// The value of `count` decimal digits, 1 to 8, in the bytes of a word, the first one lowest. What
// is in the other bytes does not matter.
std::uint64_t valueOfDigits(std::uint64_t digits, std::size_t count) {
  digits <<= 8 * (kWordSize - count);  // so zeros come in front of them
  // Neighbours are joined to pairs, these to fours, and these to all.
  digits = (digits * 10 + (digits >> 8)) & 0x00FF00FF00FF00FF;
  digits = (digits * 100 + (digits >> 16)) & 0x0000FFFF0000FFFF;
  return (digits * 10000 + (digits >> 32)) & 0x00000000FFFFFFFF;
}

// Reads an integer or decimal fraction that ends within the eight bytes at `at`, as nearly all do,
// and tells whether there was one. There is no branch for a digit: that of the last one would
// mostly be guessed wrongly.
bool readShortNumber(const char* at, bool negative, JSONLexer::Number& number) {
  const std::uint64_t bytes = loadWord<std::uint64_t>(at) ^ eachByte('0');
  // The highest bit of each byte that is no digit, and the numbers of the first two such bytes.
  const std::uint64_t others =
      (((bytes & eachByte(0x7F)) + eachByte(0x80 - 10)) | bytes) & eachByte(0x80);
  const auto whole = static_cast<std::size_t>(std::countr_zero(others)) / 8;
  const auto next = static_cast<std::size_t>(std::countr_zero(others & (others - 1))) / 8;
  if (whole == 0 || whole == kWordSize) return false;
  if (at[whole] != '.') {
    number = integer(valueOfDigits(bytes, whole), negative, at + whole);
    return !isNumberByte(at[whole]);
  }
  if (next == whole + 1 || next == kWordSize || isNumberByte(at[next])) return false;
  const std::uint64_t beforePoint = (std::uint64_t{1} << (8 * whole)) - 1;
  const std::uint64_t digits = (bytes & beforePoint) | ((bytes >> 8) & ~beforePoint);
  number = fraction(valueOfDigits(digits, next - 1), next - 1 - whole, negative, at + next);
  return true;
}

}  // namespace

JSONLexer::JSONLexer(std::string_view bytes)
    : begin_(bytes.data()), end_(begin_ + bytes.size()), wellFormed_(isValidUTF8(bytes)) {}

void JSONLexer::fail(const char* at, std::string_view text) const {
  throw JSONParseError(std::string(text) + " at byte " + std::to_string(at - begin_));
}

// White space that is mostly a line break and then blanks, which take one comparison a block.
const char* JSONLexer::skipIndentation(const char* at) const {
  if (*at == '\n') at = findNonBlank(at + 1, end_);
  return at == end_ || isVisible(*at) ? at : findNonSpace(at, end_);
}

const char* JSONLexer::readWord(const char* at, std::string_view word) const {
  const std::string_view rest(at, static_cast<std::size_t>(end_ - at));
  if (!rest.starts_with(word)) fail(at, "expected " + std::string(word));
  return at + word.size();
}

// A string with an escape or without an end, or one of an input that is not well-formed. `stop` is
// its first quote or backslash, or the end of the input.
JSONLexer::Text JSONLexer::readDifficultString(const char* start, const char* stop) {
  std::string_view text(start, stop);
  if (!isAt(stop, '"')) {
    stop = collectEscapedString(start, stop);
    text = collected_;
  }
  if (!wellFormed_ && !isValidUTF8(text)) {
    collected_ = repairUTF8(text);
    text = collected_;
  }
  return {text, stop + 1};
}

// Collects the bytes of a string up to its closing quote, and tells where that is. `at` is the
// string's first backslash or the end of the input.
const char* JSONLexer::collectEscapedString(const char* start, const char* at) {
  collected_.assign(start, at);
  while (!isAt(at, '"')) {
    if (at == end_) fail(at, "unterminated string");
    at = readEscape(at + 1);
    const char* const run = at;
    at = findStringEnd(at, end_);
    collected_.append(run, at);
  }
  return at;
}

// The letter after a backslash and what belongs to it.
const char* JSONLexer::readEscape(const char* at) {
  if (at == end_) fail(at, "unterminated string");
  switch (*at) {
    case '"':
    case '\\':
    case '/':
      collected_ += *at;
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
      return readUnicodeEscape(at + 1);
    default:
      fail(at, "bad escape");
  }
  return at + 1;
}

// The digits of a \u escape and, after a high surrogate, the next \u escape with it.
const char* JSONLexer::readUnicodeEscape(const char* at) {
  char32_t codePoint = readHexDigits(at);
  at += kHexDigits;
  if (isHighSurrogate(codePoint) && isUnicodeEscape(at)) {
    at += kUnicodeEscape.size();
    const char32_t second = readHexDigits(at);
    at += kHexDigits;
    // A high surrogate before an escape that is no low surrogate is dropped, on purpose: writers
    // that cut a pair in two lose the half character, not the character after it.
    codePoint = isLowSurrogate(second) ? 0x10000 + ((codePoint - 0xD800) << 10) + (second - 0xDC00)
                                       : second;
  }
  const bool lone = isHighSurrogate(codePoint) || isLowSurrogate(codePoint);
  appendUTF8(collected_, lone ? kReplacement : codePoint);
  return at;
}

bool JSONLexer::isUnicodeEscape(const char* at) const {
  return std::string_view(at, static_cast<std::size_t>(end_ - at)).starts_with(kUnicodeEscape);
}

std::uint32_t JSONLexer::readHexDigits(const char* at) const {
  std::uint32_t value = 0;
  // from_chars takes no sign for an unsigned type and no prefix, so the digits are all it takes.
  const bool good = end_ - at >= kHexDigits &&
                    std::from_chars(at, at + kHexDigits, value, 16).ptr == at + kHexDigits;
  if (!good) fail(at, "bad \\u escape");
  return value;
}

JSONLexer::Number JSONLexer::readNumber(const char* const start) const {
  const bool negative = isAt(start, '-');
  const char* at = negative ? start + 1 : start;
  Number number{};
  if (std::endian::native == std::endian::little && end_ - at >= std::ptrdiff_t{kWordSize}) {
    if (readShortNumber(at, negative, number)) return number;
  }
  std::uint64_t digits = 0;  // may overflow after kSafeDigits
  const auto readDigits = [&] {
    const char* const first = at;
    for (; at != end_ && isDigit(*at); ++at) {
      digits = 10 * digits + static_cast<std::uint64_t>(*at - '0');
    }
    return static_cast<std::size_t>(at - first);
  };
  const std::size_t whole = readDigits();
  const bool isInteger = !isAt(at, '.');
  if (!isInteger) ++at;
  const std::size_t decimals = isInteger ? 0 : readDigits();
  const bool usual = whole > 0 && whole + decimals <= kSafeDigits && (isInteger || decimals > 0) &&
                     (at == end_ || !isNumberByte(*at));
  if (usual && isInteger) {
    number = integer(digits, negative, at);
  } else if (usual && digits <= kExactIntegers) {
    number = fraction(digits, decimals, negative, at);
  } else {
    number = readUnusualNumber(start);
  }
  return number;
}

// Whatever number stands at `start`, by the library.
JSONLexer::Number JSONLexer::readUnusualNumber(const char* const start) const {
  const char* const digits = isAt(start, '-') ? start + 1 : start;
  const char* const at = std::find_if_not(digits, end_, isNumberByte);
  if (at == start) fail(at, "unexpected character");
  if (std::all_of(digits, at, isDigit)) {
    std::int64_t integer = 0;
    const auto [stop, error] = std::from_chars(start, at, integer);
    if (error == std::errc() && stop == at) return {true, integer, 0, at};
  }
  // strtod wants a terminated text. Of what it takes beyond JSON (white space, inf, nan,
  // hexadecimal) nothing can be spelled with the bytes of a number. No part of the program calls
  // setlocale, so that the decimal point is a point.
  const std::string text(start, at);
  char* stop = nullptr;
  const double number = std::strtod(text.c_str(), &stop);
  if (stop == text.c_str() || *stop != '\0') fail(at, "bad number " + text);
  return {false, 0, number, at};
}

}  // namespace velta
