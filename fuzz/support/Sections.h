// Sections: the bytes of an input as several named texts. A line "== NAME" begins the text of that
// name, which goes on to the next such line; what stands before the first is dropped. Of a name
// that comes twice the last text counts.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace velta::fuzz {

inline std::map<std::string, std::string> sectionsOf(std::string_view bytes) {
  constexpr std::string_view kMark = "== ";
  std::map<std::string, std::string> sections;
  std::string* current = nullptr;
  while (!bytes.empty()) {
    const std::size_t end = bytes.find('\n');
    const std::string_view line = bytes.substr(0, end);
    if (line.starts_with(kMark)) {
      current = &sections[std::string(line.substr(kMark.size()))];
      current->clear();
    } else if (current != nullptr) {
      current->append(bytes.substr(0, end == std::string_view::npos ? end : end + 1));
    }
    bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
  }
  return sections;
}

}  // namespace velta::fuzz
