#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/ProgressLine.h"
#include "support/PseudoTerminal.h"

namespace velta {
namespace {

using std::chrono::milliseconds;
using test::PseudoTerminal;
using testing::Each;
using testing::MatchesRegex;

constexpr std::chrono::hours kNever(1);
constexpr milliseconds kAtOnce(0);

const std::string kErase = "\r\x1b[K";

// The texts that were drawn, in order; the last one is what is left.
std::vector<std::string> drawings(std::string_view shown) {
  std::vector<std::string> texts;
  while (!shown.empty()) {
    EXPECT_TRUE(shown.starts_with(kErase)) << "drawn over something: " << shown;
    shown.remove_prefix(std::min(shown.size(), kErase.size()));
    texts.emplace_back(shown.substr(0, shown.find('\r')));
    shown.remove_prefix(texts.back().size());
  }
  return texts;
}

TEST(ProgressLine, ShowsNothingWhenTheWorkEndsBeforeThePatienceHasPassed) {
  PseudoTerminal terminal;
  {
    ProgressLine line(terminal.line(), kNever);
    line.say("reading meetings: 1 of 2");
    line.say("reading meetings: 2 of 2");
  }
  EXPECT_EQ(terminal.rest(), "");
}

TEST(ProgressLine, DrawsWhatWasSaidLastAndErasesItAtTheEnd) {
  PseudoTerminal terminal;
  std::string shown;
  {
    ProgressLine line(terminal.line(), kAtOnce);
    line.say("1 of 2");
    shown += terminal.readUntil("1 of 2");
    line.say("2 of 2");
    shown += terminal.readUntil("2 of 2");
  }
  EXPECT_EQ(shown + terminal.rest(), kErase + "1 of 2" + kErase + "2 of 2" + kErase);
}

TEST(ProgressLine, AppearsThoughTheWorkSaysNothingMore) {
  PseudoTerminal terminal;
  ProgressLine line(terminal.line(), milliseconds(20));
  line.say("waiting for the network");
  EXPECT_EQ(terminal.readUntil("network"), kErase + "waiting for the network");
}

TEST(ProgressLine, ShorterTextLeavesNothingOfALongerOne) {
  PseudoTerminal terminal;
  {
    ProgressLine line(terminal.line(), kAtOnce);
    line.say("a long text");
    terminal.readUntil("a long text");
    line.say("short");
    EXPECT_EQ(terminal.readUntil("short"), kErase + "short");
    line.say("");
    EXPECT_EQ(terminal.readUntil(kErase), kErase) << "no text is no line";
  }
  EXPECT_EQ(terminal.rest(), "");
}

TEST(ProgressLine, LineThatNeverSaysAnythingShowsNothing) {
  PseudoTerminal terminal;
  {
    ProgressLine silent(terminal.line(), kAtOnce);
    // Another one that began later and has drawn shows that the first had the time to.
    PseudoTerminal other;
    ProgressLine line(other.line(), milliseconds(50));
    line.say("drawn");
    other.readUntil("drawn");
  }
  EXPECT_EQ(terminal.rest(), "");
}

TEST(ProgressLine, TextsOfSeveralThreadsAreDrawnWhole) {
  PseudoTerminal terminal;
  std::string shown;
  {
    ProgressLine line(terminal.line(), kAtOnce);
    std::atomic<bool> enough = false;
    std::vector<std::thread> workers;
    for (const std::string name : {"a", "bb", "ccc", "dddd"}) {
      workers.emplace_back([&line, &enough, name] {
        for (int i = 0; !enough; ++i) line.say(name + " " + std::to_string(i) + ".");
      });
    }
    for (int i = 0; i < 3; ++i) shown += terminal.readUntil(".");
    enough = true;
    for (std::thread& worker : workers) worker.join();
  }
  std::vector<std::string> texts = drawings(shown + terminal.rest());
  ASSERT_GE(texts.size(), 4U);
  EXPECT_EQ(texts.back(), "");
  texts.pop_back();
  EXPECT_THAT(texts, Each(MatchesRegex("(a|bb|ccc|dddd) [0-9]+\\.")));
}

// Fills the terminal's buffer with the letter x, as when nobody reads for long; tells how many fit.
std::size_t fill(const PseudoTerminal& terminal) {
  const int line = ::open(terminal.name().c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (line < 0) throw std::runtime_error("cannot open " + terminal.name());
  std::size_t filled = 0;
  for (const std::size_t size : {1024U, 1U}) {
    const std::string block(size, 'x');
    ssize_t count = 0;
    while ((count = ::write(line, block.data(), block.size())) > 0)
      filled += static_cast<std::size_t>(count);
  }
  ::close(line);
  return filled;
}

TEST(ProgressLine, TerminalThatTakesNothingHoldsNobodyUp) {
  PseudoTerminal terminal;
  const std::size_t filled = fill(terminal);
  ASSERT_GT(filled, 0U);
  {
    ProgressLine progress(terminal.line(), kAtOnce);
    progress.say("nobody reads this");
    PseudoTerminal other;  // one that began later and draws shows that the first had the time to
    ProgressLine line(other.line(), milliseconds(50));
    line.say("drawn");
    other.readUntil("drawn");
  }
  terminal.readUntil(std::string(filled, 'x'));
  EXPECT_EQ(terminal.rest(), "") << "it gave up for good";
}

}  // namespace
}  // namespace velta
