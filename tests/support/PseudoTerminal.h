// PseudoTerminal: a terminal of the test's own: it sees what a program shows there and types what a
// person would.
//
//   PseudoTerminal terminal;
//   ... something writes to terminal.line() or opens terminal.name() ...
//   terminal.readUntil("Password: ");
//   terminal.type("secret\n");
//
// What is written there arrives unchanged: a line feed stays one byte. Nothing waits for ever: what
// does not come within a minute throws std::runtime_error.
#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace velta::test {

class PseudoTerminal {
 public:
  PseudoTerminal() {
    if (person_ < 0 || ::grantpt(person_) != 0 || ::unlockpt(person_) != 0) fail("posix_openpt");
    name_ = ::ptsname(person_);
    line_ = ::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (line_ < 0) fail(name_);
    ::fcntl(person_, F_SETFD, FD_CLOEXEC);
    ::fcntl(person_, F_SETFL, O_NONBLOCK);
    termios settings = settingsNow();
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    ::tcsetattr(line_, TCSANOW, &settings);
  }
  ~PseudoTerminal() {
    ::close(person_);
    ::close(line_);
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  // Path by which a program opens it.
  const std::string& name() const { return name_; }
  // A descriptor of the program's side.
  int line() const { return line_; }

  // Makes it the controlling terminal of this process, which leads a new session from now on. Only
  // system calls: for a child between fork(2) and exec(3).
  bool takeControl() const {
    return ::setsid() >= 0 && ::ioctl(line_, TIOCSCTTY, 0) == 0;  // NOLINT: ioctl is variadic
  }

  // Types `keys`, as they come from the keyboard.
  void type(std::string_view keys) const {
    const auto written = ::write(person_, keys.data(), keys.size());
    if (written != static_cast<ssize_t>(keys.size())) fail("write");
  }

  // Takes in what is shown until `text` is among what was not handed out yet; hands that out, up to
  // and with `text`.
  std::string readUntil(std::string_view text) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (pending_.find(text) == std::string::npos) {
      if (std::chrono::steady_clock::now() > deadline)
        throw std::runtime_error("not shown: '" + std::string(text) + "' in '" + pending_ + "'");
      take();
    }
    const std::size_t end = pending_.find(text) + text.size();
    std::string shown = pending_.substr(0, end);
    pending_.erase(0, end);
    return shown;
  }

  // All that was shown and not handed out yet, once nobody else writes there any more.
  std::string rest() {
    constexpr std::string_view kMark = "\x01that is all\x01";
    if (::write(line_, kMark.data(), kMark.size()) < 0) fail("write");
    std::string shown = readUntil(kMark);
    shown.resize(shown.size() - kMark.size());
    return shown;
  }

  // Whether what is typed is shown.
  bool echoes() const { return (settingsNow().c_lflag & static_cast<tcflag_t>(ECHO)) != 0; }

 private:
  [[noreturn]] static void fail(const std::string& what) {
    throw std::runtime_error("pseudo-terminal: " + what + ": " + std::strerror(errno));
  }

  termios settingsNow() const {
    termios settings = {};
    if (::tcgetattr(line_, &settings) != 0) fail("tcgetattr");
    return settings;
  }

  void take() {
    pollfd waiting = {person_, POLLIN, 0};
    ::poll(&waiting, 1, 1000);
    char buffer[4096];
    const ssize_t count = ::read(person_, buffer, sizeof buffer);
    if (count > 0) pending_.append(buffer, static_cast<std::size_t>(count));
  }

  int person_ = ::posix_openpt(O_RDWR | O_NOCTTY);  // the side where somebody sits
  int line_ = -1;
  std::string name_;
  std::string pending_;  // taken in, not yet handed out
};

}  // namespace velta::test
