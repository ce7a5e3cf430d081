// CommandLine: what velta-mcp was asked to do, and doing it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/Config.h"

namespace velta {

class CLI {
 public:
  struct Options {
    std::optional<std::string> client = {};  // --client NAME, --client=NAME; may be empty
    bool adminStats = false;                 // --admin-stats
    bool reindex = true;                     // --no-reindex makes it false
    bool http = false;                       // --http
    std::optional<std::string> action = {};  // the last of connect, status, disconnect
    bool version = false;                    // --version, -V
    bool help = false;                       // --help, -h
    std::vector<std::string> unknown = {};   // everything else, in order

    friend bool operator==(const Options&, const Options&) = default;
  };

  // The arguments without the program's own name. Never fails: what is not understood is unknown.
  static Options parse(const std::vector<std::string>& arguments);
};

// The whole program: does what `arguments` (without `program`, the name it was started by) ask for
// and returns the exit status: 0, 1 for a subcommand that fails, 2 for arguments that cannot be
// served.
int runCommandLine(const std::string& program, const std::vector<std::string>& arguments,
                   Environment environment);

}  // namespace velta
