// ProgressLine: one line on a terminal that tells how far a long piece of work has come. It appears
// only when the work takes long, and is removed when the work ends.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace velta {

class ProgressLine {
 public:
  // Shows itself on the terminal `descriptor` when it still lives after `patience`.
  explicit ProgressLine(int descriptor,
                        std::chrono::milliseconds patience = std::chrono::seconds(1));
  // Removes the line.
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // What the line says from now on; short, since a line that wraps could not be removed. Safe to
  // call from several threads.
  void say(const std::string& text);

 private:
  void run(std::chrono::milliseconds patience);

  const int descriptor_;
  std::mutex mutex_;  // guards the three below
  std::condition_variable changed_;
  std::string text_;
  bool ended_ = false;
  std::thread thread_;  // the work may be waiting for the network, so somebody else has to draw
};

}  // namespace velta
