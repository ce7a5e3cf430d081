#include <fstream>
#include <string>

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

}  // namespace
}  // namespace velta
