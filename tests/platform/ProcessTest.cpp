#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/Process.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::map<std::string, std::string> kEnvironment = {{"PATH", "/usr/bin:/bin"}};

// The arguments that run a script of the shell. It ends with a command of its own, lest the shell
// gives its process to the last one.
std::vector<std::string> shell(const std::string& script) {
  return {"/bin/sh", "-c", script + "\nexit 0"};
}

// Runs `script` detached to its end; what it wrote is the result.
class Detached {
 public:
  std::string outputOf(const std::string& script) {
    const pid_t pid = spawnDetached(shell(script), environment, directory, log);
    EXPECT_EQ(::waitpid(pid, nullptr, 0), pid);
    return folder.read("log");
  }

  TemporaryFolder folder;
  std::map<std::string, std::string> environment = kEnvironment;
  std::string directory = folder.path();
  std::string log = folder.file("log");
};

// The errno of the failure to start; 0 when it does not fail.
int failureOf(const std::vector<std::string>& arguments, const std::string& directory,
              const std::string& log) {
  try {
    ::waitpid(spawnDetached(arguments, kEnvironment, directory, log), nullptr, 0);
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

// --- spawnDetached
// ---------------------------------------------------------------------------------

TEST(SpawnDetached, ReturnsTheProcessIdAndArgumentsArriveAsTheyAre) {
  const Detached run;
  const pid_t pid = spawnDetached(
      {"/bin/sh", "-c", R"(printf '%s,' "$$" "$0" "$@"; exit 0)", "", "a b", "$HOME", "\xff", "*"},
      run.environment, run.directory, run.log);
  ASSERT_EQ(::waitpid(pid, nullptr, 0), pid);
  EXPECT_EQ(run.folder.read("log"), std::to_string(pid) + ",,a b,$HOME,\xff,*,");
}

TEST(SpawnDetached, ProcessLeadsASessionOfItsOwn) {
  const Detached run;
  const pid_t pid = spawnDetached({"/bin/sleep", "60"}, run.environment, run.directory, run.log);
  EXPECT_EQ(::getsid(pid), pid);
  EXPECT_EQ(::getpgid(pid), pid);
  EXPECT_NE(::getsid(0), pid);
  ::kill(pid, SIGKILL);
  EXPECT_EQ(::waitpid(pid, nullptr, 0), pid);
}

TEST(SpawnDetached, BlockedSignalsAreNotInherited) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const Detached run;
  const pid_t pid = spawnDetached({"/bin/sleep", "60"}, run.environment, run.directory, run.log);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ::kill(pid, SIGTERM);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
}

TEST(SpawnDetached, IgnoredWriteSignalsAreDefaultAgain) {
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    const auto before = std::signal(signal, SIG_IGN);
    const Detached run;
    const pid_t pid = spawnDetached({"/bin/sleep", "60"}, run.environment, run.directory, run.log);
    std::signal(signal, before);
    ::kill(pid, signal);
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (::waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) ::kill(pid, SIGKILL);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << signal;
  }
}

TEST(SpawnDetached, StandardInputIsEmpty) {
  Detached run;
  EXPECT_EQ(run.outputOf("cat; echo end"), "end\n");
}

TEST(SpawnDetached, OutputAndErrorsAreAppendedToTheLog) {
  Detached run;
  run.folder.write("log", "before\n");
  EXPECT_EQ(run.outputOf("echo out; echo err >&2; echo out"), "before\nout\nerr\nout\n");
  EXPECT_EQ(run.outputOf("echo again"), "before\nout\nerr\nout\nagain\n");
}

TEST(SpawnDetached, NewLogIsReadableByAll) {
  const mode_t before = ::umask(0);
  Detached run;
  run.outputOf("");
  ::umask(before);
  EXPECT_EQ(fs::status(run.log).permissions(), fs::perms{0644});
}

