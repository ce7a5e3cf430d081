// Arguments: the arguments of one tool call, read as typed values. Clients are forgiven what models
// often do (a number written as text, 5.0 for 5); whatever else is of the wrong kind throws
// StoreError::value with a message that names the argument, the kind and the value it got.
//
//   const Arguments arguments(object);
//   const std::string id = arguments.requiredString("id");
//   const std::int64_t limit = arguments.integer("limit", 20);
//
// An argument that is null counts as absent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/JSON.h"

namespace velta {

class Arguments {
 public:
  // `object` must outlive this.
  explicit Arguments(const JSONObject& object) : object_(object) {}

  // A text, which may be empty; throws as well when it is absent.
  std::string requiredString(std::string_view name) const;

  std::optional<std::string> optionalString(std::string_view name) const;

  // The same, for filters: an empty text filters nothing and so counts as absent.
  std::optional<std::string> optionalFilter(std::string_view name) const;

  // An integer, a whole double below 1e15 in magnitude, or the text of a decimal integer.
  std::int64_t integer(std::string_view name, std::int64_t byDefault) const;

  // A number, or the text of a decimal number.
  std::optional<double> optionalNumber(std::string_view name) const;

  // A boolean, 0 or 1, or one of the words true, yes, on, false, no, off, "1" and "0" in any case.
  bool boolean(std::string_view name, bool byDefault) const;

  // A list that holds nothing but texts.
  std::optional<std::vector<std::string>> optionalStrings(std::string_view name) const;

 private:
  // The value under `name`, null when it is absent or the value null.
  const JSON* find(std::string_view name) const;

  const JSONObject& object_;
};

}  // namespace velta
