// Processor: which instructions there are beyond those that every processor of its kind has.
#pragma once

namespace velta {

// Whether processor and system run AVX2 instructions. May be asked before main, so that a constant
// can hold what follows from it.
bool hasAVX2();

}  // namespace velta
