#include "json/JSONParser.h"

#include <iterator>
#include <span>
#include <utility>

namespace velta {

JSON parseJSON(std::string_view bytes) {
  JSONBuilder builder;
  parseJSONEvents(bytes, builder);
  return builder.take();
}

JSONBuilder::Open JSONBuilder::close() {
  const Open open = open_.back();
  open_.pop_back();
  return open;
}

void JSONBuilder::onArrayEnd() {
  const Open open = close();
  const auto first = values_.begin() + static_cast<std::ptrdiff_t>(open.values);
  for (auto value = first; value != values_.end(); ++value) value->settle(texts_);
  JSON::Array array(std::make_move_iterator(first), std::make_move_iterator(values_.end()));
  values_.erase(first, values_.end());
  values_.emplace_back(std::move(array));
  texts_.resize(open.texts);
}

void JSONBuilder::onObjectEnd() {
  const Open open = close();
  JSONObject object = JSONObject::fromPairs(std::span(values_).subspan(open.values), texts_);
  values_.resize(open.values);
  values_.emplace_back(std::move(object));
  texts_.resize(open.texts);
}

JSON JSONBuilder::take() {
  values_.back().settle(texts_);
  JSON value = std::move(values_.back());
  values_.pop_back();
  texts_.clear();
  return value;
}

}  // namespace velta
