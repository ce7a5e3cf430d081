#include "platform/Process.h"

#include <fcntl.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): POSIX signals, which csignal need not hold
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __APPLE__
#include <mach-o/dyld.h>
#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): arc4random_buf
#else
#include <sys/random.h>
#endif

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "platform/Descriptor.h"

#ifdef __APPLE__
extern char** environ;  // no header declares it there
#endif

namespace velta {
namespace {

constexpr int kNullInput = 0;
constexpr int kOutput = 1;
constexpr int kError = 2;
constexpr const char* kNullDevice = "/dev/null";
constexpr mode_t kLogMode = 0644;
constexpr const char* kPrepare = "prepare a process";

void check(int error, const char* operation) {
  if (error != 0) throw std::system_error(error, std::generic_category(), operation);
}

// What happens to the descriptors of a process that is to start.
class FileActions {
 public:
  FileActions() { check(::posix_spawn_file_actions_init(&actions_), kPrepare); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void open(int descriptor, const char* path, int flags, mode_t mode = 0) {
    check(::posix_spawn_file_actions_addopen(&actions_, descriptor, path, flags, mode), kPrepare);
  }
  void duplicate(int from, int to) {
    check(::posix_spawn_file_actions_adddup2(&actions_, from, to), kPrepare);
  }
  void changeDirectory(const std::string& path) {
    check(::posix_spawn_file_actions_addchdir_np(&actions_, path.c_str()), kPrepare);
  }
  // Also the descriptors that this process was itself started with. On macOS Attributes see to it.
  void closeOthers() {
#ifndef __APPLE__
    check(::posix_spawn_file_actions_addclosefrom_np(&actions_, kError + 1), kPrepare);
#endif
  }

  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_ = {};
};

class Attributes {
 public:
  // `flags` besides those that every process gets.
  explicit Attributes(int flags) {
    check(::posix_spawnattr_init(&attributes_), kPrepare);
    sigset_t none;  // what empties and fills it are macros on macOS, so they have no "::"
    sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    // What this process ignores would stay ignored in the other.
    sigset_t ignored;
    sigemptyset(&ignored);
    sigaddset(&ignored, SIGPIPE);
    sigaddset(&ignored, SIGXFSZ);
    ::posix_spawnattr_setsigdefault(&attributes_, &ignored);
    flags |= POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
#ifdef __APPLE__
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;  // see closeOthers
#endif
    ::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
  }
  ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_ = {};
};

// The texts as the null-terminated array that the system takes; they must outlive it.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

struct Pipe {
  Pipe() {
    int ends[2] = {-1, -1};
    check(::pipe(ends) == 0 ? 0 : errno, "make a pipe");
    for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
    reading = Descriptor(ends[0]);
    writing = Descriptor(ends[1]);
  }
  Descriptor reading;
  Descriptor writing;
};

std::string readToEnd(int descriptor) {
  std::string bytes;
  char piece[4096];
  while (true) {
    const ssize_t count = ::read(descriptor, piece, sizeof piece);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return bytes;
    bytes.append(piece, static_cast<std::size_t>(count));
  }
}

// Waits for the end of a child; whether it exited with status 0.
bool endedWell(pid_t pid) {
  int status = 0;
  pid_t waited = 0;
  do {
    waited = ::waitpid(pid, &status, 0);
  } while (waited < 0 && errno == EINTR);
  return waited == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string resolved(const std::string& path) {
  char* real = ::realpath(path.c_str(), nullptr);
  if (real == nullptr) return path;
  std::string text(real);
  std::free(real);  // NOLINT(cppcoreguidelines-no-malloc): realpath(3) allocates with malloc
  return text;
}

std::string pathFromSystem() {
#ifdef __APPLE__
  std::uint32_t size = 0;
  ::_NSGetExecutablePath(nullptr, &size);
  std::string path(size, '\0');
  if (::_NSGetExecutablePath(path.data(), &size) != 0) return "";
  path.resize(path.find('\0'));
  return path;
#else
  return "/proc/self/exe";
#endif
}

}  // namespace

pid_t spawnDetached(const std::vector<std::string>& arguments,
                    const std::map<std::string, std::string>& environment,
                    const std::string& workingDirectory, const std::string& logFile) {
  std::vector<std::string> vector = arguments;
  std::vector<std::string> variables;
  variables.reserve(environment.size());
  for (const auto& [name, value] : environment) {
    variables.emplace_back(name).append("=").append(value);
  }
  FileActions actions;
  actions.open(kNullInput, kNullDevice, O_RDONLY);
  actions.open(kOutput, logFile.c_str(), O_WRONLY | O_APPEND | O_CREAT, kLogMode);
  actions.duplicate(kOutput, kError);
  actions.closeOthers();
  actions.changeDirectory(workingDirectory);
  const Attributes attributes(POSIX_SPAWN_SETSID);
  pid_t pid = 0;
  check(::posix_spawn(&pid, arguments.front().c_str(), actions.get(), attributes.get(),
                      pointersTo(vector).data(), pointersTo(variables).data()),
        "start");
  return pid;
}

std::optional<std::string> outputOfProgram(const std::vector<std::string>& arguments) {
  std::vector<std::string> vector = arguments;
  Pipe pipe;
  FileActions actions;
  actions.open(kNullInput, kNullDevice, O_RDONLY);
  actions.duplicate(pipe.writing.get(), kOutput);
  actions.open(kError, kNullDevice, O_WRONLY);
  actions.closeOthers();
  const Attributes attributes(0);
  pid_t pid = 0;
  if (::posix_spawn(&pid, arguments.front().c_str(), actions.get(), attributes.get(),
                    pointersTo(vector).data(), environ) != 0)
    return std::nullopt;
  pipe.writing.reset();
  // Read to the end first: a program that fills the pipe would never end otherwise.
  std::string output = readToEnd(pipe.reading.get());
  return endedWell(pid) ? std::optional(std::move(output)) : std::nullopt;
}

bool isProcessAlive(pid_t pid) {
  if (pid <= 0) return false;  // to the system these mean groups of processes
  if (::kill(pid, 0) != 0) return errno == EPERM;
  return ::waitpid(pid, nullptr, WNOHANG) != pid;
}

std::string executablePath(const std::string& argument0) {
  return resolved(argument0.find('/') != std::string::npos ? argument0 : pathFromSystem());
}

std::vector<std::uint8_t> randomBytes(std::size_t count) {
  std::vector<std::uint8_t> bytes(count);
#ifdef __APPLE__
  ::arc4random_buf(bytes.data(), count);
#else
  check(::getentropy(bytes.data(), count) == 0 ? 0 : errno, "read random bytes");
#endif
  return bytes;
}

}  // namespace velta
