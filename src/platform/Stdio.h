// Stdio: descriptors 0, 1 and 2 as a line protocol needs them.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace velta {

// Makes writing to a closed pipe (EPIPE) and beyond a file size limit (EFBIG) an error instead of a
// deadly signal. Called once by main.
void ignoreWriteSignals();

// Whether `descriptor` is a terminal.
bool isTerminal(int descriptor);

// Writes all of `bytes`, however often the system takes only a part or is interrupted. Returns
// false when the descriptor takes no more (a closed pipe, a full disk).
bool writeAll(int descriptor, std::string_view bytes);

// Lines of a descriptor. A line may have any length; only new bytes are looked at, so a line that
// arrives in many pieces costs linear time.
class LineReader {
 public:
  explicit LineReader(int descriptor) : descriptor_(descriptor) {}

  // The next line without its line feed, valid until the next call; false at the end of input.
  // Bytes after the last line feed are a last line.
  bool next(std::string_view& line);

 private:
  bool fill();

  int descriptor_;
  std::string buffer_;
  std::size_t begin_ = 0;    // first byte not yet handed out
  std::size_t scanned_ = 0;  // bytes before this hold no line feed
  bool ended_ = false;
};

// A writer for diagnostics, which must never stall the protocol: a message that the other end does
// not take within `patience` is dropped, and so is everything after it.
class PatientWriter {
 public:
  explicit PatientWriter(int descriptor,
                         std::chrono::milliseconds patience = std::chrono::milliseconds(100))
      : descriptor_(descriptor), patience_(patience) {}

  // Writes `bytes` whole, or gives up for good.
  void write(std::string_view bytes);

 private:
  int descriptor_;
  std::chrono::milliseconds patience_;
  bool gaveUp_ = false;
};

}  // namespace velta
