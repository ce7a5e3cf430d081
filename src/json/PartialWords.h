// PartialWords: less than sixteen bytes in registers, by loads that overlap instead of a loop or a
// call of memcpy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace velta {

// Little-endian: the first byte is the lowest of `low`.
struct PartialWords {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
};

template <class Word>
std::uint64_t loadWord(const char* bytes) {
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// The first `count` bytes, less than sixteen, and zeros after them. For little-endian processors.
inline PartialWords loadPartialWords(const char* bytes, std::size_t count) {
  const auto at = [&](std::size_t i) {
    return std::uint64_t{static_cast<std::uint8_t>(bytes[i])} << (8 * i);
  };
  if (count > 8) {
    return {loadWord<std::uint64_t>(bytes),
            loadWord<std::uint64_t>(bytes + count - 8) >> (8 * (16 - count))};
  }
  if (count >= 4) {
    return {loadWord<std::uint32_t>(bytes) | loadWord<std::uint32_t>(bytes + count - 4)
                                                 << (8 * (count - 4))};
  }
  if (count == 0) return {};
  return {at(0) | at(count / 2) | at(count - 1)};
}

}  // namespace velta
