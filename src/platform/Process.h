// Process: starting programs, those that outlive this one and those it waits for, and asking
// whether they still run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace velta {

// Starts arguments[0] (a path; PATH is not searched) with the argument vector `arguments` as the
// leader of a session of its own, so that it survives this process and its terminal. Standard input
// is the null device; standard output and error are appended to `logFile`, which is created with
// mode 0644. The working directory is `workingDirectory`, the signal mask empty, and no other
// descriptor of this process is open in it. Returns its process id; throws std::system_error when
// it could not be started.
pid_t spawnDetached(const std::vector<std::string>& arguments,
                    const std::map<std::string, std::string>& environment,
                    const std::string& workingDirectory, const std::string& logFile);

// What the program arguments[0] (a path; PATH is not searched) writes to its standard output before
// it ends with status 0; absent when it does not start or ends otherwise. Its standard input and
// error are the null device, and no other descriptor of this process is open in it. Waits for its
// end, however long that takes.
std::optional<std::string> outputOfProgram(const std::vector<std::string>& arguments);

// Whether the process runs. A child of ours that has ended is reaped by this and counts as ended;
// a process that belongs to somebody else counts as running.
bool isProcessAlive(pid_t pid);

// The path of the running program with symbolic links resolved: `argument0`, the name that it was
// started by, when that holds a "/", else what the operating system says. Empty when unknown.
std::string executablePath(const std::string& argument0);

// `count` bytes from the system's secure random source. Throws std::system_error.
std::vector<std::uint8_t> randomBytes(std::size_t count);

}  // namespace velta
