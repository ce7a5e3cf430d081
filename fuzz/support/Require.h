// Require: what a fuzzer holds to be true of every input. A violation says what was violated and
// aborts, which makes the input a find.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace velta::fuzz {

[[noreturn]] inline void violated(std::string_view what, std::string_view detail = "") {
  std::string text = "fuzz: violated: ";
  text.append(what);
  if (!detail.empty()) text.append(": ").append(detail);
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::abort();
}

// `what` is the rule, `detail` what broke it.
inline void require(bool holds, std::string_view what, std::string_view detail = "") {
  if (!holds) violated(what, detail);
}

}  // namespace velta::fuzz
