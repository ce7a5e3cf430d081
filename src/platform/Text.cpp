#include "platform/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <utf8proc.h>

#include "platform/UTF8Blocks.h"

namespace velta {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

constexpr std::uint8_t byteAt(std::string_view bytes, std::size_t index) {
  return static_cast<std::uint8_t>(bytes[index]);
}

// What may follow a lead byte (Unicode, table 3-7): the length of the sequence and the range of its
// second byte; later bytes are always 80 to BF. Length 0: no sequence begins so.
struct Lead {
  std::size_t length;
  std::uint8_t secondLow;
  std::uint8_t secondHigh;
};

constexpr Lead leadOf(std::uint8_t byte) {
  if (byte < 0x80) return {1, 0, 0};
  if (byte < 0xC2) return {0, 0, 0};
  if (byte < 0xE0) return {2, 0x80, 0xBF};
  if (byte == 0xE0) return {3, 0xA0, 0xBF};
  if (byte == 0xED) return {3, 0x80, 0x9F};
  if (byte < 0xF0) return {3, 0x80, 0xBF};
  if (byte == 0xF0) return {4, 0x90, 0xBF};
  if (byte < 0xF4) return {4, 0x80, 0xBF};
  if (byte == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// The well-formed sequence at `from`, or the maximal part that could have begun one.
struct Piece {
  std::size_t length;  // bytes, at least 1
  bool wellFormed;
};

Piece pieceAt(std::string_view bytes, std::size_t from) {
  const Lead lead = leadOf(byteAt(bytes, from));
  if (lead.length == 0) return {1, false};
  for (std::size_t i = 1; i < lead.length; ++i) {
    if (from + i == bytes.size()) return {i, false};
    const std::uint8_t next = byteAt(bytes, from + i);
    const std::uint8_t low = i == 1 ? lead.secondLow : 0x80;
    const std::uint8_t high = i == 1 ? lead.secondHigh : 0xBF;
    if (next < low || next > high) return {i, false};
  }
  return {lead.length, true};
}

// Offset of the first non-ASCII byte at or after `from`, eight bytes at a time.
std::size_t skipASCII(std::string_view bytes, std::size_t from) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  while (from + sizeof(std::uint64_t) <= bytes.size()) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data() + from, sizeof word);
    if ((word & kHighBits) != 0) break;
    from += sizeof word;
  }
  while (from < bytes.size() && byteAt(bytes, from) < 0x80) ++from;
  return from;
}

// Whether one of the characters of three bytes whose second may be any continuation stands at
// `from`: nearly all that is not ASCII in Chinese text, so they are worth a shorter way (a third of
// the time of parsing such text otherwise).
bool commonThreeByteCharacterAt(std::string_view bytes, std::size_t from) {
  if (bytes.size() - from < 3) return false;
  const std::uint8_t lead = byteAt(bytes, from);
  return lead > 0xE0 && lead < 0xF0 && lead != 0xED && (byteAt(bytes, from + 1) & 0xC0) == 0x80 &&
         (byteAt(bytes, from + 2) & 0xC0) == 0x80;
}

// Offset of the first ill-formed part at or after `from`, or the size.
std::size_t skipWellFormed(std::string_view bytes, std::size_t from) {
  if (bytes.size() - from >= kUTF8Stretch) from += skipWellFormedBlocks(bytes.substr(from));
  while ((from = skipASCII(bytes, from)) < bytes.size()) {
    while (commonThreeByteCharacterAt(bytes, from)) from += 3;
    if (from == bytes.size() || byteAt(bytes, from) < 0x80) continue;
    const Piece piece = pieceAt(bytes, from);
    if (!piece.wellFormed) return from;
    from += piece.length;
  }
  return from;
}

// The code point of the well-formed sequence at `from`, and its length.
struct Decoded {
  char32_t codePoint;
  std::size_t length;
};

Decoded decodeAt(std::string_view text, std::size_t from) {
  const std::uint8_t lead = byteAt(text, from);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = std::min<std::size_t>(lead < 0xE0   ? 2
                                                   : lead < 0xF0 ? 3
                                                                 : 4,
                                                   text.size() - from);
  char32_t codePoint = lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    codePoint = (codePoint << 6) | (byteAt(text, from + i) & 0x3FU);
  }
  return {codePoint, length};
}

