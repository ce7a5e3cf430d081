// JSONWalk: every value inside a value, at any depth, without recursion.
#pragma once

#include <utility>
#include <vector>

#include "json/JSON.h"

namespace velta {

// Calls visit(JSON&) for every value in `waiting` and for all that they hold, containers before
// what is in them; what the call puts in place of a value is looked into as well.
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

// Puts null in place of every number in a value that is not finite. A text may hold numbers beyond
// the range of a double, and JSON has no way to write what becomes of them.
void dropUnwritableNumbers(JSON& value);
void dropUnwritableNumbers(JSONObject& object);

// Whether there is no such number in `value`.
bool isWritable(const JSON& value);

}  // namespace velta
