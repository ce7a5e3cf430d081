#include "support/Faults.h"

#include <sstream>
#include <stdexcept>
#include <utility>

#include "support/TemporaryFolder.h"

namespace velta::test {
namespace {

using Environment = std::map<std::string, std::string>;

Environment withLibrary(Environment environment, const std::string& folder) {
#ifdef VELTA_FAULTY_CALLS
  environment["LD_PRELOAD"] = VELTA_FAULTY_CALLS;
#else
  throw std::runtime_error("no fault can be made here");
#endif
  environment["VELTA_FAULT_UNDER"] = folder;
  // A program built with the address sanitizer wants its own library to come first.
  std::string& asan = environment["ASAN_OPTIONS"];
  asan += (asan.empty() ? "" : ":") + std::string("verify_asan_link_order=0");
  return environment;
}

}  // namespace

Environment withFault(Environment environment, const std::string& folder, const Fault& fault) {
  environment = withLibrary(std::move(environment), folder);
  environment["VELTA_FAULT_AT"] = std::to_string(fault.at) + (fault.lasting ? "+" : "");
  environment["VELTA_FAULT_HOW"] = fault.how;
  return environment;
}

std::vector<std::string> faultPoints(ServerProcess::Options options, const std::string& folder,
                                     std::string_view input) {
  const TemporaryFolder logs;
  options.environment = withLibrary(std::move(options.environment), folder);
  options.environment["VELTA_FAULT_LOG"] = logs.file("calls");
  const std::string program = options.program;
  runProgram(std::move(options), input);
  if (!logs.has("calls")) throw std::runtime_error(program + " ran without FaultyCalls");
  std::istringstream lines(logs.read("calls"));
  std::vector<std::string> points;
  for (std::string line; std::getline(lines, line);) {
    points.push_back(line.substr(line.find(' ') + 1));
  }
  return points;
}

int countFaultPoints(ServerProcess::Options options, const std::string& folder,
                     std::string_view input) {
  return static_cast<int>(faultPoints(std::move(options), folder, input).size());
}

}  // namespace velta::test
