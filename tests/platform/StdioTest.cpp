#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/Stdio.h"

namespace velta {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Milliseconds = std::chrono::milliseconds;

// A pipe whose ends can be closed one by one.
class Pipe {
 public:
  Pipe() { opened_ = ::pipe(ends_) == 0; }
  ~Pipe() {
    closeReadEnd();
    closeWriteEnd();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int readEnd() const { return ends_[0]; }
  int writeEnd() const { return ends_[1]; }
  void closeReadEnd() { close(ends_[0]); }
  void closeWriteEnd() { close(ends_[1]); }

  // Fills the pipe until it takes no byte more; returns how many it took.
  std::size_t fill() const {
    const int flags = ::fcntl(writeEnd(), F_GETFL);
    ::fcntl(writeEnd(), F_SETFL, flags | O_NONBLOCK);
    const std::string block(4096, '#');
    std::size_t filled = 0;
    for (std::size_t piece = block.size(); piece > 0; piece /= 2) {
      ssize_t count = 0;
      while ((count = ::write(writeEnd(), block.data(), piece)) > 0) {
        filled += static_cast<std::size_t>(count);
      }
    }
    ::fcntl(writeEnd(), F_SETFL, flags);
    return filled;
  }

  // Everything written so far, once the write end is closed.
  std::string drain() const {
    std::string text;
    char piece[4096];
    ssize_t count = 0;
    while ((count = ::read(readEnd(), piece, sizeof piece)) > 0) {
      text.append(piece, static_cast<std::size_t>(count));
    }
    return text;
  }

 private:
  static void close(int& end) {
    if (end >= 0) ::close(end);
    end = -1;
  }

  int ends_[2] = {-1, -1};
  bool opened_ = false;
};

// The lines of `input`, which is written in pieces of `pieceSize` bytes.
std::vector<std::string> linesOf(std::string_view input, std::size_t pieceSize) {
  Pipe pipe;
  std::thread writer([&pipe, input, pieceSize] {
    for (std::size_t at = 0; at < input.size(); at += pieceSize) {
      EXPECT_TRUE(writeAll(pipe.writeEnd(), input.substr(at, pieceSize)));
    }
    pipe.closeWriteEnd();
  });
  std::vector<std::string> lines;
  LineReader reader(pipe.readEnd());
  std::string_view line;
  while (reader.next(line)) lines.emplace_back(line);
  EXPECT_FALSE(reader.next(line));  // the end stays the end
  writer.join();
  return lines;
}

Milliseconds timeOf(const std::function<void()>& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - start);
}

TEST(LineReader, LinesComeWithoutTheirLineFeed) {
  EXPECT_THAT(linesOf("one\ntwo\nthree\n", 100), ElementsAre("one", "two", "three"));
}

TEST(LineReader, BytesAfterTheLastLineFeedAreALine) {
  EXPECT_THAT(linesOf("one\ntwo", 100), ElementsAre("one", "two"));
}

TEST(LineReader, EmptyInputHasNoLine) { EXPECT_THAT(linesOf("", 1), IsEmpty()); }

TEST(LineReader, EmptyLinesAreLines) {
  EXPECT_THAT(linesOf("\n\na\n\n", 100), ElementsAre("", "", "a", ""));
}

TEST(LineReader, CarriageReturnsAndZeroBytesArePartOfTheLine) {
  EXPECT_THAT(linesOf(std::string_view("a\0b\r\n\0\n", 7), 100),
              ElementsAre(std::string("a\0b\r", 4), std::string("\0", 1)));
}

TEST(LineReader, PiecesOfOneByteMakeTheSameLines) {
  EXPECT_THAT(linesOf("會議\n\n記錄\nend", 1), ElementsAre("會議", "", "記錄", "end"));
}

TEST(LineReader, LongLinesArriveWhole) {
  const std::string first(3'000'001, 'a');
  const std::string second(70'000, 'b');
  EXPECT_THAT(linesOf(first + "\n" + second + "\nlast", 1000), ElementsAre(first, second, "last"));
}

TEST(LineReader, ManyLinesInOneReadComeOneByOne) {
  std::string input;
  for (int i = 0; i < 50'000; ++i) input += std::to_string(i) + "\n";
  const std::vector<std::string> lines = linesOf(input, 60'000);
  ASSERT_EQ(lines.size(), 50'000U);
  EXPECT_EQ(lines.front(), "0");
  EXPECT_EQ(lines[31'415], "31415");
  EXPECT_EQ(lines.back(), "49999");
}

TEST(LineReader, LineIsHandedOutBeforeTheNextOneArrives) {
  Pipe pipe;
  LineReader reader(pipe.readEnd());
  std::string_view line;
  ASSERT_TRUE(writeAll(pipe.writeEnd(), "first\nsec"));
  ASSERT_TRUE(reader.next(line));
  EXPECT_EQ(line, "first");
  ASSERT_TRUE(writeAll(pipe.writeEnd(), "ond\n"));
  ASSERT_TRUE(reader.next(line));
  EXPECT_EQ(line, "second");
}

TEST(LineReader, NonBlockingInputIsWaitedFor) {
  Pipe pipe;
  ASSERT_EQ(::fcntl(pipe.readEnd(), F_SETFL, O_NONBLOCK), 0);
  std::thread writer([&pipe] {
    std::this_thread::sleep_for(Milliseconds(30));
    EXPECT_TRUE(writeAll(pipe.writeEnd(), "late\n"));
  });
  LineReader reader(pipe.readEnd());
  std::string_view line;
  EXPECT_TRUE(reader.next(line));
  EXPECT_EQ(line, "late");
  writer.join();
}

TEST(LineReader, UnreadableDescriptorIsAnEnd) {
  LineReader reader(-1);
  std::string_view line;
  EXPECT_FALSE(reader.next(line));
}

TEST(WriteAll, WritesMoreThanAPipeHolds) {
  Pipe pipe;
  const std::string text(1'000'000, 'x');
  std::string received;
  std::thread readerThread([&] { received = pipe.drain(); });
  EXPECT_TRUE(writeAll(pipe.writeEnd(), text));
  pipe.closeWriteEnd();
  readerThread.join();
  EXPECT_EQ(received, text);
}

TEST(WriteAll, NonBlockingOutputIsWaitedFor) {
  Pipe pipe;
  ASSERT_EQ(::fcntl(pipe.writeEnd(), F_SETFL, O_NONBLOCK), 0);
  const std::string text(1'000'000, 'x');
  std::string received;
  std::thread readerThread([&] {
    std::this_thread::sleep_for(Milliseconds(30));
    received = pipe.drain();
  });
  EXPECT_TRUE(writeAll(pipe.writeEnd(), text));
  pipe.closeWriteEnd();
  readerThread.join();
  EXPECT_EQ(received, text);
}

TEST(WriteAll, ClosedPipeIsFalseAndNoSignal) {
  ignoreWriteSignals();
  Pipe pipe;
  pipe.closeReadEnd();
  EXPECT_FALSE(writeAll(pipe.writeEnd(), "x"));
}

TEST(WriteAll, PipeThatClosesHalfWayIsFalse) {
  ignoreWriteSignals();
  Pipe pipe;
  std::thread readerThread([&] {
    std::this_thread::sleep_for(Milliseconds(30));
    pipe.closeReadEnd();
  });
  EXPECT_FALSE(writeAll(pipe.writeEnd(), std::string(1'000'000, 'x')));
  readerThread.join();
}

TEST(WriteAll, FullDeviceIsFalse) {
  const int device = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  if (device < 0) GTEST_SKIP() << "no /dev/full here";
  EXPECT_FALSE(writeAll(device, "x"));
  ::close(device);
}

TEST(WriteAll, NothingToWriteSucceeds) { EXPECT_TRUE(writeAll(-1, "")); }

TEST(PatientWriter, WritesWhatIsTaken) {
  Pipe pipe;
  PatientWriter writer(pipe.writeEnd());
  writer.write("one\n");
  writer.write("two\n");
  pipe.closeWriteEnd();
  EXPECT_EQ(pipe.drain(), "one\ntwo\n");
}

TEST(PatientWriter, LongMessagesGoToAReaderThatKeepsUp) {
  Pipe pipe;
  const std::string text(500'000, 'x');
  std::string received;
  std::thread readerThread([&] { received = pipe.drain(); });
  PatientWriter writer(pipe.writeEnd(), Milliseconds(10'000));
  writer.write(text);
  pipe.closeWriteEnd();
  readerThread.join();
  EXPECT_EQ(received, text);
}

TEST(PatientWriter, FullPipeCostsItsPatienceOnce) {
  Pipe pipe;
  pipe.fill();
  PatientWriter writer(pipe.writeEnd(), Milliseconds(100));
  const Milliseconds first = timeOf([&] { writer.write("lost\n"); });
  EXPECT_GE(first, Milliseconds(90));
  EXPECT_LT(first, Milliseconds(2000));
  const Milliseconds hundredMore = timeOf([&] {
    for (int i = 0; i < 100; ++i) writer.write("lost too\n");
  });
  EXPECT_LT(hundredMore, Milliseconds(90));
}

TEST(PatientWriter, AfterGivingUpNothingIsWrittenEvenWhenThereIsRoomAgain) {
  Pipe pipe;
  const std::size_t filled = pipe.fill();
  PatientWriter writer(pipe.writeEnd(), Milliseconds(20));
  writer.write("lost\n");
  std::string filling(filled, '\0');
  ASSERT_EQ(::read(pipe.readEnd(), filling.data(), filled), static_cast<ssize_t>(filled));
  writer.write("lost too\n");
  pipe.closeWriteEnd();
  EXPECT_EQ(pipe.drain(), "");
}

TEST(PatientWriter, PatienceIsForTheWholeMessage) {
  Pipe pipe;
  pipe.fill();
  // A reader so slow that every piece is taken in time, but never the whole message.
  std::atomic<bool> stop = false;
  std::thread readerThread([&] {
    char piece[4096];
    while (!stop && ::read(pipe.readEnd(), piece, sizeof piece) > 0) {
      std::this_thread::sleep_for(Milliseconds(20));
    }
  });
  PatientWriter writer(pipe.writeEnd(), Milliseconds(100));
  const Milliseconds time = timeOf([&] { writer.write(std::string(4'000'000, 'x')); });
  EXPECT_LT(time, Milliseconds(2000));
  stop = true;
  pipe.closeWriteEnd();
  readerThread.join();
}

TEST(PatientWriter, ClosedPipeIsNoFailure) {
  ignoreWriteSignals();
  Pipe pipe;
  pipe.closeReadEnd();
  PatientWriter writer(pipe.writeEnd());
  EXPECT_LT(timeOf([&] { writer.write("x"); }), Milliseconds(90));
}

TEST(PatientWriter, MissingDescriptorIsNoFailure) {
  PatientWriter writer(-1, Milliseconds(20));
  EXPECT_LT(timeOf([&] {
              for (int i = 0; i < 100; ++i) writer.write("x");
            }),
            Milliseconds(1000));
}

TEST(IsTerminal, PipeIsNone) {
  const Pipe pipe;
  EXPECT_FALSE(isTerminal(pipe.readEnd()));
  EXPECT_FALSE(isTerminal(-1));
}

}  // namespace
}  // namespace velta
