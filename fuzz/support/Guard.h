// Guard: while one lives, this process touches no file outside of a folder, opens no connection and
// starts no program from elsewhere. An attempt is a violation (Require.h).
//
// On Linux only: the calls are caught where the program finds them before the C library's. What the
// C library does by itself (time zones, glob) is not seen, nor is looking at a file without opening
// it. One at a time.
#pragma once

#include <string>

namespace velta::fuzz {

class Guard {
 public:
  // `folder` is an absolute path without symbolic links.
  explicit Guard(const std::string& folder);
  ~Guard();
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
};

}  // namespace velta::fuzz
