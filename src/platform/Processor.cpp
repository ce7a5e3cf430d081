#include "platform/Processor.h"

#include <algorithm>
#include <thread>

#if defined(__APPLE__) && defined(__x86_64__)
#include <sys/sysctl.h>
#elif defined(__linux__)
#include <sched.h>
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

std::size_t usableProcessors() {
#ifdef __linux__
  // Fails where there are more processors than the set has room for.
  cpu_set_t usable;
  if (::sched_getaffinity(0, sizeof usable, &usable) == 0)
    return static_cast<std::size_t>(CPU_COUNT(&usable));
#endif
  return std::max(std::thread::hardware_concurrency(), 1U);
}

}  // namespace velta
