#include "platform/FileLock.h"

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

[[noreturn]] void fail(const char* operation, const std::string& path) {
  throw std::system_error(errno, std::generic_category(), std::string(operation) + " " + path);
}

}  // namespace

bool lockWithin(int descriptor, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    const bool busy = errno == EWOULDBLOCK || errno == EINTR;
    if (!busy || std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kRetryInterval);
  }
  return true;
}

FileLock::FileLock(const std::string& path, std::chrono::milliseconds patience)
    : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (!descriptor_) fail("open", path);
  if (!lockWithin(descriptor_.get(), patience)) fail("lock", path);
}

}  // namespace velta
