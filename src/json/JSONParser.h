// JSON parser: one grammar (RFC 8259, with the leniencies below), two ways to consume it.
//
//   JSON value = parseJSON(bytes);              // throws JSONParseError
//   parseJSONEvents(bytes, handler);            // the same grammar, driving a handler
//
// Leniencies, all on purpose: raw control bytes inside strings, leading zeros, "+1", and a lone
// surrogate escape (becomes U+FFFD). Ill-formed UTF-8 inside strings becomes U+FFFD. Depth is not
// limited. A number without fraction and exponent that fits 64 bits is an integer, every other is a
// double.
//
// A handler has these members. Views are valid during the call only, but for those that lie in the
// bytes themselves, which texts without escapes do:
//   void onNull(); void onBool(bool); void onInt(std::int64_t); void onDouble(double);
//   void onString(std::string_view); void onKey(std::string_view);
//   void onObjectBegin(); void onObjectEnd(); void onArrayBegin(); void onArrayEnd();
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSON.h"
#include "json/JSONLexer.h"

namespace velta {

// A fault in JSON text; what() is the whole message, for example "expected a key at byte 7".
class JSONParseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The value of `bytes`. Throws JSONParseError.
JSON parseJSON(std::string_view bytes);

// Drives `handler` through `bytes`; on a fault the handler has seen everything before it.
// Throws JSONParseError.
template <class Handler>
void parseJSONEvents(std::string_view bytes, Handler& handler);

// A handler that builds a value. A handler of one's own can forward parts of a document to it. Of
// a repeated key the last value counts, in the place of the first.
class JSONBuilder {
 public:
  void onNull() { values_.emplace_back(); }
  void onBool(bool value) { values_.emplace_back(value); }
  void onInt(std::int64_t value) { values_.emplace_back(value); }
  void onDouble(double value) { values_.emplace_back(value); }
  void onString(std::string_view value) {
    if (value.size() > JSON::kShortCapacity && value.size() <= kLongestWaiting) {
      values_.emplace_back().waitAt(texts_.size(), value.size());
      texts_ += value;
    } else {
      values_.emplace_back(value);
    }
  }
  void onKey(std::string_view key) { values_.emplace_back(key); }
  void onObjectBegin() { onArrayBegin(); }
  void onObjectEnd();
  void onArrayBegin() { open_.push_back({values_.size(), texts_.size()}); }
  void onArrayEnd();

  // The finished value; call it once, after the value's last event.
  JSON take();

 private:
  // Longer texts have memory of their own at once: to copy them twice would cost more than that.
  static constexpr std::size_t kLongestWaiting = 1024;

  // Where in values_ and texts_ an open container begins.
  struct Open {
    std::size_t values;
    std::size_t texts;
  };
  Open close();

  // What is in no finished container yet: the elements, and the keys and values in turn, of all
  // the open containers. A container that ends takes its part off the end, knowing its size.
  std::vector<JSON> values_;
  std::string texts_;  // those of values_ that wait
  std::vector<Open> open_;
};

// The grammar. It keeps no more than a byte for each level it is in.
template <class Handler>
class JSONEventParser {
 public:
  JSONEventParser(std::string_view bytes, Handler& handler) : lexer_(bytes), handler_(handler) {}

  void parseDocument() {
    const char* at = lexer_.skipWhiteSpace(lexer_.begin());
    do {
      if (inside_ == Container::object) at = parseKey(at);
      at = parseValue(at);
    } while (goToNextValue(at));
    if (at != lexer_.end()) lexer_.fail(at, "trailing characters");
  }

 private:
  enum class Container : std::uint8_t { none, array, object };

  // Those that return a place take the one that they begin at and tell the one behind what they
  // took.

