// Version: the one place that says which version this program is.
#pragma once

#include <string_view>

namespace velta {

inline constexpr std::string_view kVersion = "0.2.0";

}  // namespace velta
