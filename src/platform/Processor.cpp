#include "platform/Processor.h"

#if defined(__APPLE__) && defined(__x86_64__)
#include <cstddef>

#include <sys/sysctl.h>
#endif

namespace velta {

bool hasAVX2() {
#if defined(__APPLE__) && defined(__x86_64__)
  // Not the compiler's question: what answers it may be set up there only after our constants.
  int answer = 0;
  std::size_t size = sizeof answer;
  return ::sysctlbyname("hw.optional.avx2_0", &answer, &size, nullptr, 0) == 0 && answer != 0;
#elif defined(__x86_64__)
  return __builtin_cpu_supports("avx2") != 0;
#else
  return false;
#endif
}

}  // namespace velta
