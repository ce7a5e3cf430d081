#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSON.h"

namespace velta {

namespace {

constexpr std::size_t kFirstCapacity = 4;
constexpr std::size_t kMostMembers = std::numeric_limits<std::uint32_t>::max() / 4;

}  // namespace

// The analyzer loses sight of a long string when the bytes of its value move.
// NOLINTBEGIN(clang-analyzer-cplusplus.NewDeleteLeaks)

JSONObject::JSONObject(std::initializer_list<std::pair<std::string_view, JSON>> members) {
  reserve(members.size());
  for (const auto& [key, value] : members) set(key, value);
}

JSONObject::JSONObject(const JSONObject& other) : JSONObject() {
  reserve(other.size());
  for (const Entry& entry : other.members()) append(JSON(entry.key), JSON(entry.value));
}

const JSON* JSONObject::get(std::string_view key) const noexcept {
  const std::size_t position = find(key);
  return position == kAbsent ? nullptr : &entries()[position].value;
}

JSON* JSONObject::get(std::string_view key) noexcept {
  const std::size_t position = find(key);
  return position == kAbsent ? nullptr : &entries()[position].value;
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

JSONObject JSONObject::fromPairs(std::span<JSON> pairs, std::string_view texts) {
  JSONObject object;
  if (!pairs.empty() && pairs.size() / 2 < kIndexedFrom && keysDiffer(pairs)) {
    object.takeFewDistinctPairs(pairs, texts);
  } else {
    object.takePairs(pairs, texts);
  }
  return object;
}

// Whether no key is there twice.
bool JSONObject::keysDiffer(std::span<JSON> pairs) noexcept {
  const JSON* const end = pairs.data() + pairs.size();
  for (const JSON* key = pairs.data() + 2; key < end; key += 2) {
    for (const JSON* earlier = pairs.data(); earlier != key; earlier += 2) {
      if (earlier->sameText(*key)) return false;
    }
  }
  return true;
}

// Of a repeated key the last value counts, in the place of the first.
void JSONObject::takePairs(std::span<JSON> pairs, std::string_view texts) {
  reserve(pairs.size() / 2);
  for (std::size_t i = 0; i < pairs.size(); i += 2) {
    pairs[i + 1].settle(texts);
    const std::size_t position = find(pairs[i]);
    if (position == kAbsent) {
      append(std::move(pairs[i]), std::move(pairs[i + 1]));
    } else {
      entries()[position].value = std::move(pairs[i + 1]);
    }
  }
}

// The usual objects: one allocation for everything.
void JSONObject::takeFewDistinctPairs(std::span<JSON> pairs, std::string_view texts) {
  std::size_t textBytes = 0;
  for (std::size_t i = 1; i < pairs.size(); i += 2) {
    if (pairs[i].waits()) textBytes += pairs[i].waitingText(texts).size();
  }
  const std::size_t count = pairs.size() / 2;
  block_ = newBlock(count, textBytes);
  Entry* entry = entries();
  char* text = reinterpret_cast<char*>(entry + count);
  for (std::size_t i = 0; i < pairs.size(); i += 2, ++entry) {
    JSON& value = pairs[i + 1];
    if (value.waits()) {
      std::construct_at(entry, std::move(pairs[i]));
      text = entry->value.putInBlock(text, value.waitingText(texts));
    } else {
      std::construct_at(entry, std::move(pairs[i]), std::move(value));
    }
  }
  header().size = static_cast<std::uint32_t>(count);
}

void JSONObject::erase(std::string_view key) {
  const std::size_t position = find(key);
  if (position == kAbsent) return;
  std::move(entries() + position + 1, entries() + size(), entries() + position);
  dropLast();
  rebuildIndex();
}

std::vector<std::string> JSONObject::keys() const {
  std::vector<std::string> keys;
  keys.reserve(size());
  for (const Entry& entry : members()) keys.emplace_back(entry.name());
  return keys;
}

bool operator==(const JSONObject& a, const JSONObject& b) {
  return std::ranges::equal(a.members(), b.members(), [](const auto& left, const auto& right) {
    return left.name() == right.name() && left.value == right.value;
  });
}

// Position of `key` among the members, or kAbsent.
std::size_t JSONObject::find(std::string_view key) const noexcept {
  if (!isIndexed()) {
    const auto found = std::ranges::find(members(), key, &Entry::name);
    return found == members().end() ? kAbsent : static_cast<std::size_t>(found - members().begin());
  }
  const auto slots = this->slots();
  for (std::size_t slot = firstSlot(key); slots[slot] != 0;
       slot = (slot + 1) & (slots.size() - 1)) {
    const std::size_t position = slots[slot] - 1;
    if (entries()[position].name() == key) return position;
  }
  return kAbsent;
}

// The same for a key that is a value already: its text need not be looked at byte by byte.
std::size_t JSONObject::find(const JSON& key) const noexcept {
  if (isIndexed()) return find(key.text());
  const Entry* const entries = this->entries();
  for (std::size_t position = 0; position < size(); ++position) {
    if (entries[position].key.sameText(key)) return position;
  }
  return kAbsent;
}

// Adds a member whose key is not there yet.
void JSONObject::append(JSON&& key, JSON&& value) {
  if (size() == capacity()) moveToBlock(std::max(2 * capacity(), kFirstCapacity));
  std::construct_at(entries() + size(), std::move(key), std::move(value));
  ++header().size;
  if (size() == kIndexedFrom) {
    rebuildIndex();
  } else if (isIndexed()) {
    enterIntoIndex(size() - 1);
  }
}

// Takes the last member away and leaves the index as it is.
void JSONObject::dropLast() noexcept {
  --header().size;
  std::destroy_at(entries() + size());
}

// A block without members.
std::byte* JSONObject::newBlock(std::size_t capacity, std::size_t textBytes) {
  if (capacity > kMostMembers) throw std::length_error("JSON object of too many members");
  const std::size_t size = sizeof(Header) + capacity * sizeof(Entry) +
                           slotCount(capacity) * sizeof(std::uint32_t) + textBytes;
  std::byte* const block = std::make_unique_for_overwrite<std::byte[]>(size).release();
  std::construct_at(reinterpret_cast<Header*>(block), capacity);
  return block;
}

void JSONObject::moveToBlock(std::size_t capacity) {
  JSONObject larger;
  larger.block_ = newBlock(capacity, /*textBytes=*/0);
  std::uninitialized_move(members().begin(), members().end(), larger.entries());
  larger.header().size = static_cast<std::uint32_t>(size());
  std::swap(block_, larger.block_);
  rebuildIndex();
}

void JSONObject::destroyBlock() noexcept {
  std::ranges::destroy(members());
  const std::unique_ptr<std::byte[]> freed(block_);
}

// The hash index has open addressing: 0 in a free slot, else 1 + a position among the members. At
// most half of the slots are in use, and their number is a power of two.
std::size_t JSONObject::slotCount(std::size_t capacity) noexcept {
  return capacity < kIndexedFrom ? 0 : std::bit_ceil(2 * capacity);
}

std::span<std::uint32_t> JSONObject::slots() const noexcept {
  return {reinterpret_cast<std::uint32_t*>(entries() + capacity()), slotCount(capacity())};
}

// The slot where the search for `key` begins.
std::size_t JSONObject::firstSlot(std::string_view key) const noexcept {
  return std::hash<std::string_view>()(key) & (slots().size() - 1);
}

void JSONObject::enterIntoIndex(std::size_t position) noexcept {
  const auto slots = this->slots();
  std::size_t slot = firstSlot(entries()[position].name());
  while (slots[slot] != 0) slot = (slot + 1) & (slots.size() - 1);
  slots[slot] = static_cast<std::uint32_t>(position + 1);
}

void JSONObject::rebuildIndex() noexcept {
  if (!isIndexed()) return;
  std::ranges::fill(slots(), 0U);
  for (std::size_t position = 0; position < size(); ++position) enterIntoIndex(position);
}

// NOLINTEND(clang-analyzer-cplusplus.NewDeleteLeaks)

}  // namespace velta
