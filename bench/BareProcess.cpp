// bare-process: the least that a server on two pipes can do. It reads lines that begin with a
// number and answers each with a line of so many bytes, so that the cost of the pipes, of the
// system and of whoever measures can be taken off a measurement.
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>

#include <unistd.h>

namespace {

bool writeAll(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// The answer of `size` bytes: the end of one line that is as long as the longest so far.
std::string_view answer(std::size_t size) {
  static std::string line = "\n";
  if (line.size() < size) line.insert(0, size - line.size(), 'x');
  return std::string_view(line).substr(line.size() - size);
}

}  // namespace

int main() {
  std::string pending;
  char piece[64 * 1024];
  while (true) {
    const ssize_t count = ::read(STDIN_FILENO, piece, sizeof piece);
    if (count == 0) return 0;
    if (count < 0 && errno != EINTR) return 1;
    if (count < 0) continue;
    pending.append(piece, static_cast<std::size_t>(count));
    for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
      const unsigned long size = std::strtoul(pending.c_str(), nullptr, 10);
      pending.erase(0, end + 1);
      if (!writeAll(answer(size > 0 ? size : 1))) return 1;
    }
  }
}
