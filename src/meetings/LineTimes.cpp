#include "meetings/LineTimes.h"

#include <cmath>
#include <limits>

namespace velta {
namespace {

constexpr std::uint16_t kNoEnd = std::numeric_limits<std::uint16_t>::max();
constexpr double kScale = 1000;

double secondsOf(std::int64_t thousandths) { return static_cast<double>(thousandths) / kScale; }

// The thousandths that are exactly `seconds` (with its sign, if it is zero), where there are such.
std::optional<std::int32_t> thousandthsOf(double seconds) {
  constexpr double kLimit = 2e9;
  if (!(std::abs(seconds) * kScale < kLimit)) return std::nullopt;
  // The nearest; std::lround would take as long again as everything else here.
  const auto thousandths =
      static_cast<std::int32_t>(seconds * kScale + std::copysign(0.5, seconds));
  const bool same = secondsOf(thousandths) == seconds && !(seconds == 0 && std::signbit(seconds));
  return same ? std::optional(thousandths) : std::nullopt;
}

}  // namespace

void LineTimes::append(double start, std::optional<double> end) {
  if (!isWide_ && appendCompact(start, end)) return;
  if (!isWide_) widen();
  wideStarts_.push_back(start);
  wideEnds_.push_back(end.value_or(std::numeric_limits<double>::quiet_NaN()));
}

bool LineTimes::appendCompact(double start, std::optional<double> end) {
  const auto from = thousandthsOf(start);
  if (!from) return false;
  std::uint16_t duration = kNoEnd;
  if (end) {
    const auto to = thousandthsOf(*end);
    if (!to || *to < *from || std::int64_t{*to} - *from >= kNoEnd) return false;
    duration = static_cast<std::uint16_t>(*to - *from);
  }
  starts_.push_back(*from);
  durations_.push_back(duration);
  return true;
}

void LineTimes::widen() {
  for (std::size_t index = 0; index < starts_.size(); ++index) {
    wideStarts_.push_back(start(index));
    wideEnds_.push_back(end(index).value_or(std::numeric_limits<double>::quiet_NaN()));
  }
  starts_ = {};
  durations_ = {};
  isWide_ = true;
}

void LineTimes::reserve(std::size_t count) {
  starts_.reserve(count);
  durations_.reserve(count);
}

void LineTimes::shrinkToFit() {
  starts_.shrink_to_fit();
  durations_.shrink_to_fit();
  wideStarts_.shrink_to_fit();
  wideEnds_.shrink_to_fit();
}

double LineTimes::start(std::size_t index) const {
  return isWide_ ? wideStarts_[index] : secondsOf(starts_[index]);
}

std::optional<double> LineTimes::end(std::size_t index) const {
  if (isWide_) {
    const double end = wideEnds_[index];
    return std::isnan(end) ? std::nullopt : std::optional(end);
  }
  if (durations_[index] == kNoEnd) return std::nullopt;
  return secondsOf(std::int64_t{starts_[index]} + durations_[index]);
}

}  // namespace velta
