#include "meetings/TextBlock.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace velta {

void TextBlock::append(std::string_view text) {
  constexpr std::size_t kMaxBytes = std::numeric_limits<std::uint32_t>::max();
  if (text.size() >= kMaxBytes - bytes_.size()) {
    throw std::length_error("the texts of one meeting exceed 4 GiB");
  }
  bytes_.append(text);
  bytes_.push_back('\n');
  ends_.push_back(static_cast<std::uint32_t>(bytes_.size()));
}

void TextBlock::clear() {
  bytes_.clear();
  ends_.clear();
}

void TextBlock::shrinkToFit() {
  bytes_.shrink_to_fit();
  ends_.shrink_to_fit();
}

std::string_view TextBlock::operator[](std::size_t index) const {
  const std::size_t start = begin(index);
  return std::string_view(bytes_).substr(start, ends_[index] - 1 - start);
}

std::size_t TextBlock::textAt(std::size_t offset) const {
  return static_cast<std::size_t>(std::ranges::upper_bound(ends_, offset) - ends_.begin());
}

}  // namespace velta