TEST(SpawnDetached, DescriptorsAreNotInherited) {
  Detached run;
  const int kept = ::open("/dev/null", O_RDONLY);  // stays open on exec, on purpose
  const int high = ::fcntl(kept, F_DUPFD, 200);
  EXPECT_EQ(run.outputOf("for d in " + std::to_string(kept) + " " + std::to_string(high) +
                         "; do test -e /dev/fd/$d && echo $d; done"),
            "");
  ::close(kept);
  ::close(high);
}

TEST(SpawnDetached, OnlyTheThreeStandardDescriptorsAreOpen) {
  if (!fs::exists("/proc/self/fd")) GTEST_SKIP() << "this system has no /proc";
  Detached run;
  const int kept = ::open("/dev/null", O_RDONLY);
  std::string links = run.outputOf("ls /proc/$$/fd");
  ::close(kept);
  EXPECT_EQ(links, "0\n1\n2\n");
}

TEST(SpawnDetached, EnvironmentIsTheGivenOneAlone) {
  ::setenv("VELTA_TEST_INHERITED", "yes", 1);
  Detached run;
  run.environment["VELTA_TEST_GIVEN"] = "a=b c\n\xe6\x9c\x83";
  const std::string output = run.outputOf("env");
  ::unsetenv("VELTA_TEST_INHERITED");
  EXPECT_THAT(output, HasSubstr("VELTA_TEST_GIVEN=a=b c\n\xe6\x9c\x83\n"));
  EXPECT_THAT(output, Not(HasSubstr("VELTA_TEST_INHERITED")));
}

TEST(SpawnDetached, WorkingDirectoryIsTheGivenOne) {
  Detached run;
  run.directory = run.folder.makeFolder("work here");
  const std::string here = fs::current_path().string();
  EXPECT_EQ(run.outputOf("pwd -P"), run.directory + "\n");
  EXPECT_EQ(fs::current_path().string(), here);
}

TEST(SpawnDetached, WhatCannotStartThrowsTheCause) {
  const TemporaryFolder folder;
  const std::string log = folder.file("log");
  const std::vector<std::string> fine = {"/bin/sh", "-c", ":"};
  EXPECT_EQ(failureOf(fine, folder.path(), log), 0);
  EXPECT_EQ(failureOf({"/no/such/program"}, folder.path(), log), ENOENT);
  EXPECT_EQ(failureOf({"sh", "-c", ":"}, folder.path(), log), ENOENT);  // PATH is not searched
  EXPECT_EQ(failureOf({folder.write("plain", "x")}, folder.path(), log), EACCES);
  EXPECT_EQ(failureOf(fine, folder.file("missing"), log), ENOENT);
  EXPECT_EQ(failureOf(fine, folder.path(), folder.file("missing/log")), ENOENT);
  EXPECT_EQ(failureOf(fine, folder.path(), folder.path()), EISDIR);
}

TEST(SpawnDetached, FailuresLeaveNoDescriptorsOpen) {
  const TemporaryFolder folder;
  const int before = ::dup(0);
  ::close(before);
  for (int attempt = 0; attempt < 20; ++attempt)
    failureOf({"/no/such/program"}, folder.path(), folder.file("log"));
  const int after = ::dup(0);
  ::close(after);
  EXPECT_EQ(after, before);
}

// --- isProcessAlive
// --------------------------------------------------------------------------------

TEST(IsProcessAlive, RunningProcessIsAliveUntilItEndsAndIsThenReaped) {
  const Detached run;
  const pid_t pid = spawnDetached({"/bin/sleep", "60"}, run.environment, run.directory, run.log);
  EXPECT_TRUE(isProcessAlive(pid));
  EXPECT_TRUE(isProcessAlive(pid));
  ::kill(pid, SIGKILL);
  siginfo_t info = {};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
  EXPECT_FALSE(isProcessAlive(pid));
  EXPECT_EQ(::waitpid(pid, nullptr, 0), -1);
  EXPECT_EQ(errno, ECHILD);
  EXPECT_FALSE(isProcessAlive(pid));
}

TEST(IsProcessAlive, ProcessesOfOthersAreAlive) {
  EXPECT_TRUE(isProcessAlive(1));
  EXPECT_TRUE(isProcessAlive(::getpid()));
  EXPECT_TRUE(isProcessAlive(::getppid()));
}