bool isWhiteSpace(char32_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
         c == 0x3000;
}

bool isControl(char32_t c) {
  return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x2028 || c == 0x2029;
}

// Whether a well-formed white space character begins at `from`; ill-formed bytes are none.
bool whiteSpaceAt(std::string_view text, std::size_t from) {
  return pieceAt(text, from).wellFormed && isWhiteSpace(decodeAt(text, from).codePoint);
}

// Start of the code point that ends just before `end`.
std::size_t codePointBefore(std::string_view text, std::size_t end) {
  std::size_t start = end - 1;
  while (start > 0 && (byteAt(text, start) & 0xC0) == 0x80) --start;
  return start;
}

// Byte length of the first `count` grapheme clusters, and how many there were up to `count`.
struct Measured {
  std::size_t characters;
  std::size_t bytes;
};

Measured measure(std::string_view text, std::size_t count) {
  std::size_t characters = 0;
  std::size_t from = 0;
  utf8proc_int32_t previous = 0;
  utf8proc_int32_t state = 0;
  while (from < text.size()) {
    const Decoded next = decodeAt(text, from);
    const auto codePoint = static_cast<utf8proc_int32_t>(next.codePoint);
    const bool breaks = from == 0 || utf8proc_grapheme_break_stateful(previous, codePoint, &state);
    if (breaks && characters == count) return {characters, from};
    if (breaks) ++characters;
    previous = codePoint;
    from += next.length;
  }
  return {characters, text.size()};
}

}  // namespace

bool isValidUTF8(std::string_view bytes) { return skipWellFormed(bytes, 0) == bytes.size(); }

std::string repairUTF8(std::string_view bytes) {
  std::string repaired;
  repaired.reserve(bytes.size());
  std::size_t from = 0;
  while (true) {
    const std::size_t bad = skipWellFormed(bytes, from);
    repaired += bytes.substr(from, bad - from);
    if (bad == bytes.size()) return repaired;
    repaired += kReplacement;
    from = bad + pieceAt(bytes, bad).length;
  }
}

void appendUTF8(std::string& out, char32_t codePoint) {
  const auto tail = [&](int shift) {
    out += static_cast<char>(0x80U | ((codePoint >> shift) & 0x3FU));
  };
  if (codePoint < 0x80) {
    out += static_cast<char>(codePoint);
  } else if (codePoint < 0x800) {
    out += static_cast<char>(0xC0U | (codePoint >> 6));
    tail(0);
  } else if (codePoint < 0x10000) {
    out += static_cast<char>(0xE0U | (codePoint >> 12));
    tail(6);
    tail(0);
  } else {
    out += static_cast<char>(0xF0U | (codePoint >> 18));
    tail(12);
    tail(6);
    tail(0);
  }
}

std::u32string decodeUTF8(std::string_view text) {
  std::u32string codePoints;
  codePoints.reserve(text.size());
  for (std::size_t from = 0; from < text.size();) {
    const Decoded next = decodeAt(text, from);
    codePoints += next.codePoint;
    from += next.length;
  }
  return codePoints;
}

std::string_view trimWhiteSpace(std::string_view text) {
  while (!text.empty() && whiteSpaceAt(text, 0)) text.remove_prefix(pieceAt(text, 0).length);
  while (!text.empty()) {
    const std::size_t start = codePointBefore(text, text.size());
    if (!whiteSpaceAt(text, start)) break;
    text = text.substr(0, start);
  }
  return text;
}

std::size_t characterCount(std::string_view text) { return measure(text, text.size()).characters; }

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  if (text.size() <= count) return text;  // no more bytes than that, so no more characters
  return text.substr(0, measure(text, count).bytes);
}

std::string visibleOnOneLine(std::string_view text, std::string_view instead) {
  std::string shown;
  shown.reserve(text.size());
  for (std::size_t from = 0; from < text.size();) {
    const Decoded next = decodeAt(text, from);
    shown += isControl(next.codePoint) ? instead : text.substr(from, next.length);
    from += next.length;
  }
  return shown;
}

}  // namespace velta
