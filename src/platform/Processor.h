// Processor: which instructions there are beyond those that every processor of its kind has, and on
// how many processors the program runs.
#pragma once

#include <cstddef>

namespace velta {

// Whether processor and system run AVX2 instructions. May be asked before main, so that a constant
// can hold what follows from it.
bool hasAVX2();

// The processors that this process may use, at least 1. On Linux that may be less than there are
// (sched_setaffinity(2), taskset, containers); macOS knows no such limit.
std::size_t usableProcessors();

}  // namespace velta
