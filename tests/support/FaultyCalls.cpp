// FaultyCalls: a library to preload (LD_PRELOAD) into a program. Of the calls by which the program
// changes files it makes one fail, or ends the program there, so that tests can try every moment at
// which a disk may be full or a machine may stop.
//
//   VELTA_FAULT_UNDER=FOLDER  only calls on this folder and what is below it count; without it, all
//   VELTA_FAULT_AT=N          the N-th call that counts is the faulty one, with N+ all from there
//   VELTA_FAULT_HOW=WAY       kill        SIGKILL instead of the call
//                             kill-after  SIGKILL right after the call
//                             ENOSPC ...  the call does nothing and fails with this error
//                             short       a write takes only half of the bytes and the next one
//                                         fails with ENOSPC (with N+ all further ones); calls that
//                                         do not write are left alone
//   VELTA_FAULT_LOG=FILE      gets a line for each call that counts: "3 write mcp-config.json"
//
// What counts, before it is known whether it will succeed: opening a file to write or create it,
// write and pwrite to regular files other than standard output and error, fsync, fdatasync, chmod,
// rename, unlink, remove, mkdir, rmdir, truncate, and their relatives for descriptors and folders.
// Not seen is what the C library does by itself: fopen, mkstemp, the files that posix_spawn opens.
//
// The variables leave the environment at once, with LD_PRELOAD: programs that this one starts, or
// becomes, run without faults (so start the program itself, not a shell that starts it). Without
// the variables nothing happens. Those that make no sense end the program with status 125, for a
// fault that never comes would prove nothing.
//
// Nothing here needs the C++ library: a sanitized program may not have it loaded early.

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

enum class Way { none, kill, killAfter, shortWrite, error };

struct Path {
  char text[PATH_MAX] = "";
};

// Set before main, then only read.
struct Plan {
  bool active = false;
  long at = 0;
  bool lasting = false;  // the calls after it are faulty as well
  Way way = Way::none;
  int error = 0;  // of Way::error
  Path under;     // empty: everything counts
  Path log;       // empty: none
};
Plan plan;

std::atomic<long> counted{0};
std::atomic<bool> full{false};  // a write was cut short, and the next one finds no room

// What becomes of a call.
struct Fate {
  Way way = Way::none;
  int error = 0;
};

// --- the plan -----------------------------------------------------------------------------------

[[noreturn]] void refuse(const char* what, const char* value) {
  std::fprintf(stderr, "FaultyCalls: %s: '%s'\n", what, value);
  ::_exit(125);
}

int errorNamed(const char* name) {
  struct Named {
    const char* name;
    int error;
  };
  constexpr Named known[] = {
      {"ENOSPC", ENOSPC}, {"EDQUOT", EDQUOT}, {"EIO", EIO},       {"EACCES", EACCES},
      {"EPERM", EPERM},   {"EROFS", EROFS},   {"EINTR", EINTR},   {"EMFILE", EMFILE},
      {"ENFILE", ENFILE}, {"ENOMEM", ENOMEM}, {"ENOENT", ENOENT}, {"EEXIST", EEXIST},
      {"EXDEV", EXDEV},   {"EBUSY", EBUSY},   {"EFBIG", EFBIG},   {"EINVAL", EINVAL},
  };
  for (const Named& entry : known) {
    if (std::strcmp(entry.name, name) == 0) return entry.error;
  }
  refuse("no such VELTA_FAULT_HOW", name);
}

void setPlace(const char* at) {
  char* end = nullptr;
  plan.at = std::strtol(at, &end, 10);
  plan.lasting = std::strcmp(end, "+") == 0;
  if (plan.at <= 0 || (*end != '\0' && !plan.lasting)) refuse("no such VELTA_FAULT_AT", at);
}