  // A scalar or an empty container; or the beginning of another one, up to its first key or value.
  const char* parseValue(const char* at) {
    if (at == lexer_.end()) {
      lexer_.fail(at, inside_ == Container::array ? "unexpected end in array" : "unexpected end");
    }
    switch (*at) {
      case '"':
        return parseString(at);
      case '{':
        return beginObject(at);
      case '[':
        return beginArray(at);
      case 't':
        at = lexer_.readWord(at, "true");
        handler_.onBool(true);
        return at;
      case 'f':
        at = lexer_.readWord(at, "false");
        handler_.onBool(false);
        return at;
      case 'n':
        at = lexer_.readWord(at, "null");
        handler_.onNull();
        return at;
      default:
        return parseNumber(at);
    }
  }

  const char* parseString(const char* at) {
    const auto [text, next] = lexer_.readString(at);
    handler_.onString(text);
    return next;
  }

  const char* parseNumber(const char* at) {
    const JSONLexer::Number number = lexer_.readNumber(at);
    if (number.isInteger) {
      handler_.onInt(number.integer);
    } else {
      handler_.onDouble(number.number);
    }
    return number.next;
  }

  const char* beginObject(const char* at) {
    handler_.onObjectBegin();
    at = lexer_.skipWhiteSpace(at + 1);
    if (!lexer_.isAt(at, '}')) {
      enter(Container::object);
      return at;
    }
    handler_.onObjectEnd();
    return at + 1;
  }

  const char* beginArray(const char* at) {
    handler_.onArrayBegin();
    at = lexer_.skipWhiteSpace(at + 1);
    if (!lexer_.isAt(at, ']')) {
      enter(Container::array);
      return at;
    }
    handler_.onArrayEnd();
    return at + 1;
  }

  void enter(Container container) {
    outer_.push_back(inside_);
    inside_ = container;
    atFirst_ = true;
  }

  // A key with its colon, up to the value.
  const char* parseKey(const char* at) {
    if (at == lexer_.end()) lexer_.fail(at, "unexpected end in object");
    if (*at != '"') lexer_.fail(at, "expected a key");
    const auto [key, next] = lexer_.readString(at);
    handler_.onKey(key);
    at = lexer_.isAt(next, ':') ? next : lexer_.skipWhiteSpace(next);
    if (!lexer_.isAt(at, ':')) lexer_.fail(at, "expected :");
    return lexer_.skipWhiteSpace(at + 1);
  }

  // From behind what parseValue took to the next key or value, by way of the ends of containers.
  // False at the end of the document.
  bool goToNextValue(const char*& at) {
    if (std::exchange(atFirst_, false)) return true;
    for (;;) {
      if (!lexer_.isAt(at, ',')) at = lexer_.skipWhiteSpace(at);
      if (inside_ == Container::none) return false;
      if (lexer_.isAt(at, ',')) {
        at = lexer_.skipWhiteSpace(at + 1);
        return true;
      }
      at = endContainer(at);
    }
  }

  // The closing bracket of the innermost container, which has to be there.
  const char* endContainer(const char* at) {
    const bool isObject = inside_ == Container::object;
    if (at == lexer_.end()) {
      lexer_.fail(at, isObject ? "unexpected end in object" : "unexpected end in array");
    }
    if (*at != (isObject ? '}' : ']')) {
      lexer_.fail(at, isObject ? "expected , or }" : "expected , or ]");
    }
    if (isObject) {
      handler_.onObjectEnd();
    } else {
      handler_.onArrayEnd();
    }
    inside_ = outer_.back();
    outer_.pop_back();
    return at + 1;
  }

  JSONLexer lexer_;
  Handler& handler_;
  Container inside_ = Container::none;  // the innermost open one
  std::vector<Container> outer_;        // what each open container is in, the outermost first
  bool atFirst_ = false;  // parseValue has stopped at a container's first key or value
};

template <class Handler>
void parseJSONEvents(std::string_view bytes, Handler& handler) {
  JSONEventParser<Handler>(bytes, handler).parseDocument();
}

}  // namespace velta
