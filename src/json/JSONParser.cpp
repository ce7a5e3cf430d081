#include "json/JSONParser.h"

#include <iterator>
#include <utility>

namespace velta {

JSON parseJSON(std::string_view bytes) {
  JSONBuilder builder;
  parseJSONEvents(bytes, builder);
  return builder.take();
}

void JSONBuilder::onArrayEnd() {
  const auto first = values_.begin() + static_cast<std::ptrdiff_t>(open_.back());
  open_.pop_back();
  JSON::Array array(std::make_move_iterator(first), std::make_move_iterator(values_.end()));
  values_.erase(first, values_.end());
  values_.emplace_back(std::move(array));
}

void JSONBuilder::onObjectEnd() {
  const std::size_t first = open_.back();
  open_.pop_back();
  JSONObject object =
      JSONObject::fromPairs(values_.data() + first, values_.data() + values_.size());
  values_.resize(first);
  values_.emplace_back(std::move(object));
}

JSON JSONBuilder::take() {
  JSON value = std::move(values_.back());
  values_.pop_back();
  return value;
}

}  // namespace velta
