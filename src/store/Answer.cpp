#include "store/Answer.h"

#include <algorithm>
#include <optional>

#include "json/JSONWalk.h"
#include "meetings/ReaderSupport.h"
#include "meetings/TextNorm.h"

namespace velta {
namespace {

std::optional<double> timeOf(const JSONObject& object) {
  const auto t = finiteNumber(object, "t");
  return t ? t : finiteNumber(object, "t_start");
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

}  // namespace velta
