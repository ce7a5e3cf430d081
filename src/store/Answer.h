// Answer: what the answers of several read tools have in common.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "index/Index.h"
#include "json/JSON.h"
#include "store/Access.h"

namespace velta {

// How many items an answer may hold: 0 stands for the usual number, anything else is kept between
// 1 and `most`.
std::size_t effectiveLimit(std::int64_t asked, std::int64_t usual, std::int64_t most);

JSON::Array stringArray(const std::vector<std::string>& texts);

// Why nothing was found: nothing is visible at all, or nothing of it matched.
std::string emptyNote(const Access& access, const Index& index, std::string_view nothingMatched);

// Adds "clock" to every object in `value`, at any depth, that has a finite number under "t" or else
// "t_start". A "clock" that is there already is overwritten in place.
void addClocks(JSON& value);

}  // namespace velta
