#include "support/DataHome.h"

#include <filesystem>
#include <sstream>

namespace velta::test {
namespace fs = std::filesystem;

DataHome::DataHome(const std::string& fixture) {
  if (!fixture.empty()) fs::copy(fixture, path(), fs::copy_options::recursive);
}

std::vector<std::string> DataHome::lines(std::string_view name) const {
  std::vector<std::string> found;
  if (!has(name)) return found;
  std::istringstream stream(read(name));
  for (std::string line; std::getline(stream, line);) found.push_back(line);
  return found;
}

void DataHome::remove(std::string_view name) const { fs::remove_all(file(name)); }

std::map<std::string, std::string> DataHome::environment() const {
  return {{"MEETING_NOTES_HOME", path()},
          {"HOME", file("user")},
          {"PATH", "/usr/bin:/bin"},
          {"TZ", "Asia/Taipei"}};
}

}  // namespace velta::test
