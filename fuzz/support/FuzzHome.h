// FuzzHome: a data home in a temporary folder, made once, and as it was made before every input.
//
// The user's home directory is the same folder, so "~/talk.m4a" is a file in it. Nothing that the
// program under test is told leads out of it: the pipeline's interpreter does not exist, the key is
// a made-up one, and requests go to a fetcher of the fuzzer's own, if anywhere.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "config/Config.h"
#include "platform/Time.h"

namespace velta::fuzz {

// Paths below the home, and contents. "{home}" in a content stands for the home's path.
using Files = std::map<std::string, std::string>;

class FuzzHome {
 public:
  // Sets the time zone of the process, too.
  explicit FuzzHome(const Files& files);
  ~FuzzHome();
  FuzzHome(const FuzzHome&) = delete;
  FuzzHome& operator=(const FuzzHome&) = delete;

  const std::string& path() const { return path_; }
  std::string file(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Writes a file, and the folders above it.
  void write(std::string_view name, std::string_view bytes) const;
  // The content of a file, empty when there is none.
  std::string read(std::string_view name) const;

  // Makes every file as it was made and removes what else there is.
  void restore();

  // Data home and environment for a server.
  Config config() const;

 private:
  struct Made {
    std::string name;
    std::string content;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modified = 0;  // nanoseconds

    bool isStillAt(const std::string& path) const;
  };

  void make(const std::string& name, const std::string& content);

  std::string path_;
  std::map<std::string, Made> made_;  // by absolute path
};

// A home with recorded, imported and legacy meetings, a configuration, settings for the agents
// "claude-code" (everything), "reader" (defaults) and "tagged" (everything, narrow scope), a
// dictionary, jobs and a sound file.
Files usualFiles();

// The clock of all servers stands still, so that an input does the same every time.
Instant fixedNow();

}  // namespace velta::fuzz
