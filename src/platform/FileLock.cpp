#include "platform/FileLock.h"

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>

namespace velta {
namespace {

// flock(2) knows no time limit, so it is asked again and again; those who hold the lock do so for
// one write or one fsync.
constexpr std::chrono::milliseconds kRetryInterval(1);
// From letting go to asking again. Without it a server that has one call after the other keeps
// seven others out for half a minute.
constexpr std::chrono::milliseconds kTurn(3);

using Clock = std::chrono::steady_clock;
std::atomic<Clock::time_point> lastRelease = Clock::time_point();

[[noreturn]] void fail(const char* operation, const std::string& path) {
  throw std::system_error(errno, std::generic_category(), std::string(operation) + " " + path);
}

}  // namespace

bool lockWithin(int descriptor, std::chrono::milliseconds patience) {
  const auto deadline = Clock::now() + patience;
  while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    const bool busy = errno == EWOULDBLOCK || errno == EINTR;
    if (!busy || Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kRetryInterval);
  }
  return true;
}

FileLock::FileLock(const std::string& path, std::chrono::milliseconds patience)
    : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (!descriptor_) fail("open", path);
  std::this_thread::sleep_until(lastRelease.load() + kTurn);
  if (!lockWithin(descriptor_.get(), patience)) fail("lock", path);
}

FileLock::~FileLock() { lastRelease = Clock::now(); }

}  // namespace velta
