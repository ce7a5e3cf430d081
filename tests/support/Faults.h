// Faults: runs of a program in which one of the calls that change files fails, or ends it (see
// FaultyCalls.cpp, the library that does so).
//
//   const DataHome home;
//   const int calls = countFaultPoints({.environment = home.environment()}, home.path(), input);
//   for (int at = 1; at <= calls; ++at) {
//     const DataHome fresh;
//     const auto environment = withFault(fresh.environment(), fresh.path(), {at, "kill"});
//     const auto ending = runProgram({.environment = environment}, input);
//     EXPECT_EQ(ending.signal, SIGKILL);
//     ...
//   }
//
// Only on Linux. Elsewhere tests skip themselves: if (!kFaultsAvailable) GTEST_SKIP();
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/ServerProcess.h"

namespace velta::test {

#ifdef VELTA_FAULTY_CALLS
constexpr bool kFaultsAvailable = true;
#else
constexpr bool kFaultsAvailable = false;
#endif

struct Fault {
  int at = 1;            // the how many-th call that changes something in the folder, from 1
  std::string how;       // "kill", "kill-after", "short", or the name of an error such as "ENOSPC"
  bool lasting = false;  // the calls after it fail as well, as on a disk that stays full
};

// `environment` with what makes a call fail that changes something in `folder`. Throws where no
// faults are available.
std::map<std::string, std::string> withFault(std::map<std::string, std::string> environment,
                                             const std::string& folder, const Fault& fault);

// Runs the program to its end without a fault: the calls that change something in `folder`, in
// their order, as "write mcp-config.json". Throws when the program did not take the library in.
std::vector<std::string> faultPoints(ServerProcess::Options options, const std::string& folder,
                                     std::string_view input = "");

// How many those are.
int countFaultPoints(ServerProcess::Options options, const std::string& folder,
                     std::string_view input = "");

}  // namespace velta::test
