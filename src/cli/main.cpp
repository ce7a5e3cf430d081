// Entry point: captures arguments and environment once and hands them on.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "cli/CommandLine.h"
#include "platform/Text.h"

// POSIX: no header declares it, though glibc's do.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace {

std::vector<std::string> argumentsOf(int argc, char** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(velta::repairUTF8(argv[i]));
  return arguments;
}

// Of a variable that is there twice the first counts, as getenv has it.
velta::Environment currentEnvironment() {
  velta::Environment environment;
  for (char** entry = environ; entry && *entry; ++entry) {
    const std::string_view variable(*entry);
    const std::size_t equals = variable.find('=');
    if (equals == std::string_view::npos) continue;
    environment.emplace(variable.substr(0, equals), variable.substr(equals + 1));
  }
  return environment;
}

}  // namespace

int main(int argc, char** argv) {
  return velta::runCommandLine(argc > 0 ? argv[0] : "", argumentsOf(argc, argv),
                               currentEnvironment());
}
