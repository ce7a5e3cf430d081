// Text: UTF-8, white space and grapheme clusters (utf8proc). Texts are well-formed UTF-8 where
// nothing else is said; bytes from outside go through repairUTF8 first. "White space" is Unicode's:
// category Zs, TAB, U+000A to U+000D, U+0085, U+2028 and U+2029; so U+3000 is trimmed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velta {

// Whether `bytes` is well-formed UTF-8 (no surrogates, nothing overlong, at most U+10FFFF).
bool isValidUTF8(std::string_view bytes);

// `bytes` with U+FFFD in place of each maximal ill-formed part (Unicode 15, section 3.9).
std::string repairUTF8(std::string_view bytes);

// `codePoint` appended in UTF-8; it must be a Unicode scalar value.
void appendUTF8(std::string& out, char32_t codePoint);

// The code points of well-formed UTF-8.
std::u32string decodeUTF8(std::string_view text);

// `text` without the white space at both ends. Ill-formed bytes are allowed and never trimmed.
std::string_view trimWhiteSpace(std::string_view text);

// Number of extended grapheme clusters (UAX #29): what a person counts as characters.
std::size_t characterCount(std::string_view text);

// The first `count` extended grapheme clusters of `text`, or all of it when it has no more.
std::string_view firstCharacters(std::string_view text, std::size_t count);

// `text` with `instead` in place of every line break and other control character (C0, DEL, C1,
// U+2028, U+2029), so that it stays on one line of a terminal.
std::string visibleOnOneLine(std::string_view text, std::string_view instead = "\uFFFD");

}  // namespace velta
