#include "platform/Stdio.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velta {
namespace {

constexpr std::size_t kReadSize = std::size_t{64} * 1024;
constexpr std::size_t kKeptCapacity = std::size_t{1024} * 1024;

// A write of at most this many bytes to a pipe that poll(2) calls writable does not block (POSIX).
constexpr std::size_t kPipePiece = PIPE_BUF;

// Whether `descriptor` takes bytes within `patience`.
bool waitUntilWritable(int descriptor, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd waiting = {descriptor, POLLOUT, 0};
    const int ready = ::poll(&waiting, 1, static_cast<int>(std::max<long long>(left.count(), 0)));
    if (ready > 0) return (waiting.revents & POLLOUT) != 0;
    if (ready == 0 || errno != EINTR) return false;
  }
}

// One read, waited for when `descriptor` does not block; 0 at the end, negative on failure.
ssize_t readSome(int descriptor, char* room, std::size_t size) {
  while (true) {
    const ssize_t count = ::read(descriptor, room, size);
    if (count >= 0) return count;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      pollfd waiting = {descriptor, POLLIN, 0};
      if (::poll(&waiting, 1, -1) < 0 && errno != EINTR) return count;
    } else if (errno != EINTR) {
      return count;
    }
  }
}

ssize_t writeSome(int descriptor, std::string_view bytes) {
  ssize_t count = 0;
  do {
    count = ::write(descriptor, bytes.data(), bytes.size());
  } while (count < 0 && errno == EINTR);
  return count;
}

}  // namespace

void ignoreWriteSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

bool isTerminal(int descriptor) { return ::isatty(descriptor) == 1; }

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = writeSome(descriptor, bytes);
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      // The other end may share a non-blocking descriptor with us: wait for it.
      pollfd waiting = {descriptor, POLLOUT, 0};
      if (::poll(&waiting, 1, -1) < 0 && errno != EINTR) return false;
    } else {
      return false;
    }
  }
  return true;
}

bool LineReader::next(std::string_view& line) {
  while (true) {
    const std::size_t end = buffer_.find('\n', scanned_);
    if (end != std::string::npos) {
      line = std::string_view(buffer_).substr(begin_, end - begin_);
      begin_ = scanned_ = end + 1;
      return true;
    }
    scanned_ = buffer_.size();
    if (!ended_ && fill()) continue;
    ended_ = true;
    line = std::string_view(buffer_).substr(begin_);
    begin_ = scanned_ = buffer_.size();
    return !line.empty();
  }
}

bool LineReader::fill() {
  buffer_.erase(0, begin_);
  scanned_ -= begin_;
  begin_ = 0;
  // After an uncommonly long line the room goes back.
  if (buffer_.empty() && buffer_.capacity() > kKeptCapacity) buffer_ = std::string();
  // Read aside and append: room made in the buffer itself would be zeroed for every piece.
  char piece[kReadSize];
  const ssize_t count = readSome(descriptor_, piece, sizeof piece);
  if (count > 0) buffer_.append(piece, static_cast<std::size_t>(count));
  return count > 0;
}

void PatientWriter::write(std::string_view bytes) {
  const auto deadline = std::chrono::steady_clock::now() + patience_;
  while (!bytes.empty() && !gaveUp_) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (!waitUntilWritable(descriptor_, std::max(left, std::chrono::milliseconds(0)))) {
      gaveUp_ = true;
      return;
    }
    const ssize_t count = writeSome(descriptor_, bytes.substr(0, kPipePiece));
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
      gaveUp_ = true;
    }
  }
}

}  // namespace velta
