// DataHome: a folder of one test's own as the data home of a server.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/TemporaryFolder.h"

namespace velta::test {

class DataHome : public TemporaryFolder {
 public:
  // An empty data home, or a copy of the tree at `fixture`.
  explicit DataHome(const std::string& fixture = "");

  // The lines of a file, without line feeds; none when there is no file.
  std::vector<std::string> lines(std::string_view name) const;

  // Removes a file, or a folder with all it holds.
  void remove(std::string_view name) const;

  // A fixed environment for a server on this data home, in which nothing of this process's own
  // environment has a say: time zone Asia/Taipei, HOME inside the folder.
  std::map<std::string, std::string> environment() const;
};

}  // namespace velta::test
