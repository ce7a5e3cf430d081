#include "json/JSON.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>

namespace velta {

JSON::JSON(Array value) {
  Array* array = std::make_unique<Array>(std::move(value)).release();
  data_.word = {.kind = Kind::array, .size = kOwnsMemory, .as = {.array = array}};
}

void JSON::setLongString(std::string_view value) {
  if (value.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("JSON string of 4 GiB or more");
  }
  char* bytes = std::make_unique_for_overwrite<char[]>(value.size()).release();
  std::memcpy(bytes, value.data(), value.size());
  data_.word = {.kind = Kind::string,
                .size = kOwnsMemory,
                .length = static_cast<std::uint32_t>(value.size()),
                .as = {.longString = bytes}};
}

// Called on a null. Containers are made with nulls in place of their containers, which are then
// filled from a list of what is still to be copied.
void JSON::copyFrom(const JSON& other) {
  struct Pending {
    const JSON* from;
    JSON* to;
  };
  copyShallow(other);
  std::vector<Pending> pending;
  Pending next{&other, this};
  for (;;) {
    for (std::size_t i = 0; i < next.from->childCount(); ++i) {
      const JSON& from = next.from->child(i);
      JSON& to = next.to->child(i);
      to.copyShallow(from);
      if (from.childCount() > 0) pending.push_back({&from, &to});
    }
    if (pending.empty()) return;
    next = pending.back();
    pending.pop_back();
  }
}

// Makes this, a null, a copy of `other`, but with nulls in place of the values inside.
void JSON::copyShallow(const JSON& other) {
  if (!other.ownsMemory() && !other.isInBlock()) {
    data_ = other.data_;
  } else if (const Array* array = other.asArray()) {
    JSON copy(Array(array->size()));
    takeFrom(copy);
  } else if (const JSONObject* object = other.asObject()) {
    JSONObject members;
    members.reserve(object->size());
    for (const auto& entry : object->members()) members.append(JSON(entry.key), nullptr);
    JSON copy(std::move(members));
    takeFrom(copy);
  } else {
    setLongString(other.text());
  }
}

// Containers inside containers end by recursion, which is the quickest way, down to a depth that
// every stack allows. What is deeper is taken apart without it.
void JSON::destroy() noexcept {
  constexpr int kRecursions = 32;
  thread_local int depth = 0;
  if (depth == kRecursions) return takeApart();
  ++depth;
  freeMemory();
  --depth;
}

// The analyzer loses sight of a long string when the bytes of its value move.
// NOLINTBEGIN(clang-analyzer-cplusplus.NewDeleteLeaks)

// Takes a tree of containers apart without recursion and without memory for a stack. `current` is
// emptied from its end. When its last child is deep, the two change places: the child becomes
// `current`, and what was `current` becomes the child's first child (which moves to the free place
// instead). A container becomes `current` this way only once: afterwards it is reached through
// first places alone, so the work is in proportion to the tree.
void JSON::takeApart() noexcept {
  if (!isDeep()) return freeMemory();
  JSON current(std::move(*this));
  while (const std::size_t count = current.childCount()) {
    JSON& last = current.child(count - 1);
    if (!last.isDeep()) {
      if (last.ownsMemory()) last.freeMemory();
      current.dropLastChild();
      continue;
    }
    JSON child(std::move(last));
    if (count == 1) {
      current.dropLastChild();
    } else {
      // What is not deep may end here already, so that nothing of the kind is moved: a text in the
      // child's block would have to be copied.
      if (child.child(0).isDeep()) last = std::move(child.child(0));
      child.child(0) = std::move(current);
    }
    current = std::move(child);
  }
}

// NOLINTEND(clang-analyzer-cplusplus.NewDeleteLeaks)

// Whether it holds containers that are not empty. Looks from the end, where takeApart() takes away
// what it has looked at.
bool JSON::isDeep() const noexcept {
  const auto isFull = [](const JSON& value) { return value.childCount() > 0; };
  if (const Array* array = asArray()) return std::any_of(array->rbegin(), array->rend(), isFull);
  if (kind() != Kind::object) return false;
  const auto members = object_.object.members();
  return std::any_of(members.rbegin(), members.rend(),
                     [&](const auto& entry) { return isFull(entry.value); });
}

// Frees a long string or a container, with all that is in it, and leaves a null.
void JSON::freeMemory() noexcept {
  if (kind() == Kind::object) return endObject();
  const Word word = data_.word;
  if (word.kind == Kind::array) {
    const std::unique_ptr<Array> array(word.as.array);
  } else {
    const std::unique_ptr<char[]> longString(word.as.longString);
  }
  data_ = {};
}

std::size_t JSON::childCount() const noexcept {
  if (const Array* array = asArray()) return array->size();
  if (const JSONObject* object = asObject()) return object->size();
  return 0;
}

JSON& JSON::child(std::size_t index) const noexcept {
  if (kind() == Kind::array) return (*data_.word.as.array)[index];
  return object_.object.entries()[index].value;
}

void JSON::dropLastChild() noexcept {
  if (Array* array = asArray()) {
    array->pop_back();
  } else {
    object_.object.dropLast();
  }
}

std::optional<double> JSON::asNumber() const noexcept {
  if (kind() == Kind::integer) return static_cast<double>(data_.word.as.integer);
  return asDouble();
}

std::optional<std::int64_t> JSON::integerValue() const noexcept {
  if (kind() != Kind::number) return asInt();
  const double number = data_.word.as.number;
  if (!(std::abs(number) < 1e15) || std::trunc(number) != number) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

bool JSON::truthy() const noexcept {
  switch (kind()) {
    case Kind::boolean:
      return data_.word.as.boolean;
    case Kind::integer:
      return data_.word.as.integer != 0;
    case Kind::number:
      return data_.word.as.number != 0;
    case Kind::string:
      return !text().empty();
    case Kind::array:
    case Kind::object:
      return childCount() > 0;
    case Kind::null:
      break;
  }
  return false;
}

// Whether two values agree but for what is inside the values inside them.
bool JSON::equalShallow(const JSON& a, const JSON& b) noexcept {
  if (a.kind() != b.kind()) return false;
  switch (a.kind()) {
    case Kind::boolean:
      return a.data_.word.as.boolean == b.data_.word.as.boolean;
    case Kind::integer:
      return a.data_.word.as.integer == b.data_.word.as.integer;
    case Kind::number:
      return a.data_.word.as.number == b.data_.word.as.number;
    case Kind::string:
      return a.text() == b.text();
    case Kind::array:
      return a.childCount() == b.childCount();
    case Kind::object:
      return std::ranges::equal(
          a.asObject()->members(), b.asObject()->members(), {},
          [](const auto& entry) { return entry.name(); },
          [](const auto& entry) { return entry.name(); });
    case Kind::null:
      break;
  }
  return true;
}

bool operator==(const JSON& a, const JSON& b) {
  struct Pair {
    const JSON* a;
    const JSON* b;
  };
  if (!JSON::equalShallow(a, b)) return false;
  std::vector<Pair> pending;
  Pair next{&a, &b};
  for (;;) {
    for (std::size_t i = 0; i < next.a->childCount(); ++i) {
      const JSON& left = next.a->child(i);
      const JSON& right = next.b->child(i);
      if (!JSON::equalShallow(left, right)) return false;
      if (left.childCount() > 0) pending.push_back({&left, &right});
    }
    if (pending.empty()) return true;
    next = pending.back();
    pending.pop_back();
  }
}

}  // namespace velta
