#include "platform/Time.h"

#include <cmath>
#include <cstdint>
#include <ctime>

namespace velta {
namespace {

CivilTime civilTime(const tm& fields) {
  return {fields.tm_year + 1900,
          fields.tm_mon + 1,
          fields.tm_mday,
          fields.tm_hour,
          fields.tm_min,
          fields.tm_sec,
          static_cast<int>(fields.tm_gmtoff)};
}

// Whole seconds, rounded down, so that times before 1970 fall on the right day too.
time_t wholeSeconds(Instant instant) {
  return static_cast<time_t>(
      std::chrono::floor<std::chrono::seconds>(instant.time_since_epoch()).count());
}

}  // namespace

Instant systemNow() { return std::chrono::system_clock::now(); }

CivilTime utcTime(Instant instant) {
  const time_t seconds = wholeSeconds(instant);
  tm fields = {};
  ::gmtime_r(&seconds, &fields);
  return civilTime(fields);
}

CivilTime localTime(Instant instant) {
  const time_t seconds = wholeSeconds(instant);
  tm fields = {};
  ::localtime_r(&seconds, &fields);
  return civilTime(fields);
}

double secondsSinceEpoch(Instant instant) {
  return std::chrono::duration<double>(instant.time_since_epoch()).count();
}

Instant instantFromSeconds(double seconds) {
  return Instant(
      std::chrono::duration_cast<Instant::duration>(std::chrono::duration<double>(seconds)));
}

}  // namespace velta
