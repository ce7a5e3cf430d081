// Time: instants, and their calendar fields in UTC and in the machine's time zone.
#pragma once

#include <chrono>
#include <functional>

namespace velta {

using Instant = std::chrono::system_clock::time_point;

// A clock that tests can replace; the real one is `systemNow`.
using Clock = std::function<Instant()>;

Instant systemNow();

// Calendar fields in the proleptic Gregorian calendar.
struct CivilTime {
  int year = 1970;
  int month = 1;  // 1 to 12
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int utcOffsetSeconds = 0;  // east of Greenwich is positive
};

CivilTime utcTime(Instant instant);
// In the current time zone (TZ, else the system's).
CivilTime localTime(Instant instant);

// Seconds since 1970-01-01T00:00:00Z, and back.
double secondsSinceEpoch(Instant instant);
Instant instantFromSeconds(double seconds);

}  // namespace velta
