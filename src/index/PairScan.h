// PairScan: finding the places where a needle may begin, by two of its bytes, as many places at
// once as the processor's vectors hold.
//
// A needle that is rare in Chinese notes seldom has a rare byte, but a rare pair of bytes nearly
// always: looking for two bytes leaves few places to compare in full.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace velta {

// Two bytes of a needle, by their offsets in it. A letter is given in lower case with 0x20 as its
// `fold`, so that both cases of it match; every other byte has 0.
struct PairScan {
  std::array<std::uint8_t, 2> byte = {};
  std::array<std::uint8_t, 2> fold = {};
  std::array<std::size_t, 2> offset = {};
};

// The first of the places [at, end) at which the two bytes of one of `scans` stand, or `end`. For
// every place the bytes at both offsets are there to be read.
const char* findPair(const char* at, const char* end, std::span<const PairScan> scans);

// The same by other means, for tests to compare: one place after another.
const char* findPairPortably(const char* at, const char* end, std::span<const PairScan> scans);

}  // namespace velta
