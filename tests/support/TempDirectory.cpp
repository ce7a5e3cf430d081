#include "support/TempDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace velta::test {
namespace fs = std::filesystem;

TempDirectory::TempDirectory() {
  std::string pattern = (fs::canonical(fs::temp_directory_path()) / "velta-test-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot create a folder: " + pattern);
  path_ = pattern;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void TempDirectory::write(std::string_view name, std::string_view content) const {
  const fs::path file = path(name);
  fs::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << content;
  if (!stream.flush()) throw std::runtime_error("cannot write " + file.string());
}

std::string TempDirectory::read(std::string_view name) const {
  const std::ifstream stream(path(name), std::ios::binary);
  std::ostringstream content;
  if (stream) content << stream.rdbuf();
  return content.str();
}

std::vector<std::string> TempDirectory::lines(std::string_view name) const {
  std::istringstream stream(read(name));
  std::vector<std::string> found;
  for (std::string line; std::getline(stream, line);) found.push_back(line);
  return found;
}

bool TempDirectory::exists(std::string_view name) const { return fs::exists(path(name)); }

void TempDirectory::remove(std::string_view name) const { fs::remove_all(path(name)); }

void TempDirectory::copyTree(const std::string& source, std::string_view name) const {
  fs::copy(source, path(name), fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

DataHome::DataHome(const std::string& fixture) {
  if (!fixture.empty()) copyTree(fixture);
}

std::map<std::string, std::string> DataHome::environment() const {
  return {{"MEETING_NOTES_HOME", path()},
          {"HOME", path("user")},
          {"PATH", "/usr/bin:/bin"},
          {"TZ", "Asia/Taipei"}};
}

}  // namespace velta::test
