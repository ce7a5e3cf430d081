// JSON writer: compact for everything on the wire, indented for files and for texts people read.
//
// Doubles are written with the shortest digits that read back, always with a decimal point or an
// exponent ("100000.0", "1e-05", "1e+16"); non-finite ones as NaN, Infinity and -Infinity.
// Non-ASCII text is written as itself. Nothing follows the last byte of the value.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "json/JSON.h"

namespace velta {

// `value` without any white space.
std::string writeCompact(const JSON& value);
std::string writeCompact(const JSONObject& object);

// `value` with line breaks and `width` spaces a level. Throws std::length_error for a value that is
// nested so deeply that the text would be next to nothing but blanks, and too many of them.
std::string writeIndented(const JSON& value, int width);
std::string writeIndented(const JSONObject& object, int width);

// The same, appended to `out`.
void appendCompact(std::string& out, const JSON& value);
void appendCompact(std::string& out, const JSONObject& object);
void appendIndented(std::string& out, const JSON& value, int width);
void appendIndented(std::string& out, const JSONObject& object, int width);

// What appendQuoted(out, writeIndented(object, width)) appends, without that text in between. `out`
// holds a part of it when this throws.
void appendIndentedQuoted(std::string& out, const JSONObject& object, int width);

// `text` as a JSON string, quotes included, appended to `out`.
void appendQuoted(std::string& out, std::string_view text);

// Writes `object`, indented by `width`, to `path` atomically, creating the parent directory; with
// `permissions` the file has them from its first instant on. Throws std::system_error.
void writeJSONFile(const JSONObject& object, const std::string& path, int width,
                   std::optional<mode_t> permissions = std::nullopt);

}  // namespace velta
