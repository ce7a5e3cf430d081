#include "json/JSON.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>

namespace velta {

namespace {

// From this many members on an object has a hash index. Below it a walk over the keys is faster.
constexpr std::size_t kIndexedFrom = 16;

}  // namespace

// JSON ------------------------------------------------------------------------------------------

JSON::JSON(Array value) {
  Array* array = std::make_unique<Array>(std::move(value)).release();
  data_.word = {.kind = Kind::array, .size = kOwnsMemory, .as = {.array = array}};
}

JSON::JSON(JSONObject value) {
  JSONObject* object = std::make_unique<JSONObject>(std::move(value)).release();
  data_.word = {.kind = Kind::object, .size = kOwnsMemory, .as = {.object = object}};
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
  if (!other.ownsMemory()) {
    data_ = other.data_;
  } else if (const Array* array = other.asArray()) {
    *this = JSON(Array(array->size()));
  } else if (const JSONObject* object = other.asObject()) {
    JSONObject copy;
    copy.members_.reserve(object->size());
    for (const auto& entry : object->members_) copy.members_.emplace_back(JSON(entry.key), nullptr);
    copy.slots_ = object->slots_;
    *this = std::move(copy);
  } else {
    setLongString(other.text());
  }
}

// Takes a tree of containers apart without recursion and without memory for a stack. `current` is
// emptied from its end. When its last child is deep, the two change places: the child becomes
// `current`, and what was `current` becomes the child's first child (which moves to the free place
// instead). A container becomes `current` this way only once: afterwards it is reached through
// first places alone, so the work is in proportion to the tree.
void JSON::destroy() noexcept {
  if (!isDeep()) return freeMemory();
  JSON current(std::move(*this));
  while (const std::size_t count = current.childCount()) {
    JSON& last = current.child(count - 1);
    if (!last.isDeep()) {
      current.dropLastChild();
      continue;
    }
    JSON child(std::move(last));
    if (count == 1) {
      current.dropLastChild();
    } else {
      last = std::move(child.child(0));
      child.child(0) = std::move(current);
    }
    current = std::move(child);
  }
}

// Whether it holds containers that are not empty. Looks from the end, where destroy() takes away
// what it has looked at.
bool JSON::isDeep() const noexcept {
  if (const Array* array = asArray()) {
    return std::any_of(array->rbegin(), array->rend(),
                       [](const JSON& element) { return element.childCount() > 0; });
  }
  if (const JSONObject* object = asObject()) {
    return std::any_of(object->members_.rbegin(), object->members_.rend(),
                       [](const auto& entry) { return entry.value.childCount() > 0; });
  }
  return false;
}

// Frees a long string or a container that is not deep, and leaves a null.
void JSON::freeMemory() noexcept {
  const Word word = std::exchange(data_, Data{}).word;
  if (word.kind == Kind::array) {
    const std::unique_ptr<Array> array(word.as.array);
  } else if (word.kind == Kind::object) {
    const std::unique_ptr<JSONObject> object(word.as.object);
  } else {
    const std::unique_ptr<char[]> longString(word.as.longString);
  }
}

std::size_t JSON::childCount() const noexcept {
  if (const Array* array = asArray()) return array->size();
  if (const JSONObject* object = asObject()) return object->size();
  return 0;
}

JSON& JSON::child(std::size_t index) const noexcept {
  if (kind() == Kind::array) return (*data_.word.as.array)[index];
  return data_.word.as.object->members_[index].value;
}

void JSON::dropLastChild() noexcept {
  if (Array* array = asArray()) {
    array->pop_back();
  } else {
    asObject()->members_.pop_back();
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
          a.asObject()->members_, b.asObject()->members_, {},
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

// JSONObject ------------------------------------------------------------------------------------

// The analyzer loses sight of a long string when the bytes of its value move.
// NOLINTBEGIN(clang-analyzer-cplusplus.NewDeleteLeaks)

JSONObject::JSONObject(std::initializer_list<std::pair<std::string_view, JSON>> members) {
  members_.reserve(members.size());
  for (const auto& [key, value] : members) set(key, value);
}

const JSON* JSONObject::get(std::string_view key) const noexcept {
  const std::size_t position = find(key);
  return position == kAbsent ? nullptr : &members_[position].value;
}

JSON* JSONObject::get(std::string_view key) noexcept {
  const std::size_t position = find(key);
  return position == kAbsent ? nullptr : &members_[position].value;
}

std::optional<bool> JSONObject::getBool(std::string_view key) const noexcept {
  const JSON* value = get(key);
  return value ? value->asBool() : std::nullopt;
}

std::optional<std::int64_t> JSONObject::getInt(std::string_view key) const noexcept {
  const JSON* value = get(key);
  return value ? value->asInt() : std::nullopt;
}

std::optional<double> JSONObject::getNumber(std::string_view key) const noexcept {
  const JSON* value = get(key);
  return value ? value->asNumber() : std::nullopt;
}

std::optional<std::string_view> JSONObject::getString(std::string_view key) const noexcept {
  const JSON* value = get(key);
  return value ? value->asString() : std::nullopt;
}

const JSON::Array* JSONObject::getArray(std::string_view key) const noexcept {
  const JSON* value = get(key);
  return value ? value->asArray() : nullptr;
}

const JSONObject* JSONObject::getObject(std::string_view key) const noexcept {
  const JSON* value = get(key);
  return value ? value->asObject() : nullptr;
}

void JSONObject::set(std::string_view key, JSON value) {
  if (JSON* present = get(key)) {
    *present = std::move(value);
  } else {
    append(key, std::move(value));
  }
}

JSONObject JSONObject::fromPairs(JSON* begin, JSON* end) {
  JSONObject object;
  const auto count = static_cast<std::size_t>(end - begin) / 2;
  object.members_.reserve(count);
  for (JSON* key = begin; key != end; key += 2) {
    const std::size_t position = object.find(*key);
    if (position == kAbsent) {
      object.append(std::move(key[0]), std::move(key[1]));
    } else {
      object.members_[position].value = std::move(key[1]);
    }
  }
  return object;
}

void JSONObject::erase(std::string_view key) {
  const std::size_t position = find(key);
  if (position == kAbsent) return;
  members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(position));
  rebuildIndex();
}

std::vector<std::string> JSONObject::keys() const {
  std::vector<std::string> keys;
  keys.reserve(size());
  for (const Entry& entry : members_) keys.emplace_back(entry.name());
  return keys;
}

bool operator==(const JSONObject& a, const JSONObject& b) {
  return std::ranges::equal(a.members_, b.members_, [](const auto& left, const auto& right) {
    return left.name() == right.name() && left.value == right.value;
  });
}

// The slot where the search for `key` begins.
std::size_t JSONObject::firstSlot(std::string_view key) const noexcept {
  return std::hash<std::string_view>()(key) & (slots_.size() - 1);
}

// Position of `key` in members_, or kAbsent.
std::size_t JSONObject::find(std::string_view key) const noexcept {
  if (slots_.empty()) {
    const auto found =
        std::ranges::find(members_, key, [](const Entry& entry) { return entry.name(); });
    return found == members_.end() ? kAbsent : static_cast<std::size_t>(found - members_.begin());
  }
  for (std::size_t slot = firstSlot(key); slots_[slot] != 0; slot = nextSlot(slot)) {
    const std::size_t position = slots_[slot] - 1;
    if (members_[position].name() == key) return position;
  }
  return kAbsent;
}

// The same for a key that is a value already: its text need not be looked at byte by byte.
std::size_t JSONObject::find(const JSON& key) const noexcept {
  if (!slots_.empty()) return find(key.text());
  for (std::size_t position = 0; position < size(); ++position) {
    if (members_[position].key.sameText(key)) return position;
  }
  return kAbsent;
}

// Adds a member whose key is not there yet.
void JSONObject::append(JSON&& key, JSON&& value) {
  members_.emplace_back(std::move(key), std::move(value));
  if (size() < kIndexedFrom) return;
  if (2 * size() > slots_.size()) {
    rebuildIndex();
  } else {
    enterIntoIndex(size() - 1);
  }
}

void JSONObject::enterIntoIndex(std::size_t position) {
  std::size_t slot = firstSlot(members_[position].name());
  while (slots_[slot] != 0) slot = nextSlot(slot);
  slots_[slot] = static_cast<std::uint32_t>(position + 1);
}

// Makes slots_ fit members_, with room for as many again.
void JSONObject::rebuildIndex() {
  slots_.clear();
  if (size() < kIndexedFrom) return;
  slots_.resize(std::bit_ceil(4 * size()));
  for (std::size_t position = 0; position < size(); ++position) enterIntoIndex(position);
}

// NOLINTEND(clang-analyzer-cplusplus.NewDeleteLeaks)

}  // namespace velta
