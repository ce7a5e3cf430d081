#include "admin/EmailGuard.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "json/JSONWalk.h"

namespace velta {
namespace {

constexpr std::array<std::string_view, 3> kAtSigns = {"@", "＠", "﹫"};

bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool isOfLabel(char c) { return isLetter(c) || (c >= '0' && c <= '9') || c == '-'; }
bool isOfLocalPart(char c) { return isOfLabel(c) || c == '.' || c == '_' || c == '%' || c == '+'; }

// Takes a label of a domain from the front of `text`; it may be empty.
std::string_view takeLabel(std::string_view& text) {
  const auto* const end = std::find_if_not(text.begin(), text.end(), isOfLabel);
  const std::string_view label = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(label.size());
  return label;
}

// Whether `text` begins with a domain of two labels or more, the last of which begins with two
// letters. No byte is looked at for two at signs: a domain ends before the next one.
bool beginsWithDomain(std::string_view text) {
  if (takeLabel(text).empty()) return false;
  while (text.starts_with('.')) {
    text.remove_prefix(1);
    const std::string_view label = takeLabel(text);
    if (label.size() >= 2 && isLetter(label[0]) && isLetter(label[1])) return true;
    if (label.empty()) return false;
  }
  return false;
}

bool holdsAddressAround(std::string_view atSign, std::string_view text) {
  for (std::size_t at = text.find(atSign); at != std::string_view::npos;
       at = text.find(atSign, at + atSign.size())) {
    if (at > 0 && isOfLocalPart(text[at - 1]) && beginsWithDomain(text.substr(at + atSign.size())))
      return true;
  }
  return false;
}

}  // namespace

bool holdsEmailAddress(std::string_view text) {
  return std::ranges::any_of(
      kAtSigns, [text](std::string_view atSign) { return holdsAddressAround(atSign, text); });
}

bool holdsEmailAddress(JSONObject& object) {
  bool found = false;
  const auto lookAtKeys = [&found](const JSONObject& members) {
    for (const auto& [key, member] : members) found = found || holdsEmailAddress(key);
  };
  lookAtKeys(object);
  std::vector<JSON*> waiting;
  for (const auto& [key, member] : object) waiting.push_back(&member);
  visitAll(std::move(waiting), [&](JSON& value) {
    if (const auto text = value.asString()) found = found || holdsEmailAddress(*text);
    if (const JSONObject* members = value.asObject()) lookAtKeys(*members);
  });
  return found;
}

}  // namespace velta
