#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/Warnings.h"

namespace velta {
namespace {

using ::testing::ElementsAre;

struct Collected {
  std::vector<std::string> lines;
  Warnings warnings{[this](std::string_view line) { lines.emplace_back(line); }};
};

TEST(Warnings, WarningIsOneLineWithItsPrefix) {
  Collected collected;
  collected.warnings.warn("agents.json is broken");
  EXPECT_THAT(collected.lines, ElementsAre("meeting-notes MCP: agents.json is broken\n"));
}

TEST(Warnings, SameTextIsPassedOnOnce) {
  Collected collected;
  for (int i = 0; i < 3; ++i) {
    collected.warnings.warn("a");
    collected.warnings.warn("b");
  }
  EXPECT_THAT(collected.lines, ElementsAre("meeting-notes MCP: a\n", "meeting-notes MCP: b\n"));
}

TEST(Warnings, LineBreaksAndControlCharactersShowAsReplacement) {
  Collected collected;
  collected.warnings.warn("'a\nb\x1B[31m\u2028'");
  EXPECT_THAT(collected.lines, ElementsAre("meeting-notes MCP: 'a\uFFFDb\uFFFD[31m\uFFFD'\n"));
}

TEST(Warnings, BytesThatAreNotUTF8ShowAsReplacement) {
  Collected collected;
  collected.warnings.warn("/data/\xFFhome");
  EXPECT_THAT(collected.lines, ElementsAre("meeting-notes MCP: /data/\uFFFDhome\n"));
}

TEST(Warnings, TwoObjectsRememberSeparately) {
  Collected first;
  Collected second;
  first.warnings.warn("a");
  second.warnings.warn("a");
  EXPECT_EQ(second.lines.size(), 1U);
}

}  // namespace
}  // namespace velta
