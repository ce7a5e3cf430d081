#include "meetings/TextNorm.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>

#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::size_t kSlugLength = 60;  // characters

// The patterns are constants: one that does not compile is a fault of this file.
Regex compiled(const char* pattern) {
  try {
    return Regex(pattern);
  } catch (const std::invalid_argument& fault) {
    std::fprintf(stderr, "TextNorm: %s\n", fault.what());
    std::abort();
  }
}

bool isCapital(char byte) { return byte >= 'A' && byte <= 'Z'; }

char lowered(char byte) { return isCapital(byte) ? static_cast<char>(byte | 0x20) : byte; }

// The value of decimal digits; 0 for anything else.
std::int64_t decimal(std::string_view digits) {
  std::int64_t value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value;
}

std::string_view withoutHyphensAtEnds(std::string_view text) {
  while (text.starts_with('-')) text.remove_prefix(1);
  while (text.ends_with('-')) text.remove_suffix(1);
  return text;
}

std::optional<std::string> fullDate(const std::string& text) {
  const auto match = isoDatePattern().search(text);
  if (!match) return std::nullopt;
  return std::string(match->group(0));
}

// The date of a text that begins with month and day: in the reference's year, or in the year before
// when it would lie after the reference, because notes are about the past.
std::optional<std::string> monthDayDate(const std::string& text, const CivilTime& reference) {
  const auto match = monthDayPrefixPattern().search(text);
  if (!match) return std::nullopt;
  const auto month = decimal(match->group(1));
  const auto day = decimal(match->group(2));
  if (month < 1 || month > 12 || day < 1 || day > 31) return std::nullopt;
  const bool later = month > reference.month || (month == reference.month && day > reference.day);
  std::array<char, 32> date{};
  std::snprintf(date.data(), date.size(), "%04d-%02d-%02d", reference.year - (later ? 1 : 0),
                static_cast<int>(month), static_cast<int>(day));
  return date.data();
}

void appendTwoDigits(std::string& text, std::int64_t number) {
  text += static_cast<char>('0' + number / 10);
  text += static_cast<char>('0' + number % 10);
}

}  // namespace

const Regex& isoDatePattern() {
  static const Regex pattern = compiled("([0-9]{4})-([0-9]{2})-([0-9]{2})");
  return pattern;
}

const Regex& monthDayPrefixPattern() {
  static const Regex pattern = compiled("^([0-9]{1,2})-([0-9]{1,2})-");
  return pattern;
}

const Regex& speakerLinePattern() {
  static const Regex pattern = compiled(R"(^@(.+?)\s{2,}([0-9]{1,2}:[0-9]{2}(?::[0-9]{2})?)\s*$)");
  return pattern;
}

const Regex& headingPattern() {
  static const Regex pattern = compiled(R"(^(#{1,4})\s+(.*)$)");
  return pattern;
}

const Regex& inlineTimePattern() {
  static const Regex pattern = compiled("(?<![0-9:])([0-9]{1,2}:[0-9]{2}(?::[0-9]{2})?)(?![0-9:])");
  return pattern;
}

const Regex& separatorPattern() {
  static const Regex pattern = compiled(R"([^A-Za-z0-9\x{4e00}-\x{9fff}]+)");
  return pattern;
}

const Regex& uuidPattern() {
  static const Regex pattern =
      compiled("^[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}$");
  return pattern;
}

std::string lowerASCII(std::string_view text) {
  std::string result(text);
  lowerASCIIInPlace(result);
  return result;
}

void lowerASCIIInPlace(std::string& text) {
  for (char& byte : text) byte = lowered(byte);
}

double parseClock(std::string_view text) {
  double total = 0;
  while (!text.empty()) {
    const auto colon = text.find(':');
    total = total * 60 + static_cast<double>(decimal(text.substr(0, colon)));
    if (colon == std::string_view::npos) break;
    text.remove_prefix(colon + 1);
  }
  return total;
}

std::string formatClock(double seconds) {
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  std::int64_t whole = 0;  // also for NaN
  if (seconds > 0) {
    whole = seconds < static_cast<double>(kMost) ? static_cast<std::int64_t>(seconds) : kMost;
  }
  // By hand: snprintf takes a twentieth of the time of a long transcript.
  std::string clock = whole >= 3600 ? std::to_string(whole / 3600) + ":" : "";
  appendTwoDigits(clock, whole / 60 % 60);
  clock += ':';
  appendTwoDigits(clock, whole % 60);
  return clock;
}

std::optional<std::string> formatClock(std::optional<double> seconds) {
  if (!seconds) return std::nullopt;
  return formatClock(*seconds);
}

std::string slugify(std::string_view text) {
  const std::string hyphenated = separatorPattern().replaceAll(text, "-");
  // What is left holds no capitals but ASCII ones.
  const std::string slug =
      lowerASCII(firstCharacters(withoutHyphensAtEnds(hyphenated), kSlugLength));
  return slug.empty() ? "meeting" : slug;
}

std::optional<std::string> deriveDate(const std::vector<std::string>& texts, Instant reference) {
  // Two rounds on purpose: a full date in a later text beats a month and day in an earlier one.
  for (const auto& text : texts) {
    if (auto date = fullDate(text)) return date;
  }
  const CivilTime today = localTime(reference);
  for (const auto& text : texts) {
    if (auto date = monthDayDate(text, today)) return date;
  }
  return std::nullopt;
}

}  // namespace velta
