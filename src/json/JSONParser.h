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
// A handler has these members; views are valid during the call only:
//   void onNull(); void onBool(bool); void onInt(std::int64_t); void onDouble(double);
//   void onString(std::string_view); void onKey(std::string_view);
//   void onObjectBegin(); void onObjectEnd(); void onArrayBegin(); void onArrayEnd();
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>
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
  void onString(std::string_view value) { values_.emplace_back(value); }
  void onKey(std::string_view key) { values_.emplace_back(key); }
  void onObjectBegin() { open_.push_back(values_.size()); }
  void onObjectEnd();
  void onArrayBegin() { open_.push_back(values_.size()); }
  void onArrayEnd();

  // The finished value; call it once, after the value's last event.
  JSON take();

 private:
  // What is in no finished container yet: the elements, and the keys and values in turn, of all
  // the open containers. A container that ends takes its part off the end, knowing its size.
  std::vector<JSON> values_;
  std::vector<std::size_t> open_;  // where in values_ each open container begins
};

// The grammar. It keeps no more than a bit for each level it is in.
template <class Handler>
class JSONEventParser {
 public:
  JSONEventParser(std::string_view bytes, Handler& handler) : lexer_(bytes), handler_(handler) {}

  void parseDocument() {
    lexer_.skipWhiteSpace();
    while (parseValue() || goToNextValue()) {
    }
    lexer_.skipWhiteSpace();
    if (!lexer_.atEnd()) lexer_.fail("trailing characters");
  }

 private:
  // Takes a whole value, or the beginning of an array or object up to its first value. True when
  // the cursor is at such a first value.
  bool parseValue() {
    if (lexer_.atEnd()) lexer_.fail("unexpected end");
    switch (lexer_.peek()) {
      case '"':
        handler_.onString(lexer_.readString());
        return false;
      case '{':
        return openObject();
      case '[':
        return openArray();
      case 't':
        lexer_.readWord("true");
        handler_.onBool(true);
        return false;
      case 'f':
        lexer_.readWord("false");
        handler_.onBool(false);
        return false;
      case 'n':
        lexer_.readWord("null");
        handler_.onNull();
        return false;
      default:
        parseNumber();
        return false;
    }
  }

  void parseNumber() {
    const JSONLexer::Number number = lexer_.readNumber();
    if (number.isInteger) {
      handler_.onInt(number.integer);
    } else {
      handler_.onDouble(number.number);
    }
  }

  bool openObject() {
    lexer_.skip();
    handler_.onObjectBegin();
    lexer_.skipWhiteSpace();
    if (lexer_.isAt('}')) {
      lexer_.skip();
      handler_.onObjectEnd();
      return false;
    }
    inObject_.push_back(true);
    parseKey();
    return true;
  }

  bool openArray() {
    lexer_.skip();
    handler_.onArrayBegin();
    lexer_.skipWhiteSpace();
    if (lexer_.isAt(']')) {
      lexer_.skip();
      handler_.onArrayEnd();
      return false;
    }
    if (lexer_.atEnd()) lexer_.fail("unexpected end in array");
    inObject_.push_back(false);
    return true;
  }

  // After a value: leaves the arrays and objects that end here. False at the end of the document.
  bool goToNextValue() {
    while (!inObject_.empty()) {
      lexer_.skipWhiteSpace();
      if (inObject_.back() ? continueObject() : continueArray()) return true;
      inObject_.pop_back();
    }
    return false;
  }

  // Takes a comma and the next key, or the closing brace (then false).
  bool continueObject() {
    if (lexer_.isAt(',')) {
      lexer_.skip();
      lexer_.skipWhiteSpace();
      parseKey();
      return true;
    }
    if (lexer_.atEnd()) lexer_.fail("unexpected end in object");
    if (lexer_.peek() != '}') lexer_.fail("expected , or }");
    lexer_.skip();
    handler_.onObjectEnd();
    return false;
  }

  // Takes a comma, or the closing bracket (then false).
  bool continueArray() {
    if (lexer_.isAt(',')) {
      lexer_.skip();
      lexer_.skipWhiteSpace();
      if (lexer_.atEnd()) lexer_.fail("unexpected end in array");
      return true;
    }
    if (lexer_.atEnd()) lexer_.fail("unexpected end in array");
    if (lexer_.peek() != ']') lexer_.fail("expected , or ]");
    lexer_.skip();
    handler_.onArrayEnd();
    return false;
  }

  // A key with its colon, up to the value.
  void parseKey() {
    if (lexer_.atEnd()) lexer_.fail("unexpected end in object");
    if (lexer_.peek() != '"') lexer_.fail("expected a key");
    handler_.onKey(lexer_.readString());
    lexer_.skipWhiteSpace();
    if (!lexer_.isAt(':')) lexer_.fail("expected :");
    lexer_.skip();
    lexer_.skipWhiteSpace();
  }

  JSONLexer lexer_;
  Handler& handler_;
  std::vector<bool> inObject_;  // for each open container, the outermost first
};

template <class Handler>
void parseJSONEvents(std::string_view bytes, Handler& handler) {
  JSONEventParser<Handler>(bytes, handler).parseDocument();
}

}  // namespace velta
