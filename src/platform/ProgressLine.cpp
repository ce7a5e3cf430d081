#include "platform/ProgressLine.h"

#include <utility>

#include "platform/Stdio.h"

namespace velta {
namespace {

constexpr std::chrono::milliseconds kBetweenDrawings(100);
constexpr const char* kBeginOfLine = "\r\x1b[K";  // and the rest of it erased

}  // namespace

ProgressLine::ProgressLine(int descriptor, std::chrono::milliseconds patience)
    : descriptor_(descriptor), thread_([this, patience] { run(patience); }) {}

ProgressLine::~ProgressLine() {
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void ProgressLine::say(const std::string& text) {
  const std::lock_guard lock(mutex_);
  text_ = text;
}

void ProgressLine::run(std::chrono::milliseconds patience) {
  PatientWriter terminal(descriptor_);
  std::unique_lock lock(mutex_);
  const auto ended = [this] { return ended_; };
  if (changed_.wait_for(lock, patience, ended)) return;
  std::string drawn;
  do {
    if (text_ == drawn) continue;
    drawn = text_;
    terminal.write(kBeginOfLine + drawn);
  } while (!changed_.wait_for(lock, kBetweenDrawings, ended));
  if (!drawn.empty()) terminal.write(kBeginOfLine);
}

}  // namespace velta
