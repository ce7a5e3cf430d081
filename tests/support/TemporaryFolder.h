// TemporaryFolder: an empty folder of a test's own, removed with everything in it at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <unistd.h>  // mkdtemp, on macOS

namespace velta {

class TemporaryFolder {
 public:
  TemporaryFolder() : path_(create()) {}
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  // Absolute path, symbolic links resolved.
  const std::string& path() const { return path_; }

  // Path of `name` (which may hold "/") in the folder; nothing is created.
  std::string file(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Creates the folder `name` with its parents; returns its path.
  std::string makeFolder(std::string_view name) const {
    std::filesystem::create_directories(file(name));
    return file(name);
  }

  // Writes a file, creating the folders above it; returns its path.
  std::string write(std::string_view name, std::string_view bytes) const {
    const std::filesystem::path target = file(name);
    std::filesystem::create_directories(target.parent_path());
    std::ofstream stream(target, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream.flush()) throw std::runtime_error("cannot write " + target.string());
    return target.string();
  }

  // The whole content of a file; throws when there is none.
  std::string read(std::string_view name) const {
    std::ifstream stream(file(name), std::ios::binary);
    if (!stream) throw std::runtime_error("cannot read " + file(name));
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  }

  bool has(std::string_view name) const {
    return std::filesystem::symlink_status(file(name)).type() !=
           std::filesystem::file_type::not_found;
  }

  // Names directly in the folder, hidden ones too, in no particular order.
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      found.push_back(entry.path().filename().string());
    }
    return found;
  }

 private:
  static std::string create() {
    std::string pattern =
        std::filesystem::canonical(std::filesystem::temp_directory_path()) / "velta-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
    return pattern;
  }

  std::string path_;
};

}  // namespace velta
