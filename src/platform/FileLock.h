// FileLock: an advisory lock (flock(2)) that several servers take in turn.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "platform/Descriptor.h"

namespace velta {

// Takes the lock on an open file or directory, waiting for at most `patience`. Closing the
// descriptor lets it go. False, with errno set, when that did not work; errno is EWOULDBLOCK when
// another process held it all the time.
bool lockWithin(int descriptor, std::chrono::milliseconds patience);

// Holds the lock on a file or directory while it lives. A process that has much to do under it
// takes turns with others: it asks again only after they, who ask all the time, could have had it.
class FileLock {
 public:
  // Waits for the lock on `path`, which must exist, for at most `patience`. Throws
  // std::system_error; the code is EWOULDBLOCK when another process held it all the time.
  FileLock(const std::string& path, std::chrono::milliseconds patience);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  Descriptor descriptor_;  // closing it lets the lock go
};

}  // namespace velta
