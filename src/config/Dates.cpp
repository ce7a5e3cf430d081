#include "config/Dates.h"

#include <cstddef>
#include <cstdlib>

namespace velta {
namespace {

// `value` in decimal with at least `width` digits.
std::string padded(int value, std::size_t width) {
  const std::string digits = std::to_string(std::abs(value));
  std::string text(value < 0 ? 1 : 0, '-');
  if (digits.size() < width) text.append(width - digits.size(), '0');
  return text.append(digits);
}

// "+0800"
std::string numericOffset(int seconds) {
  const int minutes = std::abs(seconds) / 60;
  std::string text(1, seconds < 0 ? '-' : '+');
  return text.append(padded(minutes / 60, 2)).append(padded(minutes % 60, 2));
}

// The text of `count` pattern letters `letter`: a field, or the letters themselves.
std::string fieldText(const CivilTime& time, char letter, std::size_t count) {
  switch (letter) {
    case 'y':
      return padded(time.year, count);
    case 'M':
      return padded(time.month, count);
    case 'd':
      return padded(time.day, count);
    case 'H':
      return padded(time.hour, count);
    case 'm':
      return padded(time.minute, count);
    case 's':
      return padded(time.second, count);
    case 'Z':
      return numericOffset(time.utcOffsetSeconds);
    default:
      break;
  }
  std::string themselves(count, letter);
  return themselves;
}

std::string formatted(const CivilTime& time, std::string_view pattern) {
  std::string text;
  std::size_t at = 0;
  while (at < pattern.size()) {
    const char letter = pattern[at];
    if (letter == '\'') {
      const std::string_view literal = pattern.substr(at + 1);
      const std::size_t length = literal.substr(0, literal.find('\'')).size();
      text += literal.substr(0, length);
      at += length + 2;
    } else {
      const std::string_view rest = pattern.substr(at);
      const std::size_t count = rest.substr(0, rest.find_first_not_of(letter)).size();
      text += fieldText(time, letter, count);
      at += count;
    }
  }
  return text;
}

}  // namespace

std::string utcStamp(Instant instant) {
  return formatted(utcTime(instant), "yyyy-MM-dd'T'HH:mm:ss'+00:00'");
}

std::string localDay(Instant instant) { return localFormatted(instant, "yyyy-MM-dd"); }

std::string localStamp(Instant instant) {
  return localFormatted(instant, "yyyy-MM-dd'T'HH:mm:ssZ");
}

std::string localFormatted(Instant instant, std::string_view pattern) {
  return formatted(localTime(instant), pattern);
}

}  // namespace velta
