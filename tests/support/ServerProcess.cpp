#include "support/ServerProcess.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velta::test {
namespace {

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;
};

// Both ends close on exec, so that no process of another test holds them open.
Pipe makePipe() {
  int ends[2];
  if (::pipe(ends) != 0) throw std::runtime_error("pipe: " + std::string(std::strerror(errno)));
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return {ends[0], ends[1]};
}

void makeNonBlocking(int descriptor) {
  ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}

void makeBlocking(int descriptor) {
  ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
}

void closeDescriptor(int& descriptor) {
  if (descriptor >= 0) ::close(descriptor);
  descriptor = -1;
}

// Fills a pipe to the brim, then leaves its writing end blocking as the child expects it.
void fill(int writeEnd) {
  makeNonBlocking(writeEnd);
  const std::string block(4096, 'x');
  while (::write(writeEnd, block.data(), block.size()) > 0) continue;
  while (::write(writeEnd, block.data(), 1) > 0) continue;
  makeBlocking(writeEnd);
}

// An open file without a name, so that nothing is left of it however the test ends.
int temporaryFile() {
  std::string path = "/tmp/velta-stderr-XXXXXX";
  const int descriptor = ::mkstemp(path.data());
  if (descriptor < 0) throw std::runtime_error("cannot create " + path);
  ::unlink(path.c_str());
  ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  return descriptor;
}

// The whole file, without moving the place at which the child goes on writing.
std::string contentOf(int descriptor) {
  std::string content;
  char piece[4096];
  while (true) {
    const ssize_t count =
        ::pread(descriptor, piece, sizeof piece, static_cast<off_t>(content.size()));
    if (count <= 0) return content;
    content.append(piece, static_cast<std::size_t>(count));
  }
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  if (left.count() <= 0) throw std::runtime_error("the server missed the deadline");
  return static_cast<int>(left.count());
}

}  // namespace

ServerProcess::ServerProcess(Options options) : options_(std::move(options)) {
  std::signal(SIGPIPE, SIG_IGN);
  try {
    spawn();
  } catch (...) {
    closeDescriptors();  // there will be no destructor
    throw;
  }
}

ServerProcess::~ServerProcess() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  closeDescriptors();
}

void ServerProcess::closeDescriptors() {
  closeInput();
  closeOutput();
  closeDescriptor(errors_);
}

void ServerProcess::spawn() {
  const Pipe in = makePipe();
  const Pipe out = makePipe();
  Pipe err;
  if (options_.errors == Errors::kept) {
    errors_ = temporaryFile();
  } else {
    err = makePipe();
    errors_ = err.readEnd;
    if (options_.errors == Errors::unread) fill(err.writeEnd);
    if (options_.errors == Errors::closed) closeDescriptor(errors_);
  }
  const int errors = err.writeEnd >= 0 ? err.writeEnd : errors_;

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.readEnd, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out.writeEnd, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  // The test's own SIGPIPE setting must not reach the child: a shell's children have the default.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

  std::vector<std::string> arguments = {options_.program};
  arguments.insert(arguments.end(), options_.arguments.begin(), options_.arguments.end());
  std::vector<std::string> environment;
  for (const auto& [name, value] : options_.environment)
    environment.push_back(std::string(name).append("=").append(value));

  const int error = ::posix_spawn(&pid_, options_.program.c_str(), &actions, &attributes,
                                  pointersTo(arguments).data(), pointersTo(environment).data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  ::close(in.readEnd);
  ::close(out.writeEnd);
  closeDescriptor(err.writeEnd);
  input_ = in.writeEnd;
  output_ = out.readEnd;
  makeNonBlocking(input_);
  makeNonBlocking(output_);
  if (error != 0) {
    pid_ = -1;
    throw std::runtime_error("cannot start " + options_.program + ": " + std::strerror(error));
  }
}

std::chrono::steady_clock::time_point ServerProcess::deadline() const {
  return std::chrono::steady_clock::now() + options_.deadline;
}

bool ServerProcess::write(std::string_view bytes) {
  const auto until = deadline();
  while (!bytes.empty()) {
    pollfd waiting[2] = {{input_, POLLOUT, 0}, {output_, POLLIN, 0}};
    if (::poll(waiting, output_ >= 0 ? 2 : 1, millisecondsUntil(until)) < 0) continue;
    if (output_ >= 0 && waiting[1].revents != 0) takeOutput(until);
    if (waiting[0].revents == 0) continue;
    const ssize_t count = ::write(input_, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool ServerProcess::takeOutput(std::chrono::steady_clock::time_point deadline) {
  char buffer[65536];
  while (output_ >= 0) {
    const ssize_t count = ::read(output_, buffer, sizeof buffer);
    if (count > 0) {
      pending_.append(buffer, static_cast<std::size_t>(count));
      return true;
    }
    if (count == 0) {
      closeOutput();
      return false;
    }
    if (errno != EAGAIN && errno != EINTR) return false;
    pollfd waiting = {output_, POLLIN, 0};
    ::poll(&waiting, 1, millisecondsUntil(deadline));
  }
  return false;
}

std::optional<std::string> ServerProcess::readLine() {
  const auto until = deadline();
  std::size_t scanned = 0;
  while (true) {
    const std::size_t end = pending_.find('\n', scanned);
    if (end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    scanned = pending_.size();
    if (!takeOutput(until)) return std::nullopt;
  }
}

std::string ServerProcess::ask(std::string_view line) {
  writeLine(line);
  auto answer = readLine();
  if (!answer) throw std::runtime_error("no answer to " + std::string(line.substr(0, 200)));
  return *std::move(answer);
}

void ServerProcess::closeInput() { closeDescriptor(input_); }

void ServerProcess::closeOutput() { closeDescriptor(output_); }

std::string ServerProcess::errorsSoFar() const {
  return options_.errors == Errors::kept ? contentOf(errors_) : "";
}

ServerProcess::Ending ServerProcess::wait() {
  const auto until = deadline();
  while (takeOutput(until)) continue;
  int status = 0;
  while (::waitpid(pid_, &status, WNOHANG) == 0) {
    millisecondsUntil(until);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  pid_ = -1;
  Ending ending;
  if (WIFEXITED(status)) ending.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) ending.signal = WTERMSIG(status);
  ending.output = std::move(pending_);
  ending.errors = errorsSoFar();
  return ending;
}

ServerProcess::Ending ServerProcess::finish() {
  closeInput();
  return wait();
}

ServerProcess::Ending runProgram(ServerProcess::Options options, std::string_view input) {
  ServerProcess process(std::move(options));
  process.write(input);
  return process.finish();
}

}  // namespace velta::test
