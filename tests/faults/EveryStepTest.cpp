// Every file that the program writes, while each call in turn fails by which it does so.

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "faults/Writes.h"
#include "support/Faults.h"
#include "support/Sanitized.h"

namespace velta {
namespace {

using test::Fault;
using test::Place;
using test::Reference;
using test::Write;
using testing::Combine;
using testing::Range;
using testing::ValuesIn;

struct Way {
  std::string name;
  std::string how;
  bool lasting;
  std::string cause;  // as the system tells it; empty where nobody is left to tell it
};

const std::vector<Way>& ways() {
  if constexpr (test::kSanitized) {
    static const std::vector<Way> few = {
        {"KilledAfter", "kill-after", false, ""},
        {"NoSpaceFromThere", "ENOSPC", true, std::strerror(ENOSPC)},
        {"HalfAWrite", "short", false, std::strerror(ENOSPC)},
    };
    return few;
  }
  static const std::vector<Way> all = {
      {"KilledBefore", "kill", false, ""},
      {"KilledAfter", "kill-after", false, ""},
      {"NoSpaceOnce", "ENOSPC", false, std::strerror(ENOSPC)},
      {"NoSpaceFromThere", "ENOSPC", true, std::strerror(ENOSPC)},
      {"HalfAWrite", "short", false, std::strerror(ENOSPC)},
      {"HalfAWriteAndNoMore", "short", true, std::strerror(ENOSPC)},
      {"IOErrorOnce", "EIO", false, std::strerror(EIO)},
      {"IOErrorFromThere", "EIO", true, std::strerror(EIO)},
      {"ReadOnlyFromThere", "EROFS", true, std::strerror(EROFS)},
  };
  return all;
}

class EveryStep : public testing::TestWithParam<std::tuple<std::size_t, std::size_t>> {};

TEST_P(EveryStep, LeavesTheOldFileOrTheNewOneAndTellsWhatFailed) {
  if (!test::kFaultsAvailable) GTEST_SKIP() << "needs LD_PRELOAD";
  const Write& write = test::writes()[std::get<0>(GetParam())];
  const Way& way = ways()[std::get<1>(GetParam())];
  const Reference reference(write);
  const Place counted(write);
  const auto points = test::faultPoints(counted.options(), counted.home, write.input(counted));
  ASSERT_FALSE(points.empty());
  for (std::size_t at = 0; at < points.size(); ++at) {
    SCOPED_TRACE(way.how + " at " + points[at]);
    const Place place(write);
    const auto ending = place.run({static_cast<int>(at) + 1, way.how, way.lasting});
    const bool killed = way.cause.empty();
    EXPECT_EQ(ending.signal, killed ? SIGKILL : 0) << ending.errors;
    reference.expectOldOrNew(place, /*killed=*/killed || way.lasting);
    if (!killed) reference.expectClear(place, ending, way.cause);
    reference.expectNextRunMendsIt(place);
    if (HasFailure()) return;  // the others would fail alike
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, EveryStep,
                         Combine(Range(std::size_t{0}, test::writes().size()),
                                 Range(std::size_t{0}, ways().size())),
                         [](const auto& both) {
                           return test::writes()[std::get<0>(both.param)].name + "_" +
                                  ways()[std::get<1>(both.param)].name;
                         });

}  // namespace
}  // namespace velta