void setWay(const char* how) {
  if (std::strcmp(how, "kill") == 0) {
    plan.way = Way::kill;
  } else if (std::strcmp(how, "kill-after") == 0) {
    plan.way = Way::killAfter;
  } else if (std::strcmp(how, "short") == 0) {
    plan.way = Way::shortWrite;
  } else {
    plan.way = Way::error;
    plan.error = errorNamed(how);
  }
}

void copy(Path& path, const char* text) {
  if (std::strlen(text) >= sizeof path.text) refuse("path too long", text);
  std::strcpy(path.text, text);
}

// Adds a line to the log with system calls, so that it does not count itself.
void addToLog(const char* line, std::size_t size) {
  const long file = ::syscall(SYS_openat, AT_FDCWD, plan.log.text,
                              O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (file < 0 || ::syscall(SYS_write, file, line, size) != static_cast<long>(size)) {
    refuse("cannot write VELTA_FAULT_LOG", plan.log.text);
  }
  ::syscall(SYS_close, file);
}

__attribute__((constructor)) void readPlan() {
  const char* at = std::getenv("VELTA_FAULT_AT");
  const char* how = std::getenv("VELTA_FAULT_HOW");
  const char* log = std::getenv("VELTA_FAULT_LOG");
  const char* under = std::getenv("VELTA_FAULT_UNDER");
  if (at == nullptr && how == nullptr && log == nullptr) return;
  if (at != nullptr || how != nullptr) {
    setPlace(at == nullptr ? "" : at);
    setWay(how == nullptr ? "" : how);
  }
  if (log != nullptr) {
    copy(plan.log, log);
    addToLog("", 0);  // the file is there even when no call counts
  }
  // The paths of calls are compared without symbolic links.
  if (under != nullptr && ::realpath(under, plan.under.text) == nullptr) copy(plan.under, under);
  for (const char* name : {"VELTA_FAULT_AT", "VELTA_FAULT_HOW", "VELTA_FAULT_LOG",
                           "VELTA_FAULT_UNDER", "LD_PRELOAD"}) {
    ::unsetenv(name);
  }
  plan.active = true;
}

// --- paths --------------------------------------------------------------------------------------

Path pathOf(int descriptor) {
  char link[64];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  Path path;
  const ssize_t length = ::readlink(link, path.text, sizeof path.text - 1);
  path.text[length < 0 ? 0 : length] = '\0';
  return path;
}

// `text` below `folder`, as far as there is room; that is a path of no file, then.
Path joined(const char* folder, const char* text) {
  Path path;
  if (std::strlen(folder) + 1 + std::strlen(text) < sizeof path.text) {
    std::strcpy(path.text, folder);
    std::strcat(path.text, "/");
    std::strcat(path.text, text);
  }
  return path;
}

Path absolute(int folder, const char* text) {
  if (text[0] == '/') return joined("", text + 1);
  if (folder != AT_FDCWD) return joined(pathOf(folder).text, text);
  Path current;
  if (::getcwd(current.text, sizeof current.text) == nullptr) return {};
  return joined(current.text, text);
}

// Where a path leads: without symbolic links, except that the file itself may be one when `follow`
// is false. What is not there stays as it was given.
Path resolved(int folder, const char* text, bool follow) {
  const Path whole = absolute(folder, text);
  Path real;
  if (follow && ::realpath(whole.text, real.text) != nullptr) return real;
  const char* slash = std::strrchr(whole.text, '/');
  if (slash == nullptr || slash == whole.text) return whole;
  Path parent = whole;
  parent.text[slash - whole.text] = '\0';
  if (::realpath(parent.text, real.text) == nullptr) return whole;
  return joined(real.text, slash + 1);
}

// The part of `path` below the folder that counts; null when it is elsewhere.
const char* nameBelow(const Path& path) {
  const std::size_t length = std::strlen(plan.under.text);
  if (length == 0) return path.text;
  if (std::strncmp(path.text, plan.under.text, length) != 0) return nullptr;
  if (path.text[length] == '\0') return ".";
  return path.text[length] == '/' ? path.text + length + 1 : nullptr;
}

// --- counting -----------------------------------------------------------------------------------

// A call leaves errno alone when it succeeds, whatever was looked up before it.
class KeepErrno {
 public:
  KeepErrno() = default;
  ~KeepErrno() { errno = saved_; }
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;

 private:
  const int saved_ = errno;
};

[[noreturn]] void die() {
  ::kill(::getpid(), SIGKILL);
  while (true) ::pause();  // the signal may take a moment to arrive
}

void logCall(long number, const char* call, const char* name, const char* target) {
  char line[2 * PATH_MAX + 64];
  const int size = std::snprintf(line, sizeof line, "%ld %s %s%s%s\n", number, call, name,
                                 target[0] == '\0' ? "" : " -> ", target);
  addToLog(line, static_cast<std::size_t>(size));
}

// Counts a call on a file of this name and, where there is one, a second of the name `target`.
Fate countCall(const char* call, const char* name, const char* target = "") {
  const long number = counted.fetch_add(1) + 1;
  if (plan.log.text[0] != '\0') logCall(number, call, name, target);
  const bool faulty = plan.lasting ? number >= plan.at : number == plan.at;
  if (!faulty) return {};
  if (plan.way == Way::kill) die();
  return {plan.way, plan.error};
}

Fate fateOf(const char* call, const Path& path) {
  const char* name = nameBelow(path);
  return name == nullptr ? Fate{} : countCall(call, name);
}

Fate fateOf(const char* call, int folder, const char* path, bool follow) {
  if (!plan.active || path == nullptr) return {};
  const KeepErrno keep;
  return fateOf(call, resolved(folder, path, follow));
}

Fate fateOf(const char* call, int descriptor) {
  if (!plan.active) return {};
  const KeepErrno keep;
  return fateOf(call, pathOf(descriptor));
}

Fate fateOfRename(const char* call, int oldFolder, const char* oldPath, int newFolder,
                  const char* newPath) {
  if (!plan.active || oldPath == nullptr || newPath == nullptr) return {};
  const KeepErrno keep;
  const Path from = resolved(oldFolder, oldPath, false);
  const Path to = resolved(newFolder, newPath, false);
  const char* fromName = nameBelow(from);
  const char* toName = nameBelow(to);
  if (fromName == nullptr && toName == nullptr) return {};
  return countCall(call, fromName != nullptr ? fromName : from.text,
                   toName != nullptr ? toName : to.text);
}

Fate fateOfWrite(const char* call, int descriptor, std::size_t size) {
  struct stat info = {};
  if (!plan.active || descriptor <= STDERR_FILENO) return {};
  const KeepErrno keep;
  if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) return {};
  const Path path = pathOf(descriptor);
  if (nameBelow(path) == nullptr) return {};
  const Fate fate = fateOf(call, path);
  if (full) {
    full = plan.lasting;
    return {Way::error, ENOSPC};
  }
  if (fate.way != Way::shortWrite) return fate;
  full = size >= 2 || plan.lasting;
  if (size < 2) return {Way::error, ENOSPC};  // half of it would be nothing
  return fate;
}

