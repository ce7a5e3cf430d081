#include "platform/HiddenPrompt.h"

#ifdef __APPLE__
#include <readpassphrase.h>
#else
#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>

#include <fcntl.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigaction, which csignal need not hold
#include <termios.h>
#include <unistd.h>

#include "platform/Descriptor.h"
#include "platform/Stdio.h"
#endif

namespace velta {

#ifdef __APPLE__

std::optional<std::string> readHiddenLine(const std::string& prompt, std::size_t capacity) {
  std::string line(capacity, '\0');
  if (::readpassphrase(prompt.c_str(), line.data(), line.size(), RPP_REQUIRE_TTY) == nullptr)
    return std::nullopt;
  line.resize(line.find('\0'));
  return line;
}

#else

namespace {

// Signals that end or stop the process while it waits at the prompt.
constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGTTIN, SIGTTOU};

volatile std::sig_atomic_t gArrived = 0;  // number of the signal that came, 0 for none

void noteSignal(int signal) { gArrived = signal; }

// While it lives, the signals are only noted, and interrupt read(2).
class NotedSignals {
 public:
  NotedSignals() {
    gArrived = 0;
    struct sigaction action = {};
    action.sa_handler = noteSignal;  // without SA_RESTART, on purpose
    ::sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < kSignals.size(); ++i)
      ::sigaction(kSignals[i], &action, &before_[i]);
  }
  ~NotedSignals() {
    for (std::size_t i = 0; i < kSignals.size(); ++i)
      ::sigaction(kSignals[i], &before_[i], nullptr);
  }
  NotedSignals(const NotedSignals&) = delete;
  NotedSignals& operator=(const NotedSignals&) = delete;

 private:
  std::array<struct sigaction, kSignals.size()> before_ = {};
};

// While it lives, the terminal does not show what is typed.
class NoEcho {
 public:
  explicit NoEcho(int terminal) : terminal_(terminal) {
    on_ = ::tcgetattr(terminal, &before_) == 0;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
    on_ = on_ && ::tcsetattr(terminal, TCSAFLUSH, &silent) == 0;
  }
  ~NoEcho() {
    // A signal that comes between may not leave the terminal mute.
    while (on_ && ::tcsetattr(terminal_, TCSAFLUSH, &before_) != 0 && errno == EINTR) {
    }
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;

  explicit operator bool() const { return on_; }

 private:
  int terminal_;
  bool on_ = false;
  termios before_ = {};
};

// One line, its first `capacity` - 1 bytes; absent when a signal came or the terminal failed.
std::optional<std::string> readLine(int terminal, std::size_t capacity) {
  std::string line;
  while (gArrived == 0) {
    char byte = 0;
    const ssize_t count = ::read(terminal, &byte, 1);
    if (count < 0) return std::nullopt;
    if (count == 0 || byte == '\n' || byte == '\r') return line;
    if (line.size() + 1 < capacity) line.push_back(byte);
  }
  return std::nullopt;
}

// One try at the prompt; absent when it did not come to a line.
std::optional<std::string> askOnce(int terminal, const std::string& prompt, std::size_t capacity) {
  const NotedSignals signals;
  const NoEcho silence(terminal);
  if (!silence) return std::nullopt;
  writeAll(terminal, prompt);
  std::optional<std::string> line = readLine(terminal, capacity);
  writeAll(terminal, "\n");  // the one that was typed was not shown
  return line;
}

}  // namespace

std::optional<std::string> readHiddenLine(const std::string& prompt, std::size_t capacity) {
  const Descriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC));
  if (!terminal) return std::nullopt;
  while (true) {
    std::optional<std::string> line = askOnce(terminal.get(), prompt, capacity);
    const int arrived = gArrived;
    if (arrived == 0) return line;
    // The terminal is as it was; now the signal may do what it does. A process that was only
    // stopped asks again when it goes on.
    ::kill(::getpid(), arrived);
  }
}

#endif

}  // namespace velta
