#include "json/JSONWalk.h"

#include <cmath>

namespace velta {

void dropUnwritableNumbers(JSONObject& object) {
  std::vector<JSON*> members;
  for (const auto& [key, member] : object) members.push_back(&member);
  visitAll(std::move(members), [](JSON& next) {
    if (const auto number = next.asDouble(); number && !std::isfinite(*number)) next = nullptr;
  });
}

}  // namespace velta
