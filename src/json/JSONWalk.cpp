#include "json/JSONWalk.h"

#include <cmath>

namespace velta {

namespace {

void dropFrom(std::vector<JSON*> values) {
  visitAll(std::move(values), [](JSON& next) {
    if (const auto number = next.asDouble(); number && !std::isfinite(*number)) next = nullptr;
  });
}

}  // namespace

void dropUnwritableNumbers(JSON& value) { dropFrom({&value}); }

void dropUnwritableNumbers(JSONObject& object) {
  std::vector<JSON*> members;
  for (const auto& [key, member] : object) members.push_back(&member);
  dropFrom(std::move(members));
}

bool isWritable(const JSON& value) {
  JSON copy = value;
  dropUnwritableNumbers(copy);
  return copy == value;
}

}  // namespace velta
