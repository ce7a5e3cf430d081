// ServerProcess: the built program on pipes, as a client has it.
//
//   const DataHome home(fixture);
//   ServerProcess server({.arguments = {"--no-reindex"}, .environment = home.environment()});
//   const std::string pong = server.ask(R"({"id":1,"method":"ping"})");
//   EXPECT_EQ(server.finish().status, 0);
//
// Nothing here waits for ever: what does not come within the deadline throws std::runtime_error. A
// process that still runs when the object goes is killed.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace velta::test {

class ServerProcess {
 public:
  // Where standard error goes.
  enum class Errors {
    kept,    // into a file; told when the process has ended
    unread,  // into a pipe that is open, never read, and full from the start
    closed,  // into a pipe whose other end is closed
  };

  struct Options {
    std::vector<std::string> arguments = {};
    std::map<std::string, std::string> environment = {};
    Errors errors = Errors::kept;
    std::string program = VELTA_BINARY;
    std::chrono::milliseconds deadline = std::chrono::seconds(60);  // for each wait
  };

  struct Ending {
    int status = -1;     // exit status, -1 when a signal ended it
    int signal = 0;      // the signal that ended it
    std::string output;  // what was not read as lines
    std::string errors;  // standard error, where it was kept
  };

  explicit ServerProcess(Options options);
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  pid_t pid() const { return pid_; }

  // Writes to its standard input. What it answers meanwhile is taken in, so that neither side waits
  // for the other. False when it does not read any more.
  bool write(std::string_view bytes);
  bool writeLine(std::string_view line) { return write(std::string(line) + "\n"); }

  // The next line of its standard output, without the line feed; absent at the end of output.
  std::optional<std::string> readLine();

  // writeLine and readLine. Throws at the end of output.
  std::string ask(std::string_view line);

  void closeInput();
  // Closes our end of its standard output: it writes into a broken pipe from now on.
  void closeOutput();

  // What standard error holds so far, where it is kept.
  std::string errorsSoFar() const;

  // Waits for its end, without closing anything.
  Ending wait();
  // Closes its standard input and waits for its end.
  Ending finish();

 private:
  void spawn();
  void closeDescriptors();
  // Takes in what is there, or waits for it until the deadline. False at the end of output.
  bool takeOutput(std::chrono::steady_clock::time_point deadline);
  std::chrono::steady_clock::time_point deadline() const;

  Options options_;
  pid_t pid_ = -1;
  int input_ = -1;       // our end of its standard input
  int output_ = -1;      // our end of its standard output
  int errors_ = -1;      // its standard error as a file, or our end of one that nobody reads
  std::string pending_;  // taken in, not yet handed out
};

// Runs the program to its end with `input` on standard input.
ServerProcess::Ending runProgram(ServerProcess::Options options, std::string_view input = "");

}  // namespace velta::test
