// TextBlock: many short texts in one piece of memory, each followed by a line feed, so that a
// search runs over one block and memory holds every text once.
//
// Offsets are bytes. A text may hold line feeds itself; the offsets, not the line feeds, separate.
// Beside its text each costs two bytes: an offset is kept of every sixteenth only, and from there
// the lengths are added up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "meetings/NumberColumn.h"

namespace velta {

class TextBlock {
 public:
  // A block holds at most 4 GiB; append throws std::length_error beyond.
  void append(std::string_view text);
  // Makes room for so many texts of so many bytes in all.
  void reserve(std::size_t texts, std::size_t bytes);
  void clear();
  // Gives unused room back; call it once, after the last append.
  void shrinkToFit();

  std::size_t size() const { return lengths_.size(); }
  bool empty() const { return lengths_.empty(); }

  // Text number `index`, without its line feed.
  std::string_view operator[](std::size_t index) const;
  // All texts, each with its line feed.
  std::string_view bytes() const { return bytes_; }
  // Offset of the first byte of text number `index` in bytes(); `index` may be size().
  std::size_t begin(std::size_t index) const;
  // Offset of the first byte of the text that holds the byte at `offset`.
  std::size_t beginOfTextAround(std::size_t offset) const;
  // Number of the text that holds the byte at `offset`.
  std::size_t textAt(std::size_t offset) const;

 private:
  std::string bytes_;
  bool holdsLineFeeds_ = false;           // whether some text does
  NumberColumn lengths_;                  // of every text, its line feed included
  std::vector<std::uint32_t> landmarks_;  // where every sixteenth text begins
};

}  // namespace velta
