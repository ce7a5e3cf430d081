#include "json/JSONWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "json/Scan.h"
#include "platform/Files.h"

namespace velta {

namespace {

constexpr std::size_t kNumberRoom = 32;  // more than any number needs: -1.7976931348623157e+308

// Whether the text that is written stands by itself or in a JSON string, where its quotes,
// backslashes and line feeds have escapes of their own.
enum class Place { byItself, inString };

// Gathers what is written in a small buffer, through a raw pointer, and appends it to a string when
// the buffer is full and at the end: twice as fast as appending each piece to the string.
class Output {
 public:
  explicit Output(std::string& out, Place place = Place::byItself) : out_(out), place_(place) {}

  bool isInString() const { return place_ == Place::inString; }

  // Room for `count` bytes, at most kCapacity; advance() says how many of them were used.
  char* reserve(std::size_t count) {
    if (buffer_.size() - size_ < count) flush();
    return buffer_.data() + size_;
  }
  void advance(std::size_t count) { size_ += count; }
  // Tells that `count` bytes are there only because the text stands in a string.
  void addSurplus(std::size_t count) { surplus_ += count; }
  // Bytes of the text so far, without that surplus.
  std::size_t written() const { return out_.size() - begin_ + size_ - surplus_; }
  void flush() {
    out_.append(buffer_.data(), size_);
    size_ = 0;
  }

  void put(char byte) {
    *reserve(1) = byte;
    advance(1);
  }
  void put(std::string_view shortText) {
    std::memcpy(reserve(shortText.size()), shortText.data(), shortText.size());
    advance(shortText.size());
  }
  void putLineFeed() {
    if (!isInString()) return put('\n');
    put("\\n");
    addSurplus(1);
  }
  void putSpaces(std::size_t count) {
    for (std::size_t part = 0; count > 0; count -= part) {
      part = std::min(count, kCapacity);
      std::memset(reserve(part), ' ', part);
      advance(part);
    }
  }

 private:
  static constexpr std::size_t kCapacity = 16384;

