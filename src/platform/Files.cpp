#include "platform/Files.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <pwd.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill, which csignal need not hold
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Descriptor.h"
#include "platform/FileLock.h"
#include "platform/Stdio.h"

namespace velta {
namespace {

constexpr mode_t kNewFileMode = 0644;
constexpr mode_t kNewDirectoryMode = 0755;
constexpr mode_t kPermissionBits = 07777;
constexpr std::chrono::milliseconds kLockPatience(100);     // appending may not stall a call
constexpr std::size_t kTailPiece = std::size_t{16} * 1024;  // bytes first read of a file's end
constexpr std::string_view kTemporarySuffix = ".tmp";
constexpr std::time_t kLongestUnlocked = 60;  // seconds from making a temporary file to locking it
constexpr int kMaxLinks = 32;                 // as deep as a chain of symbolic links may go

[[noreturn]] void fail(const char* operation, const std::string& path) {
  throw std::system_error(errno, std::generic_category(), std::string(operation) + " " + path);
}

double secondsOf(const struct stat& info) {
#ifdef __APPLE__
  const timespec& time = info.st_mtimespec;
#else
  const timespec& time = info.st_mtim;
#endif
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The system would take such a path for the one before its NUL byte; it names no file.
bool holdsNUL(const std::string& path) { return path.find('\0') != std::string::npos; }

Descriptor openFile(const std::string& path, int flags, mode_t mode = 0) {
  if (holdsNUL(path)) {
    errno = ENOENT;
    return {};
  }
  int descriptor = -1;
  do {
    descriptor = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (descriptor < 0 && errno == EINTR);
  return Descriptor(descriptor);
}

// A file open for reading, and its size in bytes.
struct RegularFile {
  Descriptor descriptor;
  std::size_t size;
};

RegularFile openRegularFile(const std::string& path) {
  // Without O_NONBLOCK a FIFO that nobody writes would hold the program up.
  Descriptor descriptor = openFile(path, O_RDONLY | O_NONBLOCK);
  if (!descriptor) fail("open", path);
  struct stat info = {};
  if (::fstat(descriptor.get(), &info) != 0) fail("look at", path);
  if (!S_ISREG(info.st_mode)) {
    errno = S_ISDIR(info.st_mode) ? EISDIR : ENOTSUP;
    fail("read", path);
  }
  return {std::move(descriptor), static_cast<std::size_t>(std::max<off_t>(info.st_size, 0))};
}

// `path` with all symbolic links resolved; empty when nothing is there.
std::string realPath(const std::string& path) {
  struct Free {
    void operator()(char* text) const {
      std::free(text);  // NOLINT(cppcoreguidelines-no-malloc): realpath(3) allocates with malloc
    }
  };
  const std::unique_ptr<char, Free> real(::realpath(path.c_str(), nullptr));
  return real ? std::string(real.get()) : std::string();
}

// The file that a write to `path` means: symbolic links followed, a dangling one to its target.
// Absent for a loop of links.
std::optional<std::string> followed(std::string path) {
  for (int hop = 0; hop < kMaxLinks; ++hop) {
    char target[4096];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    if (length < 0) return path;
    const std::string_view text(target, static_cast<std::size_t>(length));
    path = text.starts_with('/') ? std::string(text) : joinPath(parentPath(path), text);
  }
  return std::nullopt;
}

std::string linkTarget(const std::string& path) {
  if (auto target = followed(path)) return *std::move(target);
  errno = ELOOP;
  fail("follow", path);
}

// A name for a temporary file that no other process and no other call has.
std::string uniqueName() {
  static std::atomic<unsigned> counter{0};
  return std::string(kUniqueNamePrefix) + std::to_string(::getpid()) + "-" +
         std::to_string(counter.fetch_add(1)) + std::string(kTemporarySuffix);
}

// The process id in the name of a temporary file that begins with `prefix`; 0 when there is none.
pid_t writerOf(std::string_view name, std::string_view prefix) {
  pid_t writer = 0;
  if (name.starts_with(prefix)) {
    name.remove_prefix(prefix.size());
    std::from_chars(name.data(), name.data() + name.size(), writer);
  }
  return std::max<pid_t>(writer, 0);
}

// Whether nobody is writing the temporary file at `path` any more. Its writer holds a lock on it,
// from an instant after it was made; that a process lives which has the writer's number says
// nothing later, because numbers come again after a restart.
bool isStaleTemporary(const std::string& path, pid_t writer) {
  const Descriptor descriptor = openFile(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
  if (!descriptor || !lockWithin(descriptor.get(), std::chrono::milliseconds(0))) return false;
  if (::kill(writer, 0) != 0 && errno == ESRCH) return true;
  struct stat info = {};
  return ::fstat(descriptor.get(), &info) == 0 &&
         info.st_mtime + kLongestUnlocked < std::time(nullptr);
}

// The entries of a directory; none when it cannot be read.
template <class Action>
void forEachEntry(const std::string& directory, Action action) {
  struct Close {
    void operator()(DIR* open) const { ::closedir(open); }
  };
  const std::unique_ptr<DIR, Close> open(::opendir(directory.c_str()));
  if (!open) return;
  while (const dirent* entry = ::readdir(open.get())) action(*entry);
}

// What stands at the target of a write can be replaced, or nothing stands there.
void requireReplaceable(const std::string& target) {
  struct stat info = {};
  if (::stat(target.c_str(), &info) != 0 || S_ISREG(info.st_mode)) return;
  errno = S_ISDIR(info.st_mode) ? EISDIR : ENOTSUP;
  fail("replace", target);
}

// Makes what was written to a file outlast a loss of power; negative when that fails.
int flushToDisk(int descriptor) {
#ifdef __APPLE__
  // fsync(2) there leaves the bytes in the memory of the drive. Not every file system can do more.
  if (::fcntl(descriptor, F_FULLFSYNC) == 0) return 0;
#endif
  return ::fsync(descriptor);
}

// A file that becomes `target`, or is removed. Failures name the target.
class TemporaryFile {
 public:
  // Created exclusively in `directory`, with exactly `permissions`, or with 0644 less the umask.
  // Its name is `name`, or one that nothing else has.
  TemporaryFile(std::string target, const std::string& directory, const std::string& name,
                std::optional<mode_t> permissions)
      : target_(std::move(target)) {
    const mode_t mode = permissions.value_or(kNewFileMode);
    do {
      path_ = joinPath(directory, name.empty() ? uniqueName() : name);
      // What has a name that is only ours was left by a dead process with our number.
      if (!name.empty()) ::unlink(path_.c_str());
      descriptor_ = openFile(path_, O_WRONLY | O_CREAT | O_EXCL, mode);
    } while (!descriptor_ && errno == EEXIST && name.empty());
    // A name that is taken stands in the way itself.
    if (!descriptor_) fail("create", errno == EEXIST ? path_ : target_);
    lockWithin(descriptor_.get(), std::chrono::milliseconds(0));  // says that it is being written
    // The umask may have taken bits that were asked for.
    if (permissions && ::fchmod(descriptor_.get(), *permissions) != 0) {
      const int cause = errno;
      ::unlink(path_.c_str());
      errno = cause;
      fail("set permissions of", target_);
    }
  }
  ~TemporaryFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  void write(std::string_view bytes) {
    if (!writeAll(descriptor_.get(), bytes)) fail("write", target_);
    if (flushToDisk(descriptor_.get()) != 0) fail("fsync", target_);
  }

  // The lock is held until then, so that nobody takes the file for one that was left.
  void moveToTarget() {
    if (::rename(path_.c_str(), target_.c_str()) != 0) fail("replace", target_);
    path_.clear();
  }

 private:
  std::string target_;
  std::string path_;  // empty once moved
  Descriptor descriptor_;
};

// Makes a rename in `directory` durable. The new content is in place already, so a file system that
// cannot sync directories is no failure.
void syncDirectory(const std::string& directory) {
  if (const Descriptor descriptor = openFile(directory, O_RDONLY | O_DIRECTORY)) {
    ::fsync(descriptor.get());
  }
}

// `length` bytes at `offset`, fewer when the file has become shorter meanwhile.
std::string readAt(int descriptor, std::size_t offset, std::size_t length,
                   const std::string& path) {
  std::string bytes(length, '\0');
  std::size_t filled = 0;
  while (filled < length) {
    const ssize_t count = ::pread(descriptor, bytes.data() + filled, length - filled,
                                  static_cast<off_t>(offset + filled));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("read", path);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return bytes;
}

// Where the last `lines` pieces between line feeds begin; npos when `bytes` holds fewer line feeds.
std::size_t beginOfLastLines(std::string_view bytes, std::size_t lines) {
  std::size_t at = bytes.size();
  for (std::size_t found = 0; found < lines; ++found) {
    at = at == 0 ? std::string_view::npos : bytes.rfind('\n', at - 1);
    if (at == std::string_view::npos) return at;
  }
  return at + 1;
}

// The first byte that does not continue a character of UTF-8.
std::size_t firstCharacterBoundary(std::string_view bytes) {
  std::size_t at = 0;
  while (at < bytes.size() && (static_cast<unsigned char>(bytes[at]) & 0xC0U) == 0x80U) ++at;
  return at;
}

// Whether the last line of a regular file has no line feed, as after a write that was cut short.
bool endsInsideLine(const std::string& path) {
  const Descriptor descriptor = openFile(path, O_RDONLY);
  struct stat info = {};
  if (!descriptor || ::fstat(descriptor.get(), &info) != 0 || info.st_size == 0) return false;
  char last = '\n';
  return ::pread(descriptor.get(), &last, 1, info.st_size - 1) == 1 && last != '\n';
}

// Takes the last `length` bytes of a file away again, which has been `size` bytes long before them,
// unless somebody has written since.
void takeBack(int descriptor, off_t size, std::size_t length) {
  struct stat info = {};
  if (length == 0 || ::fstat(descriptor, &info) != 0) return;
  if (info.st_size != size + static_cast<off_t>(length)) return;
  while (::ftruncate(descriptor, size) != 0 && errno == EINTR) continue;
}

// One write(2); only after a short one another, which completes the bytes or tells the cause.
// Then the piece is taken back, when the file was `size` bytes long and is ours alone.
void appendPiece(int descriptor, std::string_view bytes, std::optional<off_t> size,
                 const std::string& path) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    const std::string_view rest = bytes.substr(written);
    const ssize_t count = ::write(descriptor, rest.data(), rest.size());
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      const int cause = errno;
      if (size) takeBack(descriptor, *size, written);
      errno = cause;
      fail("write", path);
    }
  }
}

// The size of a regular file, absent for anything else.
std::optional<off_t> sizeOf(int descriptor) {
  struct stat info = {};
  if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  return info.st_size;
}

// `path` without empty and "." components.
std::string tidied(std::string_view path) {
  std::string tidy;
  while (!path.empty()) {
    const std::size_t slash = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, slash);
    if (!component.empty() && component != ".") tidy.append("/").append(component);
    path.remove_prefix(std::min(slash + 1, path.size()));
  }
  return tidy.empty() ? "/" : tidy;
}

std::optional<std::string> homeOfUser(const std::string& name) {
  const passwd* entry = ::getpwnam(name.c_str());
  if (entry == nullptr || entry->pw_dir == nullptr) return std::nullopt;
  return std::string(entry->pw_dir);
}

// glob(3) tells of a folder that it cannot list to a function that knows nothing else.
thread_local std::error_code* gObstacle = nullptr;

int noteObstacle(const char*, int error) {
  const bool isThere = error != ENOENT && error != ENOTDIR && error != ENAMETOOLONG;
  if (gObstacle != nullptr && isThere && !*gObstacle)
    gObstacle->assign(error, std::generic_category());
  return 0;  // goes on with the other folders
}

}  // namespace

std::optional<FileStatus> fileStatus(const std::string& path) {
  struct stat info = {};
  // Hardly any path is a link, so that nearly always one call tells both.
  if (holdsNUL(path) || ::lstat(path.c_str(), &info) != 0) return std::nullopt;
  const bool isLink = S_ISLNK(info.st_mode);
  if (isLink && ::stat(path.c_str(), &info) != 0) return std::nullopt;
  const auto permissions = static_cast<mode_t>(info.st_mode & kPermissionBits);
  return FileStatus{secondsOf(info), S_ISDIR(info.st_mode), isLink, permissions};
}

bool leadsElsewhere(const std::string& path) {
  struct stat info = {};
  if (holdsNUL(path) || ::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return false;
  return !realPath(path).starts_with(joinPath(realPath(parentPath(path)), ""));
}

std::string readFile(const std::string& path) { return std::string(readFileBytes(path).view()); }

FileBytes readFileBytes(const std::string& path) {
  const RegularFile file = openRegularFile(path);
  // One byte more than the size, so that there is room for the read that shows the end.
  std::size_t room = file.size + 1;
  FileBytes read{std::make_unique_for_overwrite<char[]>(room)};
  while (true) {
    if (read.size == room) {
      room = std::max<std::size_t>(2 * room, 4096);
      auto larger = std::make_unique_for_overwrite<char[]>(room);
      std::memcpy(larger.get(), read.bytes.get(), read.size);
      read.bytes = std::move(larger);
    }
    char* const free = read.bytes.get() + read.size;
    const ssize_t count = ::read(file.descriptor.get(), free, room - read.size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("read", path);
    if (count == 0) return read;
    read.size += static_cast<std::size_t>(count);
  }
}

bool createNewDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), kNewDirectoryMode) == 0) return true;
  if (errno == EEXIST) return false;
  fail("create directory", path);
}

