#include <atomic>
#include <cstddef>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "index/ParallelFor.h"

namespace velta {
namespace {

TEST(ParallelFor, CallsEveryNumberOnce) {
  for (const std::size_t count :
       {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{1000}}) {
    std::vector<std::atomic<int>> calls(count + 1);
    parallelFor(count, [&](std::size_t number) { ++calls[number]; });
    for (std::size_t number = 0; number < count; ++number) ASSERT_EQ(calls[number], 1);
    EXPECT_EQ(calls[count], 0);
  }
}

}  // namespace
}  // namespace velta
