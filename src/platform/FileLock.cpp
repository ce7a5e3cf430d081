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

using SteadyClock = std::chrono::steady_clock;
std::atomic<SteadyClock::time_point> lastRelease = SteadyClock::time_point();

[[noreturn]] void failWith(const char* operation, const std::string& path) {
  throw std::system_error(errno, std::generic_category(), std::string(operation) + " " + path);
}

}  // namespace

bool lockWithin(int descriptor, std::chrono::milliseconds patience) {
  const auto deadline = SteadyClock::now() + patience;
  while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    const bool busy = errno == EWOULDBLOCK || errno == EINTR;
    if (!busy || SteadyClock::now() >= deadline) return false;
    std::this_thread::sleep_for(kRetryInterval);
  }
  return true;
}

FileLock::FileLock(const std::string& path, std::chrono::milliseconds patience)
    : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (!descriptor_) failWith("open", path);
  std::this_thread::sleep_until(lastRelease.load() + kTurn);
  if (!lockWithin(descriptor_.get(), patience)) failWith("lock", path);
}

FileLock::~FileLock() { lastRelease = SteadyClock::now(); }

}  // namespace velta
