// Files: the file system as this program uses it, over POSIX.
//
// Functions that write throw std::system_error, whose code carries errno and whose what() names
// the operation and the path. Functions that look (status, glob) never throw: what cannot be seen
// is absent. Paths are UTF-8 bytes, handed to the system as they are.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <sys/types.h>

namespace velta {

// What stat(2) tells about a path; symbolic links are followed.
struct FileStatus {
  double modified = 0;  // seconds since the epoch, to the nanosecond as far as a double holds
  bool isDirectory = false;
  bool isLink = false;     // the path itself is a symbolic link, and the rest tells of its target
  mode_t permissions = 0;  // the low twelve mode bits
};

// Status of `path`, absent when nothing is there or it cannot be looked at.
std::optional<FileStatus> fileStatus(const std::string& path);

// Whether `path` is a symbolic link that leads out of the directory in which it stands, or nowhere.
// What stands beside a file that the user has named is read only where this is false.
bool leadsElsewhere(const std::string& path);

// The whole content of a regular file. Throws std::system_error; what is no regular file is refused
// (ENOTSUP, a directory EISDIR), since a FIFO may never end and a device may have no end.
std::string readFile(const std::string& path);

// What was read of a file, in room of its own that nothing was written to before: clearing it
// first, as a string does, is two hundredths of the time that reading all meetings takes.
struct FileBytes {
  std::unique_ptr<char[]> bytes;
  std::size_t size = 0;

  std::string_view view() const { return {bytes.get(), size}; }
};

// The same as readFile, for what is only looked at.
FileBytes readFileBytes(const std::string& path);

// Creates `path` and missing parents, like mkdir -p. Throws std::system_error.
void createDirectories(const std::string& path);

// Creates the directory `path`, whose parent exists. False when something is there already; throws
// std::system_error for every other failure.
bool createNewDirectory(const std::string& path);

// Whether `path` is a regular file that this user may execute.
bool isExecutableFile(const std::string& path);

// The end of a regular file: its last `lines` pieces between line feeds (a line feed at the end of
// the file is followed by an empty piece), at most `maxBytes` of them, cut at a character of UTF-8.
// No more than that is read, however long the file is. Throws std::system_error.
std::string readFileEnd(const std::string& path, std::size_t lines, std::size_t maxBytes);

// Replaces the content of `path` so that a reader, and a crash at any moment, sees the old bytes
// or the new ones: a temporary sibling is created exclusively with its final permissions, written,
// fsync'ed, renamed over the target, and the directory fsync'ed. A symbolic link at `path` is
// followed, so a linked file stays linked. The parent directory is created when missing. Without
// `permissions` the old file's are kept, or 0644 less the umask for a new one. On failure the
// temporary file is removed and the old file untouched; a target that is there and no regular file
// (a device, a FIFO) is refused with ENOTSUP. The temporary file has a name that nothing
// else has, or is called `temporaryName`, which then nobody else may use; such a name is to end in
// the process id. Throws std::system_error, whose what() names the file that `path` means and
// not the temporary one, unless a `temporaryName` is taken.
void writeFileAtomically(const std::string& path, std::string_view bytes,
                         std::optional<mode_t> permissions = std::nullopt,
                         const std::string& temporaryName = "");

// The same for a file in a directory that was only just made in `temporaryDirectory`: there the
// temporary file stands, so that one directory is to be looked through for those that were left,
// however many the directories in it are.
void writeFileAtomicallyFrom(const std::string& temporaryDirectory, const std::string& path,
                             std::string_view bytes);

// How the names of temporary files begin that nobody has named; a process id follows.
inline constexpr std::string_view kUniqueNamePrefix = ".velta-";

// Removes the temporary files that writeFileAtomically left in `directory` when its process was
// killed: those whose names are `prefix`, a process id and anything. Those of writes that are under
// way stay. One pass over the directory; what stands in directories in it is not looked at.
void removeStaleTemporaries(const std::string& directory,
                            std::string_view prefix = kUniqueNamePrefix);

// The directories in which the symbolic links in `directory` have the files that they lead to, each
// once, without `directory` itself. A write to such a link has its temporary file there.
std::vector<std::string> directoriesOfLinkedFiles(const std::string& directory);

// Removes the file at `path`, no directory. False when it could not be removed.
bool removeFile(const std::string& path);

// Appends `line`, line feed included, with one write(2) to a descriptor opened with O_APPEND, so
// that lines of several processes never mix; creates the file with `permissions`. A last line that
// was cut short (by a crash, say) is ended first, so that it costs no line but itself. A line that
// does not fit on the disk is taken back. Throws std::system_error.
void appendLineToFile(const std::string& path, std::string_view line, mode_t permissions);

// Paths that glob(3) finds for `pattern`, without flags, sorted by bytes. No match and every error
// give an empty list. `obstacle`, when given, becomes the first reason for which a folder could not
// be listed; that there is no such folder is none.
std::vector<std::string> globPaths(const std::string& pattern, std::error_code* obstacle = nullptr);

// `text` with a backslash before every character that glob(3) treats specially.
std::string escapeForGlob(std::string_view text);

// Home directory of the user: HOME of `environment` when set and not empty, else the password
// database, else "/".
std::string homeDirectory(const std::map<std::string, std::string>& environment);

// `path` with a leading "~" (alone or before "/") replaced by `home`, and a leading "~name" by that
// user's home directory when there is such a user. Anything else comes back unchanged.
std::string expandTilde(std::string_view path, const std::string& home);

// `path` made absolute against the current directory, without empty and "." components; ".." stays,
// since what it means depends on symbolic links.
std::string absolutePath(std::string_view path);

// `directory` and `name` joined with one "/".
std::string joinPath(std::string_view directory, std::string_view name);

// Everything before the last "/" ("/" for a path directly below the root, "." without any).
std::string parentPath(std::string_view path);

// Everything after the last "/".
std::string lastComponent(std::string_view path);

}  // namespace velta
