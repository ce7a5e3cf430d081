// JSON: one value of a JSON document, and JSONObject, an object whose keys keep their order.
//
// Integers and doubles are distinct: JSON(5) and JSON(5.0) are different values and are written
// "5" and "5.0". Objects keep the order in which their keys were first set, and order takes part in
// equality. Both are values: a copy is deep. Nothing here recurses per level of nesting (copy,
// comparison and destruction included), so depth is bounded by memory alone.
//
// Composing:
//   JSONObject meeting;
//   meeting.set("id", "rec-1");
//   meeting.set("date", nullptr);
//   meeting.set("tags", JSON::Array{"work", "agents"});
//   JSON value = std::move(meeting);
// Inspecting; "absent" and "of another kind" are one answer:
//   if (const JSONObject* object = value.asObject())
//     if (auto id = object->getString("id")) use(*id);
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace velta {

class JSONObject;

// Sixteen bytes: a kind, and a scalar, a string of up to 14 bytes, or a pointer to what it owns.
class JSON {
 public:
  enum class Kind : std::uint8_t { boolean, integer, number, string, array, object, null };
  using Array = std::vector<JSON>;

  JSON() noexcept = default;  // null
  JSON(std::nullptr_t) noexcept {}
  JSON(std::same_as<bool> auto value) noexcept {
    data_.word = {.kind = Kind::boolean, .as = {.boolean = value}};
  }
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) JSON(Integer value)
  noexcept {
    data_.word = {.kind = Kind::integer, .as = {.integer = static_cast<std::int64_t>(value)}};
  }
  JSON(double value) noexcept { data_.word = {.kind = Kind::number, .as = {.number = value}}; }
  // Must be well-formed UTF-8. Throws std::length_error from 4 GiB on.
  JSON(std::string_view value) {
    if (value.size() <= kShortCapacity) {
      data_.brief = {
          .kind = Kind::string, .size = static_cast<std::uint8_t>(value.size()), .text = {}};
      std::memcpy(data_.brief.text, value.data(), value.size());
    } else {
      setLongString(value);
    }
  }
  JSON(const std::string& value) : JSON(std::string_view(value)) {}
  JSON(const char* value) : JSON(std::string_view(value)) {}
  JSON(Array value);
  JSON(JSONObject value);
  // The value inside, or null.
  template <class Value>
  JSON(const std::optional<Value>& value) : JSON(value ? JSON(*value) : JSON()) {}

  JSON(const JSON& other) : JSON() { copyFrom(other); }
  JSON(JSON&& other) noexcept : data_(std::exchange(other.data_, Data{})) {}
  JSON& operator=(const JSON& other) { return *this = JSON(other); }
  JSON& operator=(JSON&& other) noexcept {
    // By way of a third value, because `other` may lie inside this one.
    JSON old(std::move(other));
    std::swap(data_, old.data_);
    return *this;
  }
  ~JSON() {
    if (ownsMemory()) destroy();
  }

  Kind kind() const noexcept { return data_.word.kind; }
  bool isNull() const noexcept { return kind() == Kind::null; }

  // The payload, absent (or null) when the value is of another kind. Views and pointers are valid
  // while the value is alive, unchanged and in its place.
  std::optional<bool> asBool() const noexcept {
    if (kind() != Kind::boolean) return std::nullopt;
    return data_.word.as.boolean;
  }
  std::optional<std::int64_t> asInt() const noexcept {  // Kind::integer only
    if (kind() != Kind::integer) return std::nullopt;
    return data_.word.as.integer;
  }
  std::optional<double> asDouble() const noexcept {  // Kind::number only
    if (kind() != Kind::number) return std::nullopt;
    return data_.word.as.number;
  }
  std::optional<double> asNumber() const noexcept;  // either, widened
  std::optional<std::string_view> asString() const noexcept {
    if (kind() != Kind::string) return std::nullopt;
    return text();
  }
  const Array* asArray() const noexcept {
    return kind() == Kind::array ? data_.word.as.array : nullptr;
  }
  // Not const, though they could be: the container is part of the value.
  Array* asArray() noexcept {  // NOLINT(readability-make-member-function-const): see above
    return kind() == Kind::array ? data_.word.as.array : nullptr;
  }
  const JSONObject* asObject() const noexcept {
    return kind() == Kind::object ? data_.word.as.object : nullptr;
  }
  JSONObject* asObject() noexcept {  // NOLINT(readability-make-member-function-const): see above
    return kind() == Kind::object ? data_.word.as.object : nullptr;
  }

  // An integer itself; a double that is whole and below 1e15 in magnitude as an integer; else
  // absent.
  std::optional<std::int64_t> integerValue() const noexcept;

  // false, 0, 0.0, "", [], {} and null are false; everything else is true.
  bool truthy() const noexcept;

  // Same kind and same payload: JSON(1) != JSON(1.0); NaN equals nothing.
  friend bool operator==(const JSON& a, const JSON& b);

 private:
  friend class JSONObject;

  static constexpr std::size_t kShortCapacity = 14;
  static constexpr std::uint8_t kOwnsMemory = 0xFF;  // in place of a short string's size

  // The two views of the sixteen bytes begin alike, so `kind` and `size` can be read through
  // either.
  struct ShortString {
    Kind kind;
    std::uint8_t size;
    char text[kShortCapacity];
  };
  struct Word {
    Kind kind;
    std::uint8_t size = 0;
    std::uint32_t length = 0;  // bytes, of a long string
    union {
      bool boolean;
      std::int64_t integer;
      double number;
      char* longString;  // not terminated
      Array* array;
      JSONObject* object;
    } as;
  };
  union Data {
    Word word = {.kind = Kind::null, .as = {.integer = 0}};
    ShortString brief;
  };

  bool ownsMemory() const noexcept { return data_.word.size == kOwnsMemory; }
  std::string_view text() const noexcept {
    return ownsMemory() ? std::string_view(data_.word.as.longString, data_.word.length)
                        : std::string_view(data_.brief.text, data_.brief.size);
  }
  // Whether two strings have the same text.
  bool sameText(const JSON& other) const noexcept {
    if (ownsMemory() || other.ownsMemory()) return text() == other.text();
    return std::memcmp(&data_.brief, &other.data_.brief, sizeof(ShortString)) == 0;
  }
  void setLongString(std::string_view value);
  void copyFrom(const JSON& other);
  void copyShallow(const JSON& other);
  void destroy() noexcept;
  void freeMemory() noexcept;
  bool isDeep() const noexcept;
  static bool equalShallow(const JSON& a, const JSON& b) noexcept;

  // The values of an array or object; others have none.
  std::size_t childCount() const noexcept;
  JSON& child(std::size_t index) const noexcept;
  void dropLastChild() noexcept;

  Data data_;
};

