// HiddenPrompt: a secret typed at the terminal.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace velta {

// Shows `prompt` on the controlling terminal and reads one line from it without echo, at most
// `capacity` - 1 bytes of it. Absent when the process has no terminal or the line cannot be read.
// The echo is back when this returns, also when a signal ends or stops the process meanwhile.
std::optional<std::string> readHiddenLine(const std::string& prompt, std::size_t capacity);

}  // namespace velta
