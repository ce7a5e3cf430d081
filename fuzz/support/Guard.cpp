#include "support/Guard.h"

#include <atomic>
#include <string_view>

#include "support/Require.h"

namespace velta::fuzz {
namespace {

// Null while nothing is guarded.
std::atomic<const std::string*> guarded = nullptr;

// Whether `path` may be touched: below the folder, and not out of it again by "..".
bool isInside(std::string_view path, std::string_view folder) {
  const bool goesUp = path.find("/../") != std::string_view::npos || path.ends_with("/..");
  return path.starts_with(folder) && !goesUp &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

[[maybe_unused]] void check(const char* call, const char* path) {
  const std::string* folder = guarded.load(std::memory_order_relaxed);
  if (folder == nullptr || isInside(path, *folder)) return;
  guarded = nullptr;  // or the report itself would be caught
  violated("nothing outside of the home is touched", std::string(call) + " " + path);
}

[[maybe_unused]] void checkNoNetwork() {
  if (guarded.load(std::memory_order_relaxed) == nullptr) return;
  guarded = nullptr;
  violated("nothing goes out over the network");
}

}  // namespace

Guard::Guard(const std::string& folder) { guarded = &folder; }
Guard::~Guard() { guarded = nullptr; }

}  // namespace velta::fuzz

#ifdef __linux__

#include <cstdarg>

#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

namespace {

template <class Result, class... Arguments>
Result system(long number, Arguments... arguments) {
  return static_cast<Result>(::syscall(number, arguments...));
}

}  // namespace

extern "C" {

// One core: a thread for every few files would take longer than reading them, and threads would
// make an input's way less the same every time.
int get_nprocs() noexcept { return 1; }

int open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    std::va_list rest;
    va_start(rest, flags);
    mode = va_arg(rest, mode_t);
    va_end(rest);
  }
  velta::fuzz::check("open", path);
  return system<int>(SYS_openat, AT_FDCWD, path, flags, mode);
}

int mkdir(const char* path, mode_t mode) noexcept {
  velta::fuzz::check("mkdir", path);
  return system<int>(SYS_mkdirat, AT_FDCWD, path, mode);
}

int rename(const char* from, const char* to) noexcept {
  velta::fuzz::check("rename", from);
  velta::fuzz::check("rename to", to);
  return system<int>(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0U);
}

int unlink(const char* path) noexcept {
  velta::fuzz::check("unlink", path);
  return system<int>(SYS_unlinkat, AT_FDCWD, path, 0);
}

int connect(int descriptor, const sockaddr* address, socklen_t size) {
  velta::fuzz::checkNoNetwork();
  return system<int>(SYS_connect, descriptor, address, size);
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const arguments[],
                char* const environment[]) {
  velta::fuzz::check("posix_spawn", path);
  static const auto real =
      reinterpret_cast<decltype(&posix_spawn)>(::dlsym(RTLD_NEXT, "posix_spawn"));
  return real(pid, path, actions, attributes, arguments, environment);
}

}  // extern "C"

#endif