  std::string& out_;
  const Place place_;
  const std::size_t begin_ = out_.size();
  std::size_t surplus_ = 0;
  std::array<char, kCapacity> buffer_;  // not initialised, on purpose
  std::size_t size_ = 0;
};

void putInteger(Output& out, std::int64_t value) {
  char* const start = out.reserve(kNumberRoom);
  out.advance(
      static_cast<std::size_t>(std::to_chars(start, start + kNumberRoom, value).ptr - start));
}

// Whether `value` has at most three decimals and fifteen digits, as times and durations do; if so,
// writes it. Decimals of up to fifteen digits are read as different doubles, so one that reads back
// as `value` is the shortest that does. Four times as fast as std::to_chars.
bool putShortDecimal(Output& out, double value) {
  constexpr double kScale = 1000;
  constexpr double kLimit = 1e12;
  const double magnitude = std::abs(value);
  if (!(magnitude < kLimit)) return false;
  // Where this rounds wrongly the next line finds out; std::llround takes longer.
  // NOLINTNEXTLINE(bugprone-incorrect-roundings)
  const auto thousandths = static_cast<std::int64_t>(magnitude * kScale + 0.5);
  if (static_cast<double>(thousandths) / kScale != magnitude) return false;

  char* const start = out.reserve(kNumberRoom);
  char* at = start;
  if (std::signbit(value)) *at++ = '-';
  at = std::to_chars(at, start + kNumberRoom, thousandths / 1000).ptr;
  const auto decimals = static_cast<int>(thousandths % 1000);
  *at++ = '.';
  *at++ = static_cast<char>('0' + decimals / 100);
  if (decimals % 100 != 0) *at++ = static_cast<char>('0' + decimals / 10 % 10);
  if (decimals % 10 != 0) *at++ = static_cast<char>('0' + decimals % 10);
  out.advance(static_cast<std::size_t>(at - start));
  return true;
}

void putDouble(Output& out, double value) {
  if (std::isnan(value)) return out.put("NaN");
  if (std::isinf(value)) return out.put(value > 0 ? "Infinity" : "-Infinity");
  if (putShortDecimal(out, value)) return;
  const double magnitude = std::abs(value);
  const bool fixed = magnitude >= 1e-4 && magnitude < 1e16;
  char* const start = out.reserve(kNumberRoom);
  char* const end = std::to_chars(start, start + kNumberRoom, value,
                                  fixed ? std::chars_format::fixed : std::chars_format::scientific)
                        .ptr;
  out.advance(static_cast<std::size_t>(end - start));
  if (fixed && std::find(start, end, '.') == end) out.put(".0");
}

constexpr std::size_t kLongestEscape = 7;  // \\u001f, in a string

// Writes the escape of `byte` to `to`, which is in `out`, and tells where it ends.
char* writeEscape(char* to, char byte, Output& out) {
  const auto letter = [&]() -> char {
    switch (byte) {
      case '"':
      case '\\':
        return byte;
      case '\b':
        return 'b';
      case '\t':
        return 't';
      case '\n':
        return 'n';
      case '\f':
        return 'f';
      case '\r':
        return 'r';
      default:
        return 'u';
    }
  }();
  *to++ = '\\';
  if (out.isInString()) {
    // This backslash gets another one, and so does the quote or backslash behind it.
    const std::size_t surplus = letter == byte ? 2 : 1;
    to = std::fill_n(to, surplus, '\\');
    out.addSurplus(surplus);
  }
  *to++ = letter;
  if (letter != 'u') return to;
  constexpr std::string_view kDigits = "0123456789abcdef";
  const auto code = static_cast<unsigned char>(byte);
  *to++ = '0';
  *to++ = '0';
  *to++ = kDigits[code >> 4];
  *to++ = kDigits[code & 0xF];
  return to;
}

// Writes `text` with its escapes to `to`, which is in `out` and has room for kLongestEscape times
// its size and one block, and tells where it ends.
char* writeEscaped(char* to, std::string_view text, Output& out) {
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    const auto left = static_cast<std::size_t>(end - at);
    const Block block = left >= kBlockSize ? Block::load(at) : Block::loadPart(at, left);
    block.store(to);
    const std::size_t plain = escapable(block).firstSet();
    if (plain >= left) return to + left;
    if (plain == kBlockSize) {
      at += kBlockSize;  // a constant: the next block need not wait until `plain` is known
      to += kBlockSize;
    } else {
      at += plain;
      to = writeEscape(to + plain, *at++, out);
    }
  }
  return to;
}

char* writeQuote(char* to, Output& out) {
  if (out.isInString()) {
    *to++ = '\\';
    out.addSurplus(1);
  }
  *to++ = '"';
  return to;
}

void putQuoted(Output& out, std::string_view text) {
  constexpr std::size_t kSlice = 2048;  // so that the room for nothing but escapes is in the buffer
  constexpr std::size_t kQuotes = 4;    // bytes, in a string
  bool first = true;
  do {
    const std::string_view slice = text.substr(0, kSlice);
    text.remove_prefix(slice.size());
    char* const start = out.reserve(kLongestEscape * slice.size() + kBlockSize + kQuotes);
    char* to = start;
    if (std::exchange(first, false)) to = writeQuote(to, out);
    to = writeEscaped(to, slice, out);
    if (text.empty()) to = writeQuote(to, out);
    out.advance(static_cast<std::size_t>(to - start));
  } while (!text.empty());
}

// Indentation beyond this many bytes has to stay below this multiple of what it indents.
constexpr std::size_t kMaxIndentation = std::size_t{64} * 1024 * 1024;
constexpr std::size_t kMaxIndentationShare = 8;

// Writes one value; keeps a list of the open arrays and objects instead of recursing.
class Writer {
 public:
  // `width` spaces a level, or compact.
  Writer(std::string& out, std::optional<int> width, Place place = Place::byItself)
      : out_(out, place),
        indented_(width.has_value()),
        width_(static_cast<std::size_t>(width.value_or(0))) {}

  void write(const JSON& value) {
    begin(value);
    finish();
  }
  void write(const JSONObject& object) {
    begin(object);
    finish();
  }

 private:
  // An open array or object: what of it is still to be written.
  struct Level {
    bool isObject;
    bool first = true;
    const JSON* element = nullptr;
    const JSON* elementsEnd = nullptr;
    JSONObject::ConstIterator member = {};
    JSONObject::ConstIterator membersEnd = {};

