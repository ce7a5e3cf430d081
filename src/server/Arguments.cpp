#include "server/Arguments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>
#include <utility>

#include "config/StoreError.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"

namespace velta {
namespace {

constexpr std::array<std::string_view, 4> kTrueWords = {"true", "1", "yes", "on"};
constexpr std::array<std::string_view, 4> kFalseWords = {"false", "0", "no", "off"};

StoreError missing(std::string_view name) {
  return StoreError::value("argument " + std::string(name) + " is required");
}

StoreError wrongKind(std::string_view name, std::string_view kind, const JSON& value) {
  std::string message = "argument ";
  message.append(name).append(" must be ").append(kind).append(", got ");
  appendCompact(message, value);
  return StoreError::value(message);
}

// The integer that `text` spells: an optional sign and decimal digits, nothing around them.
std::optional<std::int64_t> integerFromText(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

// The number that `text` spells in decimal. The JSON grammar reads it, so that no locale does; only
// its number characters are let through, which keeps out "nan", "inf", hexadecimal and blanks.
std::optional<double> numberFromText(std::string_view text) {
  if (text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) return std::nullopt;
  try {
    return parseJSON(text).asNumber();
  } catch (const JSONParseError&) {
    return std::nullopt;
  }
}

char loweredASCII(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::optional<bool> booleanFromText(std::string_view text) {
  std::string word(text);
  std::ranges::transform(word, word.begin(), loweredASCII);
  if (std::ranges::find(kTrueWords, word) != kTrueWords.end()) return true;
  if (std::ranges::find(kFalseWords, word) != kFalseWords.end()) return false;
  return std::nullopt;
}

std::optional<std::int64_t> integerFrom(const JSON& value) {
  if (const auto text = value.asString()) return integerFromText(*text);
  return value.integerValue();
}

std::optional<double> numberFrom(const JSON& value) {
  if (const auto text = value.asString()) return numberFromText(*text);
  return value.asNumber();
}

std::optional<bool> booleanFrom(const JSON& value) {
  if (const auto flag = value.asBool()) return flag;
  if (const auto text = value.asString()) return booleanFromText(*text);
  const auto number = value.integerValue();
  if (!number || *number < 0 || *number > 1) return std::nullopt;
  return *number == 1;
}

std::optional<std::vector<std::string>> stringsFrom(const JSON& value) {
  const JSON::Array* list = value.asArray();
  if (!list) return std::nullopt;
  std::vector<std::string> strings;
  for (const JSON& element : *list) {
    const auto text = element.asString();
    if (!text) return std::nullopt;
    strings.emplace_back(*text);
  }
  return strings;
}

}  // namespace

std::string Arguments::requiredString(std::string_view name) const {
  auto text = optionalString(name);
  if (!text) throw missing(name);
  return *std::move(text);
}

std::optional<std::string> Arguments::optionalString(std::string_view name) const {
  const JSON* value = find(name);
  if (!value) return std::nullopt;
  const auto text = value->asString();
  if (!text) throw wrongKind(name, "a string", *value);
  return std::string(*text);
}

std::optional<std::string> Arguments::optionalFilter(std::string_view name) const {
  auto text = optionalString(name);
  if (text && text->empty()) text.reset();
  return text;
}

std::int64_t Arguments::integer(std::string_view name, std::int64_t byDefault) const {
  const JSON* value = find(name);
  if (!value) return byDefault;
  const auto integer = integerFrom(*value);
  if (!integer) throw wrongKind(name, "an integer", *value);
  return *integer;
}

std::optional<double> Arguments::optionalNumber(std::string_view name) const {
  const JSON* value = find(name);
  if (!value) return std::nullopt;
  const auto number = numberFrom(*value);
  if (!number) throw wrongKind(name, "a number", *value);
  return number;
}

bool Arguments::boolean(std::string_view name, bool byDefault) const {
  const JSON* value = find(name);
  if (!value) return byDefault;
  const auto flag = booleanFrom(*value);
  if (!flag) throw wrongKind(name, "a boolean", *value);
  return *flag;
}

std::optional<std::vector<std::string>> Arguments::optionalStrings(std::string_view name) const {
  const JSON* value = find(name);
  if (!value) return std::nullopt;
  auto strings = stringsFrom(*value);
  if (!strings) throw wrongKind(name, "a list of strings", *value);
  return strings;
}

const JSON* Arguments::find(std::string_view name) const {
  const JSON* value = object_.get(name);
  return value && !value->isNull() ? value : nullptr;
}

}  // namespace velta
