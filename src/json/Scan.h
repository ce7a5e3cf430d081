// Scan: finding the next interesting byte of JSON text, sixteen bytes at a time.
//
// `Block` holds sixteen bytes and compares them all at once: SSE2 or NEON where the compiler offers
// them, else PortableBlock. The scans are templates over the block, so that a test can hold them
// against each other.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON) && defined(__aarch64__)
#include <arm_neon.h>
#endif

#include "json/PartialWords.h"

namespace velta {

constexpr std::size_t kBlockSize = 16;

// The operations that every block has, one byte after another.
class PortableBlock {
 public:
  static PortableBlock load(const char* bytes) {
    PortableBlock block;
    for (std::size_t i = 0; i < kBlockSize; ++i) {
      block.bytes_[i] = static_cast<std::uint8_t>(bytes[i]);
    }
    return block;
  }
  // The first `count` bytes of a block, less than a whole one, and zeros after them.
  static PortableBlock loadPart(const char* bytes, std::size_t count) {
    std::array<char, kBlockSize> block{};
    std::copy_n(bytes, count, block.data());
    return load(block.data());
  }
  void store(char* to) const { std::memcpy(to, bytes_.data(), kBlockSize); }

  // All bits set in each byte that is `wanted`, none in the others; the same for the next.
  PortableBlock equal(char wanted) const {
    return map([wanted](std::uint8_t byte) { return byte == static_cast<std::uint8_t>(wanted); });
  }
  PortableBlock below(std::uint8_t limit) const {
    return map([limit](std::uint8_t byte) { return byte < limit; });
  }
  PortableBlock operator|(const PortableBlock& other) const {
    PortableBlock block;
    for (std::size_t i = 0; i < kBlockSize; ++i) block.bytes_[i] = bytes_[i] | other.bytes_[i];
    return block;
  }

  PortableBlock operator~() const {
    return map([](std::uint8_t byte) { return byte == 0; });
  }

  // Of a comparison: whether any byte is set, and the number of bytes before the first that is, 16
  // when none is.
  bool anySet() const { return firstSet() < kBlockSize; }
  std::size_t firstSet() const {
    std::size_t i = 0;
    while (i < kBlockSize && bytes_[i] == 0) ++i;
    return i;
  }

 private:
  template <class Test>
  PortableBlock map(Test test) const {
    PortableBlock block;
    for (std::size_t i = 0; i < kBlockSize; ++i) block.bytes_[i] = test(bytes_[i]) ? 0xFF : 0;
    return block;
  }

  std::array<std::uint8_t, kBlockSize> bytes_{};
};

#if defined(__SSE2__)

class SSE2Block {
 public:
  static SSE2Block load(const char* bytes) {
    return SSE2Block(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)));
  }
  static SSE2Block loadPart(const char* bytes, std::size_t count) {
    const PartialWords words = loadPartialWords(bytes, count);
    return SSE2Block(
        _mm_set_epi64x(static_cast<long long>(words.high), static_cast<long long>(words.low)));
  }
  void store(char* to) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes_); }
  SSE2Block equal(char wanted) const {
    return SSE2Block(_mm_cmpeq_epi8(bytes_, _mm_set1_epi8(wanted)));
  }
  // SSE2 compares signed bytes only; byte < limit exactly when min(byte, limit - 1) is the byte.
  SSE2Block below(std::uint8_t limit) const {
    const __m128i highest = _mm_set1_epi8(static_cast<char>(limit - 1));
    return SSE2Block(_mm_cmpeq_epi8(_mm_min_epu8(bytes_, highest), bytes_));
  }
  SSE2Block operator|(SSE2Block other) const {
    return SSE2Block(_mm_or_si128(bytes_, other.bytes_));
  }
  SSE2Block operator~() const { return SSE2Block(_mm_cmpeq_epi8(bytes_, _mm_setzero_si128())); }
  bool anySet() const { return _mm_movemask_epi8(bytes_) != 0; }
  std::size_t firstSet() const {
    const auto mask = static_cast<std::uint32_t>(_mm_movemask_epi8(bytes_));
    return static_cast<std::size_t>(std::countr_zero(mask | (1U << kBlockSize)));
  }

 private:
  explicit SSE2Block(__m128i bytes) : bytes_(bytes) {}
  __m128i bytes_;
};
using Block = SSE2Block;

#elif defined(__ARM_NEON) && defined(__aarch64__)

class NEONBlock {
 public:
  static NEONBlock load(const char* bytes) {
    return NEONBlock(vld1q_u8(reinterpret_cast<const std::uint8_t*>(bytes)));
  }
  static NEONBlock loadPart(const char* bytes, std::size_t count) {
    const PartialWords words = loadPartialWords(bytes, count);
    return NEONBlock(
        vreinterpretq_u8_u64(vcombine_u64(vcreate_u64(words.low), vcreate_u64(words.high))));
  }
  void store(char* to) const { vst1q_u8(reinterpret_cast<std::uint8_t*>(to), bytes_); }
  NEONBlock equal(char wanted) const {
    return NEONBlock(vceqq_u8(bytes_, vdupq_n_u8(static_cast<std::uint8_t>(wanted))));
  }
  NEONBlock below(std::uint8_t limit) const {
    return NEONBlock(vcltq_u8(bytes_, vdupq_n_u8(limit)));
  }
  NEONBlock operator|(NEONBlock other) const { return NEONBlock(vorrq_u8(bytes_, other.bytes_)); }
  NEONBlock operator~() const { return NEONBlock(vmvnq_u8(bytes_)); }
  bool anySet() const { return nibbles() != 0; }
  std::size_t firstSet() const { return static_cast<std::size_t>(std::countr_zero(nibbles())) / 4; }

 private:
  explicit NEONBlock(uint8x16_t bytes) : bytes_(bytes) {}
  // NEON has no bit mask of bytes; shifting pairs right by four leaves four bits a byte.
  std::uint64_t nibbles() const {
    const uint8x8_t halves = vshrn_n_u16(vreinterpretq_u16_u8(bytes_), 4);
    return vget_lane_u64(vreinterpret_u64_u8(halves), 0);
  }
  uint8x16_t bytes_;
};
using Block = NEONBlock;

#else

using Block = PortableBlock;

#endif

// The bytes that a JSON string must not hold as they are: quote, backslash, control characters.
template <class B>
B escapable(B block) {
  return block.equal('"') | block.equal('\\') | block.below(0x20);
}

// The first byte of [at, end) that `test` sets in a block, or `end`. `test` takes a Block to a
// comparison.
template <class B, class Test>
const char* findByte(const char* at, const char* end, Test test) {
  while (static_cast<std::size_t>(end - at) >= kBlockSize) {
    const B found = test(B::load(at));
    if (found.anySet()) return at + found.firstSet();
    at += kBlockSize;
  }
  const auto left = static_cast<std::size_t>(end - at);
  return at + std::min(test(B::loadPart(at, left)).firstSet(), left);
}

// The first quote or backslash.
template <class B = Block>
const char* findStringEnd(const char* at, const char* end) {
  return findByte<B>(at, end, [](B block) { return block.equal('"') | block.equal('\\'); });
}

// The first byte that is not a blank.
template <class B = Block>
const char* findNonBlank(const char* at, const char* end) {
  return findByte<B>(at, end, [](B block) { return ~block.equal(' '); });
}

// The first byte that is not one of JSON's four white spaces.
template <class B = Block>
const char* findNonSpace(const char* at, const char* end) {
  return findByte<B>(at, end, [](B block) {
    return ~(block.equal(' ') | block.equal('\n') | block.equal('\r') | block.equal('\t'));
  });
}

}  // namespace velta
