// Whatever parses is written, in both forms, as text that parses to the same value, and that is
// written as the same text again; whatever does not parse fails with JSONParseError. The values
// that a handler composes by hand and the parser's own are the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSON.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Text.h"

namespace {

using velta::JSON;
using velta::JSONObject;

void require(bool condition) {
  if (!condition) std::abort();
}

// Composes a value through the public interface alone.
class Composer {
 public:
  void onNull() { put(nullptr); }
  void onBool(bool value) { put(value); }
  void onInt(std::int64_t value) { put(value); }
  void onDouble(double value) { put(value); }
  void onString(std::string_view value) {
    require(velta::isValidUTF8(value));
    put(value);
  }
  void onKey(std::string_view key) {
    require(velta::isValidUTF8(key));
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
  require(copy == value);
  Composer composer;
  velta::parseJSONEvents(bytes, composer);
  require(composer.result == value);

  const std::string compact = velta::writeCompact(value);
  require(velta::isValidUTF8(compact));
  if (!isReadable(compact)) return 0;
  require(velta::parseJSON(compact) == value);
  require(velta::writeCompact(velta::parseJSON(compact)) == compact);
  require(velta::parseJSON(velta::writeIndented(value, 1)) == value);
  return 0;
}
