// LineTimes: when each line of a transcript begins and ends.
//
// Six bytes a line as long as the times are whole thousandths of a second and no line lasts longer
// than a minute, as recorders write them; sixteen from the first other one on. What is given comes
// back to the last bit either way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace velta {

class LineTimes {
 public:
  // Seconds, finite.
  void append(double start, std::optional<double> end);
  // Makes room for so many lines.
  void reserve(std::size_t count);
  // Gives unused room back; call it once, after the last append.
  void shrinkToFit();

  std::size_t size() const { return isWide_ ? wideStarts_.size() : starts_.size(); }
  bool empty() const { return size() == 0; }
  double start(std::size_t index) const;
  std::optional<double> end(std::size_t index) const;

 private:
  bool appendCompact(double start, std::optional<double> end);
  void widen();

  bool isWide_ = false;
  std::vector<std::int32_t> starts_;      // thousandths of a second
  std::vector<std::uint16_t> durations_;  // thousandths of a second; kNoEnd: absent
  std::vector<double> wideStarts_;
  std::vector<double> wideEnds_;  // NaN: absent
};

}  // namespace velta
