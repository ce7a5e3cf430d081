// Memory: how the allocator deals with what is freed.
#pragma once

#include <cstddef>

namespace velta {

// Lets the allocator keep up to `bytes` of freed memory for the next allocations. A large answer is
// made in buffers of megabytes; given back to the system after every call, each costs hundreds of
// page faults in the next. Does nothing where the system's allocator has no such setting.
void keepFreedMemory(std::size_t bytes);

}  // namespace velta
