// Vocabulary: the words that invented meetings are made of. Chinese words and names stand in both
// scripts, word number n of the one list being word number n of the other; the commonest come
// first.
#pragma once

#include <string_view>

namespace velta::bench {

// Separated by blanks.
extern const std::string_view kTraditionalWords;
extern const std::string_view kSimplifiedWords;
extern const std::string_view kEnglishWords;
extern const std::string_view kTraditionalSurnames;
extern const std::string_view kSimplifiedSurnames;
extern const std::string_view kTraditionalGivenNames;
extern const std::string_view kSimplifiedGivenNames;

// Separated by commas.
extern const std::string_view kEnglishNames;

}  // namespace velta::bench
