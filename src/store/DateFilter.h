// DateFilter: the days that a tool was asked to look at, both ends included.
#pragma once

#include <optional>
#include <string>
#include <utility>

namespace velta {

class DateFilter {
 public:
  // Days are texts "yyyy-MM-dd"; an absent or empty end is open.
  DateFilter(std::optional<std::string> from, std::optional<std::string> to)
      : from_(std::move(from)), to_(std::move(to)) {}

  // Whether a meeting of that date is asked for. The comparison is textual, on purpose; a meeting
  // without a date passes only when both ends are open.
  bool passes(const std::optional<std::string>& date) const {
    if (isSet(from_) && (!date || *date < *from_)) return false;
    return !isSet(to_) || (date && *date <= *to_);
  }

 private:
  static bool isSet(const std::optional<std::string>& day) { return day && !day->empty(); }

  std::optional<std::string> from_;
  std::optional<std::string> to_;
};

}  // namespace velta
