#include "index/ParallelFor.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/Processor.h"

namespace velta {
namespace {

constexpr std::size_t kMaxThreads = 8;

// Threads that are joined whatever happens.
class Helpers {
 public:
  Helpers() = default;
  Helpers(const Helpers&) = delete;
  Helpers& operator=(const Helpers&) = delete;
  ~Helpers() {
    for (std::thread& thread : threads_) thread.join();
  }

  // Starts up to `count` threads; a system that gives fewer only costs time.
  void start(std::size_t count, const std::function<void()>& work) {
    threads_.reserve(count);
    try {
      while (threads_.size() < count) threads_.emplace_back(work);
    } catch (const std::system_error&) {
      return;
    }
  }

 private:
  std::vector<std::thread> threads_;
};

}  // namespace

void parallelFor(std::size_t count, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next = 0;
  const std::function<void()> drain = [&] {
    for (std::size_t number = next++; number < count; number = next++) work(number);
  };
  const std::size_t threads = std::min({count, usableProcessors(), kMaxThreads});
  Helpers helpers;
  if (threads > 1) helpers.start(threads - 1, drain);
  drain();
}

}  // namespace velta
