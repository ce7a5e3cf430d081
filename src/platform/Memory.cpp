#include "platform/Memory.h"

#if __has_include(<malloc.h>)
#include <malloc.h>
#endif

namespace velta {

void keepFreedMemory([[maybe_unused]] std::size_t bytes) {
#ifdef __GLIBC__
  const auto limit = static_cast<int>(bytes);
  ::mallopt(M_TRIM_THRESHOLD, limit);
  ::mallopt(M_MMAP_THRESHOLD, limit);  // larger blocks have pages of their own, which go at once
#endif
}

}  // namespace velta
