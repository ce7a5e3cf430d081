// EmailGuard: finds full e-mail addresses, so that none ever reaches an agent.
#pragma once

#include <string_view>

#include "json/JSON.h"

namespace velta {

// Whether there is a match of
//   [A-Za-z0-9._%+-]+[@＠﹫][A-Za-z0-9-]+(?:\.[A-Za-z0-9-]+)*\.[A-Za-z]{2,}
// anywhere in `text`. Takes time in proportion to its length, whatever it holds.
bool holdsEmailAddress(std::string_view text);

// The same for every key and every text in `object`, at any depth. (Not const: it is walked as
// something that might change.)
bool holdsEmailAddress(JSONObject& object);

}  // namespace velta
