#include <optional>

#include <gtest/gtest.h>

#include "store/DateFilter.h"

namespace velta {
namespace {

TEST(DateFilter, WithBothEndsOpenPassesEverything) {
  EXPECT_TRUE(DateFilter(std::nullopt, std::nullopt).passes(std::nullopt));
  EXPECT_TRUE(DateFilter("", "").passes(std::nullopt));
  EXPECT_TRUE(DateFilter("", "").passes("2026-01-01"));
}

TEST(DateFilter, IncludesBothEnds) {
  const DateFilter filter("2026-01-02", "2026-01-03");
  EXPECT_FALSE(filter.passes("2026-01-01"));
  EXPECT_TRUE(filter.passes("2026-01-02"));
  EXPECT_TRUE(filter.passes("2026-01-03"));
  EXPECT_FALSE(filter.passes("2026-01-04"));
}

TEST(DateFilter, DropsAMeetingWithoutADateWhenEitherEndIsSet) {
  EXPECT_FALSE(DateFilter("2026-01-02", std::nullopt).passes(std::nullopt));
  EXPECT_FALSE(DateFilter(std::nullopt, "2026-01-02").passes(std::nullopt));
}

TEST(DateFilter, ComparesTexts) {
  EXPECT_TRUE(DateFilter("2026-1", std::nullopt).passes("2026-12-01"));
  EXPECT_FALSE(DateFilter("2026-2", std::nullopt).passes("2026-12-01"));
}

}  // namespace
}  // namespace velta
