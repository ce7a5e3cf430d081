// Warnings: the one way by which parts below the server tell the user something. Each distinct text
// is passed on once in the life of the process, as one line "meeting-notes MCP: " + text.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace velta {

class Warnings {
 public:
  // `write` gets whole lines, line feed included.
  explicit Warnings(std::function<void(std::string_view)> write) : write_(std::move(write)) {}

  // Passes `text` on unless it was passed on before. Line breaks and control characters in it are
  // shown as U+FFFD, so a warning is always one line.
  void warn(const std::string& text);

 private:
  std::function<void(std::string_view)> write_;
  std::set<std::string> warned_;
};

}  // namespace velta