TEST(IsProcessAlive, NumbersThatAreNoProcessAreNot) {
  // A child that has ended, which asking for a group of processes would reap.
  const Detached run;
  const pid_t child = spawnDetached(shell(""), run.environment, run.directory, run.log);
  siginfo_t info = {};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
  for (const pid_t pid :
       {0, -1, -child, std::numeric_limits<pid_t>::min(), std::numeric_limits<pid_t>::max()})
    EXPECT_FALSE(isProcessAlive(pid)) << pid;
  EXPECT_EQ(::waitpid(child, nullptr, WNOHANG), child);
}

// --- executablePath, randomBytes
// -------------------------------------------------------------------

TEST(ExecutablePath, NameWithASlashIsResolved) {
  const TemporaryFolder folder;
  const std::string program = folder.write("bin/program", "");
  fs::create_symlink(program, folder.file("link"));
  EXPECT_EQ(executablePath(folder.file("link")), program);
  EXPECT_EQ(executablePath(folder.file("bin/../bin/./program")), program);
  EXPECT_EQ(executablePath(fs::relative(program).string()), program);
}

TEST(ExecutablePath, BareOrEmptyNameIsThatOfThisProgram) {
  const std::string mine = executablePath("platform_tests");
  EXPECT_THAT(mine, StartsWith("/"));
  EXPECT_THAT(mine, EndsWith("/platform_tests"));
  EXPECT_TRUE(fs::exists(mine));
  EXPECT_EQ(executablePath(""), mine);
}

TEST(ExecutablePath, NameThatDoesNotExistStaysAsItIs) {
  EXPECT_EQ(executablePath("/no/such/program"), "/no/such/program");
}

TEST(RandomBytes, ThereAreAsManyAsWanted) {
  for (const std::size_t count : {0U, 1U, 3U, 256U}) EXPECT_EQ(randomBytes(count).size(), count);
}

TEST(RandomBytes, TheyDifferFromCallToCallAndTakeEveryValue) {
  EXPECT_NE(randomBytes(16), randomBytes(16));
  std::set<std::uint8_t> seen;
  for (int call = 0; call < 64; ++call)
    for (const std::uint8_t byte : randomBytes(256)) seen.insert(byte);
  EXPECT_EQ(seen.size(), 256U);  // misses one of them once in 10^25 runs
}

TEST(OutputOfProgram, IsWhatItWroteBeforeItEndedWell) {
  EXPECT_EQ(outputOfProgram({"/bin/sh", "-c", "echo token; echo noise >&2"}), "token\n");
  EXPECT_EQ(outputOfProgram({"/bin/sh", "-c", "exit 0"}), "");
  EXPECT_EQ(outputOfProgram({"/bin/sh", "-c", "cat"}), "");  // the input is empty
}

TEST(OutputOfProgram, IsAbsentWhenItFailsOrCannotStart) {
  EXPECT_EQ(outputOfProgram({"/bin/sh", "-c", "echo token; exit 44"}), std::nullopt);
  EXPECT_EQ(outputOfProgram({"/bin/sh", "-c", "echo token; kill -9 $$"}), std::nullopt);
  EXPECT_EQ(outputOfProgram({"/nowhere/security"}), std::nullopt);
}

// More than a pipe holds: who waited first and read later would wait for ever.
TEST(OutputOfProgram, MayBeLong) {
  const auto output = outputOfProgram({"/bin/sh", "-c", "head -c 1000000 /dev/zero | tr '\\0' x"});
  EXPECT_EQ(output, std::string(1'000'000, 'x'));
}

TEST(OutputOfProgram, ProgramGetsNoOtherDescriptor) {
  const auto output = outputOfProgram({"/bin/sh", "-c", "ls /proc/self/fd 2>/dev/null | wc -l"});
  if (!output || *output == "0\n") GTEST_SKIP() << "no /proc";
  EXPECT_EQ(*output, "4\n");  // its three streams, and the directory that ls reads
}

}  // namespace
}  // namespace velta