// The members of a JSON object: keys, each once, with their values, in the order in which the keys
// were first set. Looking a key up walks a small object and hashes into one of 16 members or more.
class JSONObject {
 public:
  template <class Value>
  struct BasicMember {
    std::string_view key;
    Value& value;
  };
  using Member = BasicMember<const JSON>;
  template <class Value>
  class BasicIterator;
  using ConstIterator = BasicIterator<const JSON>;
  using Iterator = BasicIterator<JSON>;

  JSONObject() noexcept = default;
  JSONObject(std::initializer_list<std::pair<std::string_view, JSON>> members);

  // The value under `key`, null pointer when absent. Valid until the object changes.
  const JSON* get(std::string_view key) const noexcept;
  JSON* get(std::string_view key) noexcept;
  bool has(std::string_view key) const noexcept { return get(key) != nullptr; }

  // The payload under `key`, absent (or null) when the key is absent or its value of another kind.
  std::optional<bool> getBool(std::string_view key) const noexcept;
  std::optional<std::int64_t> getInt(std::string_view key) const noexcept;
  std::optional<double> getNumber(std::string_view key) const noexcept;  // integer or double
  std::optional<std::string_view> getString(std::string_view key) const noexcept;
  const JSON::Array* getArray(std::string_view key) const noexcept;
  const JSONObject* getObject(std::string_view key) const noexcept;

  // A new key goes to the end; a key that is there keeps its place and takes the value.
  void set(std::string_view key, JSON value);
  // Removes the key; nothing happens when it is absent. Takes time in proportion to the size.
  void erase(std::string_view key);
  // Makes room for `count` members.
  void reserve(std::size_t count) { members_.reserve(count); }

  std::size_t size() const noexcept { return members_.size(); }
  bool empty() const noexcept { return members_.empty(); }
  std::vector<std::string> keys() const;

  // Members in order: for (const auto& [key, value] : object), key a std::string_view. The values,
  // not the keys, of an object that is not const can be changed on the way.
  ConstIterator begin() const noexcept;
  ConstIterator end() const noexcept;
  Iterator begin() noexcept;
  Iterator end() noexcept;

  friend bool operator==(const JSONObject& a, const JSONObject& b);

 private:
  friend class JSON;
  friend class JSONBuilder;

  // The key is a string value: sixteen bytes, and no allocation for the usual short ones.
  struct Entry {
    Entry(JSON&& theKey, JSON&& theValue) noexcept
        : key(std::move(theKey)), value(std::move(theValue)) {}
    JSON key;
    JSON value;
    std::string_view name() const noexcept { return key.text(); }
  };
  static constexpr std::size_t kAbsent = static_cast<std::size_t>(-1);

  std::size_t find(std::string_view key) const noexcept;
  std::size_t find(const JSON& key) const noexcept;
  // An object of keys and values in turn, which are taken out of [begin, end).
  static JSONObject fromPairs(JSON* begin, JSON* end);
  void append(JSON&& key, JSON&& value);
  void enterIntoIndex(std::size_t position);
  void rebuildIndex();
  std::size_t firstSlot(std::string_view key) const noexcept;
  std::size_t nextSlot(std::size_t slot) const noexcept { return (slot + 1) & (slots_.size() - 1); }

  std::vector<Entry> members_;
  // Hash table with open addressing: 0 for a free slot, else 1 + a position in members_. Empty
  // while the object is small, else a power of two and at most half full.
  std::vector<std::uint32_t> slots_;
};

template <class Value>
class JSONObject::BasicIterator {
 public:
  using value_type = BasicMember<Value>;
  using difference_type = std::ptrdiff_t;

  BasicIterator() noexcept = default;
  value_type operator*() const noexcept { return {at_->name(), at_->value}; }
  BasicIterator& operator++() noexcept {
    ++at_;
    return *this;
  }
  BasicIterator operator++(int) noexcept { return BasicIterator(at_++); }
  friend bool operator==(BasicIterator a, BasicIterator b) noexcept { return a.at_ == b.at_; }

 private:
  friend class JSONObject;
  using EntryPointer = std::conditional_t<std::is_const_v<Value>, const Entry*, Entry*>;
  explicit BasicIterator(EntryPointer at) noexcept : at_(at) {}

  EntryPointer at_ = nullptr;
};

inline JSONObject::ConstIterator JSONObject::begin() const noexcept {
  return ConstIterator(members_.data());
}
inline JSONObject::ConstIterator JSONObject::end() const noexcept {
  return ConstIterator(members_.data() + members_.size());
}
inline JSONObject::Iterator JSONObject::begin() noexcept { return Iterator(members_.data()); }
inline JSONObject::Iterator JSONObject::end() noexcept {
  return Iterator(members_.data() + members_.size());
}

}  // namespace velta