bool isExecutableFile(const std::string& path) {
  const auto status = fileStatus(path);
  return status && !status->isDirectory && ::access(path.c_str(), X_OK) == 0;
}

std::string readFileEnd(const std::string& path, std::size_t lines, std::size_t maxBytes) {
  const auto [descriptor, size] = openRegularFile(path);
  std::string end;
  std::size_t wanted = kTailPiece;
  // Twice as much each time until the lines are there, so that no byte is read more than twice.
  while (true) {
    wanted = std::min({wanted, size, maxBytes});
    end = readAt(descriptor.get(), size - wanted, wanted, path);
    const std::size_t begin = beginOfLastLines(end, lines);
    if (begin != std::string::npos) return end.substr(begin);
    if (wanted == size) return end;
    if (wanted == maxBytes) return end.substr(firstCharacterBoundary(end));
    wanted *= 2;
  }
}

void createDirectories(const std::string& path) {
  if (::mkdir(path.c_str(), kNewDirectoryMode) == 0) return;
  if (errno == ENOENT) {
    createDirectories(parentPath(path));
    if (::mkdir(path.c_str(), kNewDirectoryMode) == 0) return;
  }
  if (errno == EEXIST) {
    const auto status = fileStatus(path);
    if (status && status->isDirectory) return;
    errno = ENOTDIR;
  }
  fail("create directory", path);
}

