// Dates: the date texts that files and answers carry. Digits and calendar are fixed (ASCII digits,
// Gregorian), whatever the user's settings are.
#pragma once

#include <string>
#include <string_view>

#include "platform/Time.h"

namespace velta {

// "2026-10-12T07:30:00+00:00": always UTC, the offset always written so.
std::string utcStamp(Instant instant);

// "2026-10-12" in the current time zone.
std::string localDay(Instant instant);

// "2026-10-12T15:30:00+0800" in the current time zone.
std::string localStamp(Instant instant);

// `pattern` with its fields filled in, in the current time zone: yyyy, MM, dd, HH, mm, ss (padded
// with zeros to as many digits as there are letters), Z (numeric offset such as +0800), and literal
// text in single quotes. Other characters stand for themselves.
std::string localFormatted(Instant instant, std::string_view pattern);

}  // namespace velta
