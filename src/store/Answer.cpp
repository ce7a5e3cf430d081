#include "store/Answer.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "meetings/ReaderSupport.h"
#include "meetings/TextNorm.h"

namespace velta {
namespace {

std::optional<double> timeOf(const JSONObject& object) {
  const auto t = finiteNumber(object, "t");
  return t ? t : finiteNumber(object, "t_start");
}

// Shows every value at any depth to `visit`, which may change it, from the outside in. The values
// wait in a list: notes may be nested deeper than the program's stack reaches.
template <class Visit>
void visitAll(std::vector<JSON*> waiting, Visit visit) {
  while (!waiting.empty()) {
    JSON& next = *waiting.back();
    waiting.pop_back();
    visit(next);
    if (JSON::Array* array = next.asArray()) {
      for (JSON& element : *array) waiting.push_back(&element);
    } else if (JSONObject* object = next.asObject()) {
      for (const auto& [key, member] : *object) waiting.push_back(&member);
    }
  }
}

}  // namespace

std::size_t effectiveLimit(std::int64_t asked, std::int64_t usual, std::int64_t most) {
  return static_cast<std::size_t>(asked == 0 ? usual : std::clamp<std::int64_t>(asked, 1, most));
}

JSON::Array stringArray(const std::vector<std::string>& texts) {
  return {texts.begin(), texts.end()};
}

std::string emptyNote(const Access& access, const Index& index, std::string_view nothingMatched) {
  return access.noneVisibleMessage(index).value_or(std::string(nothingMatched));
}

void addClocks(JSON& value) {
  visitAll({&value}, [](JSON& next) {
    JSONObject* object = next.asObject();
    if (object == nullptr) return;
    if (const auto time = timeOf(*object)) object->set("clock", formatClock(*time));
  });
}

void dropUnwritableNumbers(JSONObject& result) {
  std::vector<JSON*> members;
  for (const auto& [key, member] : result) members.push_back(&member);
  visitAll(std::move(members), [](JSON& next) {
    if (const auto number = next.asDouble(); number && !std::isfinite(*number)) next = nullptr;
  });
}

}  // namespace velta
