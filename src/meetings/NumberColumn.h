// NumberColumn: many numbers, in one byte each while all are small, else in two or in four.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace velta {

class NumberColumn {
 public:
  void append(std::uint32_t number) {
    while (number > limit()) widen();
    grow(number);
  }
  // Makes room for so many small numbers.
  void reserve(std::size_t count) { bytes_.reserve(count); }
  // Gives unused room back; call it once, after the last append.
  void shrinkToFit() { bytes_.shrink_to_fit(); }

  std::size_t size() const { return bytes_.size() / width_; }
  bool empty() const { return bytes_.empty(); }
  std::uint32_t back() const { return (*this)[size() - 1]; }

  std::uint32_t operator[](std::size_t index) const {
    const std::uint8_t* const at = bytes_.data() + index * width_;
    std::uint32_t number = at[0];
    if (width_ > 1) number |= std::uint32_t{at[1]} << 8U;
    if (width_ > 2) number |= std::uint32_t{at[2]} << 16U | std::uint32_t{at[3]} << 24U;
    return number;
  }

 private:
  std::uint32_t limit() const { return width_ == 1 ? 0xFFU : width_ == 2 ? 0xFFFFU : 0xFFFFFFFFU; }
  void grow(std::uint32_t number) {
    for (std::size_t i = 0; i < width_; ++i)
      bytes_.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
  }
  void widen() {
    NumberColumn wider;
    wider.width_ = width_ * 2;
    for (std::size_t i = 0; i < size(); ++i) wider.grow((*this)[i]);
    *this = std::move(wider);
  }

  std::vector<std::uint8_t> bytes_;
  std::size_t width_ = 1;  // bytes a number: 1, 2 or 4
};

}  // namespace velta