// --- calls --------------------------------------------------------------------------------------

// The function that the program would have called.
template <typename Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

template <typename Call>
auto carryOut(const Fate& fate, Call call) -> decltype(call()) {
  if (fate.way == Way::error) {
    errno = fate.error;
    return -1;
  }
  const auto result = call();
  if (fate.way == Way::killAfter) die();
  return result;
}

std::size_t allowed(const Fate& fate, std::size_t size) {
  return fate.way == Way::shortWrite ? size / 2 : size;
}

bool changesFiles(int flags) {
  return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
}

bool takesMode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

int openFile(const char* call, int folder, const char* path, int flags, mode_t mode) {
  const bool follow = (flags & O_NOFOLLOW) == 0 && (flags & O_EXCL) == 0;
  const Fate fate = changesFiles(flags) ? fateOf(call, folder, path, follow) : Fate{};
  return carryOut(fate, [&] {
    return real<int(int, const char*, int, ...)>("openat64")(folder, path, flags, mode);
  });
}

}  // namespace

// The functions have names of their own and take the places of those in quotes, so that no
// declaration of the system's stands in their way.
#define REPLACES(name) __asm__(name) __attribute__((visibility("default")))
#define SAME_AS(name) __attribute__((alias(name)))

extern "C" {

// --- opening ------------------------------------------------------------------------------------

int faultyOpen(const char* path, int flags, ...) REPLACES("open");
int faultyOpen(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = takesMode(flags) ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return openFile("open", AT_FDCWD, path, flags, mode);
}
int faultyOpen64(const char* path, int flags, ...) REPLACES("open64") SAME_AS("open");
// Those of programs built with _FORTIFY_SOURCE.
int faultyOpen2(const char* path, int flags, ...) REPLACES("__open_2") SAME_AS("open");
int faultyOpen642(const char* path, int flags, ...) REPLACES("__open64_2") SAME_AS("open");

int faultyOpenat(int folder, const char* path, int flags, ...) REPLACES("openat");
int faultyOpenat(int folder, const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = takesMode(flags) ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return openFile("openat", folder, path, flags, mode);
}
int faultyOpenat64(int, const char*, int, ...) REPLACES("openat64") SAME_AS("openat");
int faultyOpenat2(int, const char*, int, ...) REPLACES("__openat_2") SAME_AS("openat");
int faultyOpenat642(int, const char*, int, ...) REPLACES("__openat64_2") SAME_AS("openat");

// --- contents -----------------------------------------------------------------------------------

ssize_t faultyWrite(int descriptor, const void* bytes, size_t size) REPLACES("write");
ssize_t faultyWrite(int descriptor, const void* bytes, size_t size) {
  const Fate fate = fateOfWrite("write", descriptor, size);
  return carryOut(fate, [&] {
    return real<ssize_t(int, const void*, size_t)>("write")(descriptor, bytes, allowed(fate, size));
  });
}

ssize_t faultyPwrite(int descriptor, const void* bytes, size_t size, off_t at) REPLACES("pwrite");
ssize_t faultyPwrite(int descriptor, const void* bytes, size_t size, off_t at) {
  const Fate fate = fateOfWrite("pwrite", descriptor, size);
  return carryOut(fate, [&] {
    return real<ssize_t(int, const void*, size_t, off_t)>("pwrite")(descriptor, bytes,
                                                                    allowed(fate, size), at);
  });
}
ssize_t faultyPwrite64(int, const void*, size_t, off_t) REPLACES("pwrite64") SAME_AS("pwrite");

int faultyFsync(int descriptor) REPLACES("fsync");
int faultyFsync(int descriptor) {
  return carryOut(fateOf("fsync", descriptor), [&] { return real<int(int)>("fsync")(descriptor); });
}

int faultyFdatasync(int descriptor) REPLACES("fdatasync");
int faultyFdatasync(int descriptor) {
  return carryOut(fateOf("fdatasync", descriptor),
                  [&] { return real<int(int)>("fdatasync")(descriptor); });
}

int faultyFtruncate(int descriptor, off_t size) REPLACES("ftruncate");
int faultyFtruncate(int descriptor, off_t size) {
  return carryOut(fateOf("ftruncate", descriptor),
                  [&] { return real<int(int, off_t)>("ftruncate")(descriptor, size); });
}
int faultyFtruncate64(int, off_t) REPLACES("ftruncate64") SAME_AS("ftruncate");

int faultyTruncate(const char* path, off_t size) REPLACES("truncate");
int faultyTruncate(const char* path, off_t size) {
  return carryOut(fateOf("truncate", AT_FDCWD, path, true),
                  [&] { return real<int(const char*, off_t)>("truncate")(path, size); });
}
int faultyTruncate64(const char*, off_t) REPLACES("truncate64") SAME_AS("truncate");

// --- permissions --------------------------------------------------------------------------------

int faultyFchmod(int descriptor, mode_t mode) REPLACES("fchmod");
int faultyFchmod(int descriptor, mode_t mode) {
  return carryOut(fateOf("fchmod", descriptor),
                  [&] { return real<int(int, mode_t)>("fchmod")(descriptor, mode); });
}

int faultyChmod(const char* path, mode_t mode) REPLACES("chmod");
int faultyChmod(const char* path, mode_t mode) {
  return carryOut(fateOf("chmod", AT_FDCWD, path, true),
                  [&] { return real<int(const char*, mode_t)>("chmod")(path, mode); });
}

int faultyFchmodat(int folder, const char* path, mode_t mode, int flags) REPLACES("fchmodat");
int faultyFchmodat(int folder, const char* path, mode_t mode, int flags) {
  return carryOut(fateOf("fchmodat", folder, path, (flags & AT_SYMLINK_NOFOLLOW) == 0), [&] {
    return real<int(int, const char*, mode_t, int)>("fchmodat")(folder, path, mode, flags);
  });
}

// --- names --------------------------------------------------------------------------------------

int faultyRename(const char* from, const char* to) REPLACES("rename");
int faultyRename(const char* from, const char* to) {
  return carryOut(fateOfRename("rename", AT_FDCWD, from, AT_FDCWD, to),
                  [&] { return real<int(const char*, const char*)>("rename")(from, to); });
}

int faultyRenameat(int fromFolder, const char* from, int toFolder, const char* to)
    REPLACES("renameat");
int faultyRenameat(int fromFolder, const char* from, int toFolder, const char* to) {
  return carryOut(fateOfRename("renameat", fromFolder, from, toFolder, to), [&] {
    return real<int(int, const char*, int, const char*)>("renameat")(fromFolder, from, toFolder,
                                                                     to);
  });
}

int faultyRenameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags)
    REPLACES("renameat2");