    bool atEnd() const { return isObject ? member == membersEnd : element == elementsEnd; }
  };

  void finish() {
    while (!levels_.empty()) {
      if (levels_.back().atEnd()) {
        end();
      } else {
        next();
      }
    }
    out_.flush();
  }

  // Writes a scalar or an empty container, or the opening bracket of another.
  void begin(const JSON& value) {
    switch (value.kind()) {
      case JSON::Kind::boolean:
        return out_.put(*value.asBool() ? "true" : "false");
      case JSON::Kind::integer:
        return putInteger(out_, *value.asInt());
      case JSON::Kind::number:
        return putDouble(out_, *value.asDouble());
      case JSON::Kind::string:
        return putQuoted(out_, *value.asString());
      case JSON::Kind::array:
        return begin(*value.asArray());
      case JSON::Kind::object:
        return begin(*value.asObject());
      case JSON::Kind::null:
        return out_.put("null");
    }
  }

  void begin(const JSON::Array& array) {
    if (array.empty()) return out_.put("[]");
    out_.put('[');
    levels_.push_back(
        {.isObject = false, .element = array.data(), .elementsEnd = array.data() + array.size()});
  }

  void begin(const JSONObject& object) {
    if (object.empty()) return out_.put("{}");
    out_.put('{');
    levels_.push_back({.isObject = true, .member = object.begin(), .membersEnd = object.end()});
  }

  // The next element or member of the innermost container.
  void next() {
    Level& level = levels_.back();
    if (!std::exchange(level.first, false)) out_.put(',');
    breakLine();
    if (!level.isObject) return begin(*level.element++);
    const auto [key, value] = *level.member++;
    putQuoted(out_, key);
    out_.put(indented_ ? ": " : ":");
    begin(value);
  }

  // The closing bracket of the innermost container.
  void end() {
    const char bracket = levels_.back().isObject ? '}' : ']';
    levels_.pop_back();
    breakLine();
    out_.put(bracket);
  }

  void breakLine() {
    if (!indented_) return;
    out_.putLineFeed();
    out_.putSpaces(levels_.size() * width_);
    indentation_ += levels_.size() * width_;
    // Blanks grow with the square of the depth: 100 KB of brackets would become 5 GB of them.
    const std::size_t content = out_.written() - indentation_;
    if (indentation_ > kMaxIndentation && indentation_ / kMaxIndentationShare > content) {
      throw std::length_error("nested too deeply to be written with indentation");
    }
  }

  Output out_;
  const bool indented_;
  const std::size_t width_;
  std::size_t indentation_ = 0;  // blanks written so far
  std::vector<Level> levels_;
};

}  // namespace

std::string writeCompact(const JSON& value) {
  std::string out;
  appendCompact(out, value);
  return out;
}

std::string writeCompact(const JSONObject& object) {
  std::string out;
  appendCompact(out, object);
  return out;
}

std::string writeIndented(const JSON& value, int width) {
  std::string out;
  appendIndented(out, value, width);
  return out;
}

std::string writeIndented(const JSONObject& object, int width) {
  std::string out;
  appendIndented(out, object, width);
  return out;
}

void appendCompact(std::string& out, const JSON& value) { Writer(out, std::nullopt).write(value); }

void appendCompact(std::string& out, const JSONObject& object) {
  Writer(out, std::nullopt).write(object);
}

void appendIndented(std::string& out, const JSON& value, int width) {
  Writer(out, width).write(value);
}

void appendIndented(std::string& out, const JSONObject& object, int width) {
  Writer(out, width).write(object);
}

void appendIndentedQuoted(std::string& out, const JSONObject& object, int width) {
  out += '"';
  Writer(out, width, Place::inString).write(object);
  out += '"';
}

void appendQuoted(std::string& out, std::string_view text) {
  Output output(out);
  putQuoted(output, text);
  output.flush();
}

void writeJSONFile(const JSONObject& object, const std::string& path, int width,
                   std::optional<mode_t> permissions) {
  writeFileAtomically(path, writeIndented(object, width), permissions);
}

}  // namespace velta
