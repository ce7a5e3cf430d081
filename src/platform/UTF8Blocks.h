// UTF8Blocks: going past well-formed UTF-8 a block at a time, with the lookup method of John Keiser
// and Daniel Lemire, "Validating UTF-8 In Less Than One Instruction Per Byte" (2021).
//
// It works where the processor has AVX2 or NEON. It neither reads the part of a block at the end
// nor finds a fault: the walk of Text.cpp goes on where it stops.
#pragma once

#include <cstddef>
#include <string_view>

namespace velta {

// An offset in `bytes` where a character begins or `bytes` ends, with nothing but well-formed
// UTF-8 before it; 0 where the processor has no such instructions. When nothing is ill-formed, it
// is less than kUTF8Stretch + 4 bytes before the end.
std::size_t skipWellFormedBlocks(std::string_view bytes);

constexpr std::size_t kUTF8Stretch = 64;  // bytes looked at together

// Whether skipWellFormedBlocks skips anything here.
bool hasUTF8Blocks();

}  // namespace velta