void writeFileAtomically(const std::string& path, std::string_view bytes,
                         std::optional<mode_t> permissions, const std::string& temporaryName) {
  const std::string target = linkTarget(path);
  const std::string directory = parentPath(target);
  createDirectories(directory);
  requireReplaceable(target);
  if (!permissions) {
    if (const auto old = fileStatus(target)) permissions = old->permissions;
  }
  TemporaryFile temporary(target, directory, temporaryName, permissions);
  temporary.write(bytes);
  temporary.moveToTarget();
  syncDirectory(directory);
}

void writeFileAtomicallyFrom(const std::string& temporaryDirectory, const std::string& path,
                             std::string_view bytes) {
  TemporaryFile temporary(path, temporaryDirectory, "", std::nullopt);
  temporary.write(bytes);
  temporary.moveToTarget();
  syncDirectory(parentPath(path));
}

void removeStaleTemporaries(const std::string& directory, std::string_view prefix) {
  forEachEntry(directory, [&](const dirent& entry) {
    const pid_t writer = writerOf(entry.d_name, prefix);
    if (writer == 0) return;
    const std::string path = joinPath(directory, entry.d_name);
    if (isStaleTemporary(path, writer)) ::unlink(path.c_str());
  });
}

std::vector<std::string> directoriesOfLinkedFiles(const std::string& directory) {
  std::vector<std::string> directories;
  forEachEntry(directory, [&](const dirent& entry) {
    if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) return;
    const std::string path = joinPath(directory, entry.d_name);
    const auto target = followed(path);
    if (!target || *target == path) return;
    const auto status = fileStatus(*target);
    if (!status || !status->isDirectory) directories.push_back(parentPath(*target));
  });
  std::sort(directories.begin(), directories.end());
  directories.erase(std::unique(directories.begin(), directories.end()), directories.end());
  std::erase(directories, directory);
  return directories;
}