int faultyRenameat2(int fromFolder, const char* from, int toFolder, const char* to,
                    unsigned flags) {
  return carryOut(fateOfRename("renameat2", fromFolder, from, toFolder, to), [&] {
    return real<int(int, const char*, int, const char*, unsigned)>("renameat2")(
        fromFolder, from, toFolder, to, flags);
  });
}

int faultyUnlink(const char* path) REPLACES("unlink");
int faultyUnlink(const char* path) {
  return carryOut(fateOf("unlink", AT_FDCWD, path, false),
                  [&] { return real<int(const char*)>("unlink")(path); });
}

int faultyUnlinkat(int folder, const char* path, int flags) REPLACES("unlinkat");
int faultyUnlinkat(int folder, const char* path, int flags) {
  return carryOut(fateOf("unlinkat", folder, path, false), [&] {
    return real<int(int, const char*, int)>("unlinkat")(folder, path, flags);
  });
}

int faultyRemove(const char* path) REPLACES("remove");
int faultyRemove(const char* path) {
  return carryOut(fateOf("remove", AT_FDCWD, path, false),
                  [&] { return real<int(const char*)>("remove")(path); });
}

int faultyMkdir(const char* path, mode_t mode) REPLACES("mkdir");
int faultyMkdir(const char* path, mode_t mode) {
  return carryOut(fateOf("mkdir", AT_FDCWD, path, false),
                  [&] { return real<int(const char*, mode_t)>("mkdir")(path, mode); });
}

int faultyMkdirat(int folder, const char* path, mode_t mode) REPLACES("mkdirat");
int faultyMkdirat(int folder, const char* path, mode_t mode) {
  return carryOut(fateOf("mkdirat", folder, path, false), [&] {
    return real<int(int, const char*, mode_t)>("mkdirat")(folder, path, mode);
  });
}

int faultyRmdir(const char* path) REPLACES("rmdir");
int faultyRmdir(const char* path) {
  return carryOut(fateOf("rmdir", AT_FDCWD, path, false),
                  [&] { return real<int(const char*)>("rmdir")(path); });
}

}  // extern "C"
