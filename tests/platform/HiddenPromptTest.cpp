#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/HiddenPrompt.h"
#include "support/PseudoTerminal.h"

namespace velta {
namespace {

using test::PseudoTerminal;

constexpr const char* kPrompt = "Key: ";
constexpr const char* kNothing = "(nothing)";

std::string ask(std::size_t capacity = 256) {
  return readHiddenLine(kPrompt, capacity).value_or(kNothing);
}

// A pipe whose ends close on exec.
struct PipePair {
  PipePair() {
    if (::pipe(ends.data()) != 0) throw std::runtime_error("pipe");
  }
  ~PipePair() {
    ::close(ends[0]);
    ::close(ends[1]);
  }
  PipePair(const PipePair&) = delete;
  PipePair& operator=(const PipePair&) = delete;

  void put(const std::string& text) const {
    if (::write(ends[1], text.data(), text.size()) < 0) throw std::runtime_error("write");
  }
  std::string take() const {
    pollfd waiting = {ends[0], POLLIN, 0};
    if (::poll(&waiting, 1, 60'000) <= 0) throw std::runtime_error("nothing came");
    std::array<char, 4096> buffer;
    const ssize_t count = ::read(ends[0], buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

  std::array<int, 2> ends = {-1, -1};
};

// A process at a terminal, started by a shell that leads the session: so that it can be stopped and
// go on, as in a real one. What `work` returns is told by result().
class AtTerminal {
 public:
  AtTerminal(const PseudoTerminal& terminal, std::function<std::string()> work)
      : terminal_(terminal), work_(std::move(work)) {
    shell_ = ::fork();
    if (shell_ < 0) throw std::runtime_error("fork");
    if (shell_ == 0) beShell();
  }
  ~AtTerminal() {
    if (job_ > 0 && !ended_) ::kill(job_, SIGKILL);
    ::kill(shell_, SIGKILL);
    ::waitpid(shell_, nullptr, 0);
  }
  AtTerminal(const AtTerminal&) = delete;
  AtTerminal& operator=(const AtTerminal&) = delete;

  std::string result() const { return result_.take(); }

  // Waits until it stops or ends; how, as waitpid(2) tells.
  int change() {
    const int status = std::stoi(changes_.take());
    ended_ = !WIFSTOPPED(status);
    return status;
  }

  pid_t job() {
    if (job_ == 0) job_ = std::stoi(started_.take());
    return job_;
  }
  void send(int signal) { ::kill(job(), signal); }

 private:
  [[noreturn]] void beShell() {
    if (!terminal_.takeControl()) ::_exit(101);
    const pid_t job = ::fork();
    if (job == 0) beJob();
    ::setpgid(job, job);
    std::signal(SIGTTOU, SIG_IGN);
    ::tcsetpgrp(terminal_.line(), job);
    started_.put(std::to_string(job));
    int status = 0;
    while (::waitpid(job, &status, WUNTRACED) == job) changes_.put(std::to_string(status));
    while (true) ::pause();  // the terminal belongs to the session for as long as it lives
  }

  [[noreturn]] void beJob() {
    ::setpgid(0, 0);
    std::signal(SIGTTOU, SIG_IGN);
    ::tcsetpgrp(terminal_.line(), ::getpid());
    std::signal(SIGTTOU, SIG_DFL);
    const rlimit noCore = {0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    result_.put(work_());
    ::_exit(0);
  }

  const PseudoTerminal& terminal_;
  const std::function<std::string()> work_;
  PipePair started_;
  PipePair result_;
  PipePair changes_;
  pid_t shell_ = -1;
  pid_t job_ = 0;
  bool ended_ = false;
};

TEST(HiddenPrompt, ShowsItsTextAndNotWhatIsTyped) {
  PseudoTerminal terminal;
  AtTerminal process(terminal, [] { return ask(); });
  EXPECT_EQ(terminal.readUntil(kPrompt), kPrompt);
  terminal.type("velta_secret\n");
  EXPECT_EQ(process.result(), "velta_secret");
  EXPECT_EQ(terminal.rest(), "\n");
}

TEST(HiddenPrompt, EchoIsOffAtThePromptAndBackAfterwards) {
  PseudoTerminal terminal;
  EXPECT_TRUE(terminal.echoes());
  AtTerminal process(terminal, [] { return ask(); });
  terminal.readUntil(kPrompt);
  EXPECT_FALSE(terminal.echoes());
  terminal.type("secret\n");
  process.result();
  EXPECT_TRUE(terminal.echoes());
}

TEST(HiddenPrompt, WhatWasTypedBeforeItIsNotTheAnswer) {
  PseudoTerminal terminal;
  const PipePair begin;
  AtTerminal process(terminal, [&begin] { return begin.take() == "begin" ? ask() : kNothing; });
  terminal.type("early\n");
  terminal.readUntil("early");  // the echo shows that it has arrived
  begin.put("begin");
  terminal.readUntil(kPrompt);
  terminal.type("in time\n");
  EXPECT_EQ(process.result(), "in time");
}

TEST(HiddenPrompt, LineMayBeCorrectedWhileItIsTyped) {
  PseudoTerminal terminal;
  AtTerminal process(terminal, [] { return ask(); });
  terminal.readUntil(kPrompt);
  terminal.type("wrong\x15secres\x7ft\n");  // the whole line erased, then the last letter
  EXPECT_EQ(process.result(), "secret");
}

TEST(HiddenPrompt, LongLineIsCutAndItsRestIsNoneOfTheNext) {
  PseudoTerminal terminal;
  AtTerminal process(terminal, [] {
    std::string lines;
    for (int i = 0; i < 3; ++i) lines += ask(8) + "|";
    return lines;
  });
  for (const char* const typed : {"0123456789\n", "1234567\n", "12345678\n"}) {
    terminal.readUntil(kPrompt);
    terminal.type(typed);
  }
  EXPECT_EQ(process.result(), "0123456|1234567|1234567|");
}

TEST(HiddenPrompt, EmptyLineAndEndOfInputAreEmptyTexts) {
  PseudoTerminal terminal;
  AtTerminal process(terminal, [] {
    std::string lines = ask() + "|";
    return lines + ask();
  });
  terminal.readUntil(kPrompt);
  terminal.type("\n");
  terminal.readUntil(kPrompt);
  terminal.type("\x04");
  EXPECT_EQ(process.result(), "|");
}

TEST(HiddenPrompt, ProcessWithoutTerminalGetsNothing) {
  const PipePair result;
  const pid_t child = ::fork();
  if (child == 0) {
    ::setsid();  // a new session has no terminal
    result.put(ask());
    ::_exit(0);
  }
  ASSERT_GT(child, 0);
  EXPECT_EQ(result.take(), kNothing);
  ::waitpid(child, nullptr, 0);
}

TEST(HiddenPrompt, SignalsOfTheKeyboardEndTheProcessWithTheEchoRestored) {
  for (const auto& [key, signal] : {std::pair("\x03", SIGINT), std::pair("\x1c", SIGQUIT)}) {
    PseudoTerminal terminal;
    AtTerminal process(terminal, [] { return ask(); });
    terminal.readUntil(kPrompt);
    terminal.type("half a sec");
    terminal.type(key);
    const int status = process.change();
    EXPECT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), signal);
    EXPECT_TRUE(terminal.echoes()) << "after signal " << signal;
    EXPECT_EQ(terminal.rest().find("half"), std::string::npos);
  }
}

TEST(HiddenPrompt, OtherDeadlySignalsRestoreTheEchoToo) {
  for (const int signal : {SIGTERM, SIGHUP}) {
    PseudoTerminal terminal;
    AtTerminal process(terminal, [] { return ask(); });
    terminal.readUntil(kPrompt);
    process.send(signal);
    const int status = process.change();
    EXPECT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), signal);
    EXPECT_TRUE(terminal.echoes()) << "after signal " << signal;
  }
}

TEST(HiddenPrompt, ProcessThatWasStoppedThereAsksAgain) {
  PseudoTerminal terminal;
  AtTerminal process(terminal, [] { return ask(); });
  for (int i = 0; i < 2; ++i) {
    terminal.readUntil(kPrompt);
    EXPECT_FALSE(terminal.echoes());
    terminal.type("half a sec\x1a");  // Ctrl-Z
    const int status = process.change();
    ASSERT_TRUE(WIFSTOPPED(status)) << status;
    EXPECT_TRUE(terminal.echoes()) << "the shell has a terminal that shows what is typed";
    process.send(SIGCONT);
  }
  terminal.readUntil(kPrompt);
  EXPECT_FALSE(terminal.echoes());
  terminal.type("secret\n");
  EXPECT_EQ(process.result(), "secret");
  EXPECT_TRUE(terminal.echoes());
  EXPECT_EQ(terminal.rest().find("sec"), std::string::npos);
}

TEST(HiddenPrompt, SignalsMeanAfterwardsWhatTheyMeantBefore) {
  PseudoTerminal terminal;
  AtTerminal process(terminal, [] {
    std::signal(SIGTERM, SIG_IGN);
    ask();
    return std::string(std::signal(SIGTERM, SIG_DFL) == SIG_IGN &&
                               std::signal(SIGINT, SIG_DFL) == SIG_DFL
                           ? "as before"
                           : "changed");
  });
  terminal.readUntil(kPrompt);
  terminal.type("\n");
  EXPECT_EQ(process.result(), "as before");
}

}  // namespace
}  // namespace velta
