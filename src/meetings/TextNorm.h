// TextNorm: the text rules that readers, index and tools share, so that a time written in a
// transcript, a time printed by a tool and a date taken from a folder's name agree everywhere.
//
// Texts are well-formed UTF-8 wherever a pattern looks at them (slugify, deriveDate and the
// patterns themselves); names of files are not until they are repaired (platform/Text.h).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Regex.h"
#include "platform/Time.h"

namespace velta {

// The shared patterns, compiled on first use and kept.
const Regex& isoDatePattern();         // (year)-(month)-(day) anywhere
const Regex& monthDayPrefixPattern();  // (month)-(day)- at the start
const Regex& speakerLinePattern();     // @(speaker)  (clock)
const Regex& headingPattern();         // #(marks) (heading)
const Regex& inlineTimePattern();      // (clock) that touches no digit and no colon
const Regex& separatorPattern();       // a run of what an identifier cannot hold
const Regex& uuidPattern();            // the whole text is a UUID

// `text` with A to Z lowered and every other byte untouched: the search form of a text. Not
// Unicode lower-casing, on purpose: matching stays byte-exact for Chinese.
std::string lowerASCII(std::string_view text);

// The first argument lowered in place.
void lowerASCIIInPlace(std::string& text);

// Seconds of "mm:ss" or "h:mm:ss".
double parseClock(std::string_view text);

// "mm:ss" below one hour, "h:mm:ss" from one hour on; the fraction is dropped, negatives count as
// 0.
std::string formatClock(double seconds);
std::optional<std::string> formatClock(std::optional<double> seconds);

// The identifier form of a folder's name: at most 60 characters of a-z, 0-9, CJK ideographs and
// "-"; "meeting" when nothing is left.
std::string slugify(std::string_view text);

// A date "yyyy-MM-dd" from candidate texts, best first: the first full date in any of them, else
// the first month-day prefix, taken to lie within the year before `reference` (local calendar).
std::optional<std::string> deriveDate(const std::vector<std::string>& texts, Instant reference);

}  // namespace velta
