#include <cstddef>
#include <fstream>
#include <string>

#ifdef __linux__
#include <sched.h>
#endif

#include <gtest/gtest.h>

#include "platform/Processor.h"

namespace velta {
namespace {

// The flags of the first processor in /proc/cpuinfo, between blanks; empty where there is none.
std::string processorFlags() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);) {
    if (line.starts_with("flags") || line.starts_with("Features")) return line + " ";
  }
  return "";
}

TEST(Processor, HasAVX2WhereTheSystemSaysSo) {
  const std::string flags = processorFlags();
  if (flags.empty()) GTEST_SKIP() << "this system does not list what its processor has";
  EXPECT_EQ(hasAVX2(), flags.find(" avx2 ") != std::string::npos);
}

// A constant that asks before main gets the same answer.
const bool kEarlyAnswer = hasAVX2();

TEST(Processor, AnswersTheSameBeforeMain) { EXPECT_EQ(kEarlyAnswer, hasAVX2()); }

#ifdef __linux__
TEST(Processor, CountsOnlyTheProcessorsThatItMayUse) {
  cpu_set_t before;
  ASSERT_EQ(::sched_getaffinity(0, sizeof before, &before), 0);
  EXPECT_EQ(usableProcessors(), static_cast<std::size_t>(CPU_COUNT(&before)));
  int first = 0;
  while (!CPU_ISSET(first, &before)) ++first;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(first, &one);
  ASSERT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EQ(usableProcessors(), 1U);
  ASSERT_EQ(::sched_setaffinity(0, sizeof before, &before), 0);
}
#endif

}  // namespace
}  // namespace velta