bool removeFile(const std::string& path) { return !holdsNUL(path) && ::unlink(path.c_str()) == 0; }

void appendLineToFile(const std::string& path, std::string_view line, mode_t permissions) {
  // Without O_NONBLOCK a FIFO that nobody reads would hold the program up.
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK;
  const Descriptor descriptor = openFile(path, flags, permissions);
  if (!descriptor) fail("open", path);
  // Alone, because a line that another process is just writing looks like one that was cut short.
  const bool alone = lockWithin(descriptor.get(), kLockPatience);
  const bool cutShort = alone && endsInsideLine(path);
  appendPiece(descriptor.get(), cutShort ? '\n' + std::string(line) : std::string(line),
              alone ? sizeOf(descriptor.get()) : std::nullopt, path);
}

std::vector<std::string> globPaths(const std::string& pattern, std::error_code* obstacle) {
  if (holdsNUL(pattern)) return {};
  glob_t found = {};
  std::vector<std::string> paths;
  gObstacle = obstacle;
  // Sorted below, by bytes; glob(3) would sort by the locale.
  if (::glob(pattern.c_str(), GLOB_NOSORT, noteObstacle, &found) == 0) {
    paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  }
  gObstacle = nullptr;
  ::globfree(&found);
  std::sort(paths.begin(), paths.end());
  return paths;
}

