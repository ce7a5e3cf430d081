#include "json/JSONWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "json/Scan.h"
#include "platform/Files.h"

namespace velta {

namespace {

constexpr std::size_t kNumberRoom = 32;  // more than any number needs: -1.7976931348623157e+308

// Gathers what is written in a small buffer, through a raw pointer, and appends it to a string when
// the buffer is full and at the end: twice as fast as appending each piece to the string.
class Output {
 public:
  explicit Output(std::string& out) : out_(out) {}

  // Room for `count` bytes, at most kCapacity; advance() says how many of them were used.
  char* reserve(std::size_t count) {
    if (buffer_.size() - size_ < count) flush();
    return buffer_.data() + size_;
  }
  void advance(std::size_t count) { size_ += count; }
  // Bytes written so far, with what was there before.
  std::size_t written() const { return out_.size() + size_; }
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

constexpr std::size_t kLongestEscape = 6;  // \u001f

// Writes the escape of `byte` to `to` and tells where it ends.
char* writeEscape(char* to, char byte) {
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
  *to++ = letter;
  if (letter != 'u') return to;
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  const auto code = static_cast<unsigned char>(byte);
  *to++ = '0';
  *to++ = '0';
  *to++ = kHexDigits[code >> 4];
  *to++ = kHexDigits[code & 0xF];
  return to;
}

// Writes `text` with its escapes to `to`, which has room for kLongestEscape times its size and one
// block, and tells where it ends.
char* writeEscaped(char* to, std::string_view text) {
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    const std::size_t count = std::min(static_cast<std::size_t>(end - at), kBlockSize);
    const Block block = count == kBlockSize ? Block::load(at) : Block::loadPart(at, count);
    block.store(to);
    const std::size_t plain = std::min(escapable(block).firstSet(), count);
    at += plain;
    to += plain;
    if (plain < count) to = writeEscape(to, *at++);
  }
  return to;
}

void putQuoted(Output& out, std::string_view text) {
  constexpr std::size_t kSlice = 2048;  // so that the room for nothing but escapes is in the buffer
  constexpr std::size_t kQuotes = 2;
  bool first = true;
  do {
    const std::string_view slice = text.substr(0, kSlice);
    text.remove_prefix(slice.size());
    char* const start = out.reserve(kLongestEscape * slice.size() + kBlockSize + kQuotes);
    char* to = start;
    if (std::exchange(first, false)) *to++ = '"';
    to = writeEscaped(to, slice);
    if (text.empty()) *to++ = '"';
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
  Writer(std::string& out, std::optional<int> width)
      : out_(out),
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
    out_.put('\n');
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
