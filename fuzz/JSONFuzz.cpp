// Whatever parses is written, in both forms, as text that parses to the same value, and that is
// written as the same text again; whatever does not parse fails with JSONParseError. The values
// that a handler composes by hand and the parser's own are the same.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSON.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Text.h"
#include "support/Require.h"

namespace {

using velta::JSON;
using velta::JSONObject;
using velta::fuzz::require;

// Composes a value through the public interface alone.
class Composer {
 public:
  void onNull() { put(nullptr); }
  void onBool(bool value) { put(value); }
  void onInt(std::int64_t value) { put(value); }
  void onDouble(double value) { put(value); }
  void onString(std::string_view value) {
    require(velta::isValidUTF8(value), "a string is UTF-8");
    put(value);
  }
  void onKey(std::string_view key) {
    require(velta::isValidUTF8(key), "a key is UTF-8");
    open_.back().key = key;
  }
  void onObjectBegin() { open_.push_back({JSONObject(), ""}); }
  void onArrayBegin() { open_.push_back({JSON::Array(), ""}); }
  void onObjectEnd() { close(); }
  void onArrayEnd() { close(); }

  JSON result;

 private:
  struct Open {
    JSON value;
    std::string key;
  };

  void put(JSON value) {
    if (open_.empty()) {
      result = std::move(value);
    } else if (JSON::Array* array = open_.back().value.asArray()) {
      array->push_back(std::move(value));
    } else {
      open_.back().value.asObject()->set(open_.back().key, std::move(value));
    }
  }
  void close() {
    JSON value = std::move(open_.back().value);
    open_.pop_back();
    put(std::move(value));
  }

  std::vector<Open> open_;
};

// "Infinity" can be written, for a number such as 1e999, but not read.
bool isReadable(const std::string& text) { return text.find("Infinity") == std::string::npos; }

// The two ways to indented text inside a string.
void requireSameTextInAString(const JSONObject& object) {
  std::string once;
  velta::appendIndentedQuoted(once, object, 1);
  std::string twice;
  velta::appendQuoted(twice, velta::writeIndented(object, 1));
  require(once == twice, "a text inside a string is the text, quoted", once);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  JSON value;
  try {
    value = velta::parseJSON(bytes);
  } catch (const velta::JSONParseError&) {
    return 0;
  }
  const JSON copy = value;
  require(copy == value, "a copy is equal");
  Composer composer;
  velta::parseJSONEvents(bytes, composer);
  require(composer.result == value, "a composed value is the parsed one");

  const std::string compact = velta::writeCompact(value);
  require(velta::isValidUTF8(compact), "what is written is UTF-8");
  if (!isReadable(compact)) return 0;
  const JSON fromCompact = velta::parseJSON(compact);
  require(fromCompact == value, "compact text is the same value", compact);
  require(velta::writeCompact(fromCompact) == compact, "compact text is written again", compact);
  const std::string indented = velta::writeIndented(value, 1);
  const JSON fromIndented = velta::parseJSON(indented);
  require(fromIndented == value, "indented text is the same value", indented);
  require(velta::writeIndented(fromIndented, 1) == indented, "indented text is written again",
          indented);
  requireSameTextInAString({{"value", value}});
  return 0;
}
