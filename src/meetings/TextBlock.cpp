#include "meetings/TextBlock.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace velta {
namespace {

constexpr std::size_t kStride = 16;  // texts from one landmark to the next

}  // namespace

void TextBlock::append(std::string_view text) {
  constexpr std::size_t kMaxBytes = std::numeric_limits<std::uint32_t>::max();
  if (text.size() >= kMaxBytes - bytes_.size()) {
    throw std::length_error("the texts of one meeting exceed 4 GiB");
  }
  if (size() % kStride == 0) landmarks_.push_back(static_cast<std::uint32_t>(bytes_.size()));
  holdsLineFeeds_ = holdsLineFeeds_ || text.find('\n') != std::string_view::npos;
  bytes_.append(text);
  bytes_.push_back('\n');
  lengths_.append(static_cast<std::uint32_t>(text.size() + 1));
}

void TextBlock::reserve(std::size_t texts, std::size_t bytes) {
  bytes_.reserve(bytes);
  lengths_.reserve(2 * texts);  // of two bytes each as a rule
  landmarks_.reserve(texts / kStride + 1);
}

void TextBlock::clear() { *this = TextBlock(); }

void TextBlock::shrinkToFit() {
  bytes_.shrink_to_fit();
  lengths_.shrinkToFit();
  landmarks_.shrink_to_fit();
}

std::string_view TextBlock::operator[](std::size_t index) const {
  return std::string_view(bytes_).substr(begin(index), lengths_[index] - 1);
}

std::size_t TextBlock::begin(std::size_t index) const {
  if (index == size()) return bytes_.size();
  std::size_t offset = landmarks_[index / kStride];
  for (std::size_t before = index - index % kStride; before < index; ++before)
    offset += lengths_[before];
  return offset;
}

// Where no text holds a line feed the one before tells, which is quicker than a look at the
// lengths.
std::size_t TextBlock::beginOfTextAround(std::size_t offset) const {
  if (holdsLineFeeds_) return begin(textAt(offset));
  const std::size_t before = offset > 0 ? bytes_.rfind('\n', offset - 1) : std::string::npos;
  return before == std::string::npos ? 0 : before + 1;
}

std::size_t TextBlock::textAt(std::size_t offset) const {
  const auto after = std::ranges::upper_bound(landmarks_, offset);
  const auto stride = static_cast<std::size_t>(after - landmarks_.begin()) - 1;
  std::size_t index = stride * kStride;
  for (std::size_t end = landmarks_[stride] + lengths_[index]; end <= offset;)
    end += lengths_[++index];
  return index;
}

}  // namespace velta
