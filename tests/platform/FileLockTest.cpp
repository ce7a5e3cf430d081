#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/FileLock.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

// Another process that holds the lock on `path` from the construction on, until it is told to let
// go or is killed.
class Holder {
 public:
  explicit Holder(const std::string& path) {
    int told[2];
    int ready[2];
    if (::pipe(told) != 0 || ::pipe(ready) != 0) throw std::runtime_error("pipe");
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("fork");
    if (pid_ == 0) {
      ::close(told[1]);
      ::close(ready[0]);
      hold(path, told[0], ready[1]);
    }
    ::close(told[0]);
    ::close(ready[1]);
    tell_ = told[1];
    char byte = 0;
    const bool locked = ::read(ready[0], &byte, 1) == 1;
    ::close(ready[0]);
    if (!locked) throw std::runtime_error("the other process has not got the lock");
  }
  ~Holder() {
    kill();
    ::close(tell_);
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  // Tells it to let go in `delay` and end.
  void letGoIn(milliseconds delay) const {
    const int wait = static_cast<int>(delay.count());
    if (::write(tell_, &wait, sizeof wait) != sizeof wait) throw std::runtime_error("write");
  }

  void kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  // In the child. An exception must not leave it: the child would go on with the parent's tests.
  [[noreturn]] static void hold(const std::string& path, int told, int ready) noexcept {
    const FileLock lock(path, seconds(10));
    int wait = 0;
    if (::write(ready, "x", 1) == 1 && ::read(told, &wait, sizeof wait) > 0) {
      ::poll(nullptr, 0, wait);
    }
    ::_exit(0);
  }

  pid_t pid_ = -1;
  int tell_ = -1;
};

// errno of the failure to lock `path`, 0 when the lock was there to be had.
int failureToLock(const std::string& path, milliseconds patience) {
  try {
    const FileLock lock(path, patience);
    return 0;
  } catch (const std::system_error& error) {
    return error.code().value();
  }
}

// Adds one to the number in the file "locked" many times, by reading and then writing it, as a
// process of its own. No exception leaves it, for the reason above.
[[noreturn]] void addInTurns(const TemporaryFolder& folder, int turns) noexcept {
  for (int i = 0; i < turns; ++i) {
    const FileLock lock(folder.file("locked"), seconds(60));
    folder.write("locked", std::to_string(std::stoi(folder.read("locked")) + 1));
  }
  ::_exit(0);
}

class FileLockTest : public testing::Test {
 protected:
  FileLockTest() : file_(folder_.write("locked", "content")) {}

  TemporaryFolder folder_;
  std::string file_;
};

TEST_F(FileLockTest, FreeLockIsTakenAndLetGoAtTheEndOfItsLife) {
  for (const std::string& path : {file_, folder_.path()}) {  // a file and a directory
    {
      const FileLock lock(path, milliseconds(0));
      EXPECT_EQ(failureToLock(path, milliseconds(0)), EWOULDBLOCK);
    }
    EXPECT_EQ(failureToLock(path, milliseconds(0)), 0);
  }
  EXPECT_EQ(folder_.read("locked"), "content");
}

TEST_F(FileLockTest, LockThatAnotherProcessHoldsFailsWhenPatienceEnds) {
  const Holder other(file_);
  const auto begin = steady_clock::now();
  EXPECT_EQ(failureToLock(file_, milliseconds(100)), EWOULDBLOCK);
  const auto waited = steady_clock::now() - begin;
  EXPECT_GE(waited, milliseconds(100));
  EXPECT_LT(waited, seconds(5));
}

TEST_F(FileLockTest, LocksOnTwoPathsHaveNothingToDoWithEachOther) {
  const Holder other(file_);
  EXPECT_EQ(failureToLock(folder_.path(), milliseconds(0)), 0);
  EXPECT_EQ(failureToLock(folder_.write("another", ""), milliseconds(0)), 0);
}

TEST_F(FileLockTest, LockIsTakenAsSoonAsTheOtherProcessLetsGo) {
  const Holder other(file_);
  const auto begin = steady_clock::now();
  other.letGoIn(milliseconds(100));
  EXPECT_EQ(failureToLock(file_, seconds(30)), 0);
  const auto waited = steady_clock::now() - begin;
  EXPECT_GE(waited, milliseconds(100));
  EXPECT_LT(waited, seconds(10));
}

TEST_F(FileLockTest, LockOfAKilledProcessIsFree) {
  Holder other(file_);
  EXPECT_EQ(failureToLock(file_, milliseconds(0)), EWOULDBLOCK);
  other.kill();
  EXPECT_EQ(failureToLock(file_, milliseconds(0)), 0);
}

TEST_F(FileLockTest, LockIsNotHandedToAProgramThatIsStarted) {
  pid_t child = -1;
  {
    const FileLock lock(file_, milliseconds(0));
    child = ::fork();
    if (child == 0) {
      ::execl("/bin/sleep", "sleep", "60", nullptr);
      ::_exit(127);
    }
    ASSERT_GT(child, 0);
  }
  // Free as soon as the child has become the other program.
  EXPECT_EQ(failureToLock(file_, seconds(20)), 0);
  EXPECT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "it should still run";
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

TEST_F(FileLockTest, ProcessesThatTakeTurnsNeverHoldItTogether) {
  constexpr int kProcesses = 4;
  constexpr int kTurns = 50;
  folder_.write("locked", "0");
  pid_t children[kProcesses];
  for (pid_t& child : children) {
    child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) addInTurns(folder_, kTurns);
  }
  for (const pid_t child : children) {
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(folder_.read("locked"), std::to_string(kProcesses * kTurns));
}

// One that has always more to do would keep the others out: nobody sees the moment between two
// turns.
TEST_F(FileLockTest, ProcessThatAsksAgainAtOnceLetsAnotherHaveItsTurns) {
  constexpr int kTurns = 10;
  constexpr int kMost = 300;  // ten or twenty as a rule; thousands where the other has to be lucky
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (int i = 0; i < kTurns; ++i) const FileLock lock(file_, seconds(30));
    ::_exit(0);
  }
  int own = 0;
  while (::waitpid(child, nullptr, WNOHANG) == 0 && own < kMost) {
    const FileLock lock(file_, seconds(30));
    ++own;
    ::usleep(2000);  // what is done under the lock
  }
  ::kill(child, SIGKILL);
  EXPECT_LT(own, kMost);
}

TEST_F(FileLockTest, PathThatIsNotThereFailsAtOnce) {
  const std::string missing = folder_.file("missing");
  const auto begin = steady_clock::now();
  EXPECT_EQ(failureToLock(missing, seconds(30)), ENOENT);
  EXPECT_LT(steady_clock::now() - begin, seconds(10));
  EXPECT_FALSE(folder_.has("missing"));
}

TEST_F(FileLockTest, DescriptorThatIsNotOpenFailsAtOnce) {
  const auto begin = steady_clock::now();
  EXPECT_FALSE(lockWithin(-1, seconds(30)));
  EXPECT_EQ(errno, EBADF);
  EXPECT_LT(steady_clock::now() - begin, seconds(10));
}

TEST_F(FileLockTest, ClosingTheDescriptorLetsALockGo) {
  const int descriptor = ::open(file_.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  EXPECT_TRUE(lockWithin(descriptor, milliseconds(0)));
  EXPECT_EQ(failureToLock(file_, milliseconds(0)), EWOULDBLOCK);
  ::close(descriptor);
  EXPECT_EQ(failureToLock(file_, milliseconds(0)), 0);
}

}  // namespace
}  // namespace velta