std::string escapeForGlob(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    if (c == '*' || c == '?' || c == '[' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string homeDirectory(const std::map<std::string, std::string>& environment) {
  const auto home = environment.find("HOME");
  if (home != environment.end() && !home->second.empty()) return home->second;
  const passwd* entry = ::getpwuid(::getuid());
  if (entry != nullptr && entry->pw_dir != nullptr) return entry->pw_dir;
  return "/";
}

std::string expandTilde(std::string_view path, const std::string& home) {
  if (!path.starts_with('~')) return std::string(path);
  const std::size_t slash = std::min(path.find('/'), path.size());
  const std::string_view rest = path.substr(slash);
  if (slash == 1) return home + std::string(rest);
  const auto other = homeOfUser(std::string(path.substr(1, slash - 1)));
  return other ? *other + std::string(rest) : std::string(path);
}

std::string absolutePath(std::string_view path) {
  if (path.starts_with('/')) return tidied(path);
  char* current = ::getcwd(nullptr, 0);
  const std::string absolute = joinPath(current != nullptr ? current : "/", path);
  std::free(current);  // NOLINT(cppcoreguidelines-no-malloc): getcwd(3) allocates with malloc
  return tidied(absolute);
}

std::string joinPath(std::string_view directory, std::string_view name) {
  std::string path(directory);
  if (!path.ends_with('/')) path += '/';
  path += name;
  return path;
}

std::string parentPath(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  return std::string(path.substr(0, std::max<std::size_t>(slash, 1)));
}

std::string lastComponent(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

}  // namespace velta
