// TempDirectory: a folder of one test's own, gone with all it holds when the test ends; and
// DataHome, such a folder as the data home of a server.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace velta::test {

class TempDirectory {
 public:
  TempDirectory();
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  // Absolute, without a final slash and free of symbolic links.
  const std::string& path() const { return path_; }
  std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Writes the file, creating the folders above it; throws std::runtime_error when it cannot.
  void write(std::string_view name, std::string_view content) const;

  // The content of the file, empty when there is none.
  std::string read(std::string_view name) const;
  // Its lines, without line feeds.
  std::vector<std::string> lines(std::string_view name) const;

  bool exists(std::string_view name) const;
  void remove(std::string_view name) const;

  // Copies what `source` holds, folders and all, to the folder `name` below ("" is the top).
  void copyTree(const std::string& source, std::string_view name = "") const;

 private:
  std::string path_;
};

class DataHome : public TempDirectory {
 public:
  // An empty data home, or a copy of the tree at `fixture`.
  explicit DataHome(const std::string& fixture = "");

  // A fixed environment for a server on this data home, in which nothing of this process's own
  // environment has a say: time zone Asia/Taipei, HOME inside the folder.
  std::map<std::string, std::string> environment() const;
};

}  // namespace velta::test
