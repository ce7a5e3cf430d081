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

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "json/PartialWords.h"

namespace velta {

class JSON;

// The members of a JSON object: keys, each once, with their values, in the order in which the keys
// were first set. Looking a key up walks a small object and hashes into one of 16 members or more.
// It is one pointer, to one block that holds everything but long texts.
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
  JSONObject(const JSONObject& other);
  JSONObject(JSONObject&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  JSONObject& operator=(const JSONObject& other) { return *this = JSONObject(other); }
  JSONObject& operator=(JSONObject&& other) noexcept {
    // By way of a third object, because `other` may lie inside this one.
    JSONObject old(std::move(other));
    std::swap(block_, old.block_);
    return *this;
  }
  ~JSONObject() {
    if (block_ != nullptr) destroyBlock();
  }

  // The value under `key`, null pointer when absent. Valid until the object changes.
  const JSON* get(std::string_view key) const noexcept;
  JSON* get(std::string_view key) noexcept;
  bool has(std::string_view key) const noexcept { return get(key) != nullptr; }

  // The payload under `key`, absent (or null) when the key is absent or its value of another kind.
  std::optional<bool> getBool(std::string_view key) const noexcept;
  std::optional<std::int64_t> getInt(std::string_view key) const noexcept;
  std::optional<double> getNumber(std::string_view key) const noexcept;  // integer or double
  std::optional<std::string_view> getString(std::string_view key) const noexcept;
  const std::vector<JSON>* getArray(std::string_view key) const noexcept;
  const JSONObject* getObject(std::string_view key) const noexcept;

  // A new key goes to the end; a key that is there keeps its place and takes the value.
  void set(std::string_view key, JSON value);
  // Removes the key; nothing happens when it is absent. Takes time in proportion to the size.
  void erase(std::string_view key);
  // Makes room for `count` members.
  void reserve(std::size_t count) {
    if (count > capacity()) moveToBlock(count);
  }

  std::size_t size() const noexcept { return block_ == nullptr ? 0 : header().size; }
  bool empty() const noexcept { return size() == 0; }
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

  struct Entry;
  // A block begins so. Behind it come `capacity` entries, the first `size` of them in use; then, in
  // a large one, the hash index; or, in a small one that the parser made, the texts of its values.
  struct alignas(std::uint64_t) Header {
    explicit Header(std::size_t itsCapacity) : capacity(static_cast<std::uint32_t>(itsCapacity)) {}
    std::uint32_t size = 0;
    std::uint32_t capacity;
  };
  static constexpr std::size_t kAbsent = static_cast<std::size_t>(-1);

  // An object of keys and values in turn, which are taken out of `pairs`. What of them waits is in
  // `texts`.
  static JSONObject fromPairs(std::span<JSON> pairs, std::string_view texts);
  static bool keysDiffer(std::span<JSON> pairs) noexcept;
  void takePairs(std::span<JSON> pairs, std::string_view texts);
  void takeFewDistinctPairs(std::span<JSON> pairs, std::string_view texts);

  std::size_t find(std::string_view key) const noexcept;
  std::size_t find(const JSON& key) const noexcept;
  void append(JSON&& key, JSON&& value);
  void dropLast() noexcept;

  // Of an object that has a block.
  Header& header() const noexcept { return *std::launder(reinterpret_cast<Header*>(block_)); }
  std::size_t capacity() const noexcept { return block_ == nullptr ? 0 : header().capacity; }
  // The entries; null when there is no block.
  Entry* entries() const noexcept;
  std::span<Entry> members() const noexcept;

  static std::byte* newBlock(std::size_t capacity, std::size_t textBytes);
  void moveToBlock(std::size_t capacity);
  void destroyBlock() noexcept;

  bool isIndexed() const noexcept { return size() >= kIndexedFrom; }
  static std::size_t slotCount(std::size_t capacity) noexcept;
  std::span<std::uint32_t> slots() const noexcept;
  std::size_t firstSlot(std::string_view key) const noexcept;
  void enterIntoIndex(std::size_t position) noexcept;
  void rebuildIndex() noexcept;

  // From this many members on there is a hash index. Below it a walk over the keys is faster.
  static constexpr std::size_t kIndexedFrom = 16;

  std::byte* block_ = nullptr;
};

// Sixteen bytes: a kind, and a scalar, a string of up to 14 bytes, an object, or a pointer to what
// it owns. A long string in a parsed object lies in the object's memory instead and is copied when
// its value moves elsewhere; as moving cannot fail, the program ends where memory for that lacks.
class JSON {
 public:
  enum class Kind : std::uint8_t { null, boolean, integer, number, string, array, object };
  using Array = std::vector<JSON>;

  JSON() noexcept : data_() {}  // null
  JSON(std::nullptr_t) noexcept : JSON() {}
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
      setShortString(value);
    } else {
      setLongString(value);
    }
  }
  JSON(const std::string& value) : JSON(std::string_view(value)) {}
  JSON(const char* value) : JSON(std::string_view(value)) {}
  JSON(Array value);
  JSON(JSONObject value)
  noexcept : object_{.kind = Kind::object, .size = kOwnsMemory, .object = std::move(value)} {}
  // The value inside, or null.
  template <class Value>
  JSON(const std::optional<Value>& value) : JSON(value ? JSON(*value) : JSON()) {}

  JSON(const JSON& other) : JSON() { copyFrom(other); }
  JSON(JSON&& other) noexcept : JSON() { takeFrom(other); }
  JSON& operator=(const JSON& other) { return *this = JSON(other); }
  JSON& operator=(JSON&& other) noexcept {
    // By way of a third value, because `other` may lie inside this one.
    JSON value(std::move(other));
    // The analyzer loses sight of a long string when the bytes of its value move.
    if (ownsMemory()) destroy();  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks)
    takeFrom(value);
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
    return kind() == Kind::object ? &object_.object : nullptr;
  }
  JSONObject* asObject() noexcept {  // NOLINT(readability-make-member-function-const): see above
    return kind() == Kind::object ? &object_.object : nullptr;
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
  friend class JSONBuilder;

  static constexpr std::size_t kShortCapacity = 14;
  // In place of a short string's size, when the payload is not in the value itself.
  static constexpr std::uint8_t kWaits = 0xFD;       // a text that its JSONBuilder still keeps
  static constexpr std::uint8_t kInBlock = 0xFE;     // a text in the block of the value's object
  static constexpr std::uint8_t kOwnsMemory = 0xFF;  // everything else

  // The views of the sixteen bytes begin alike, so `kind` and `size` can be read through any. Null
  // is all zeros.
  struct ShortString {
    Kind kind;
    std::uint8_t size;
    char text[kShortCapacity];
  };
  struct Word {
    Kind kind;
    std::uint8_t size = 0;
    std::uint16_t unused = 0;
    std::uint32_t length = 0;  // bytes, of a long string
    union {
      bool boolean;
      std::int64_t integer;
      double number;
      char* longString;  // not terminated
      Array* array;
      std::size_t waitsAt;  // offset in the builder's texts
    } as;
  };
  union Data {
    Word word = {.kind = Kind::null, .as = {.integer = 0}};
    ShortString brief;
  };
  struct ObjectWord {
    Kind kind;
    std::uint8_t size;
    JSONObject object;
  };

  // Makes this, a null, a text that waits at `offset` of its builder's texts, until its object's
  // block is made. Nothing else may be asked of it before.
  void waitAt(std::size_t offset, std::size_t length) noexcept {
    setOutsideText(kWaits, length);
    data_.word.as.waitsAt = offset;
  }
  // Member by member: a whole Word would be put together elsewhere and then be copied in one piece,
  // which has to wait for its parts.
  void setOutsideText(std::uint8_t where, std::size_t length) noexcept {
    data_.word.kind = Kind::string;
    data_.word.size = where;
    data_.word.unused = 0;
    data_.word.length = static_cast<std::uint32_t>(length);
  }
  // Puts `text` at `at`, which is in a block, and makes this, a null of that block, that text.
  // Tells the place behind it.
  char* putInBlock(char* at, std::string_view text) noexcept {
    std::memcpy(at, text.data(), text.size());
    setOutsideText(kInBlock, text.size());
    data_.word.as.longString = at;
    return at + text.size();
  }
  bool waits() const noexcept { return data_.word.size == kWaits; }
  std::string_view waitingText(std::string_view texts) const noexcept {
    return {texts.data() + data_.word.as.waitsAt, data_.word.length};
  }
  // Puts a text that waits into memory of its own.
  void settle(std::string_view texts) {
    if (waits()) setLongString(waitingText(texts));
  }

  bool ownsMemory() const noexcept { return data_.word.size == kOwnsMemory; }
  bool isInBlock() const noexcept { return data_.word.size == kInBlock; }
  std::string_view text() const noexcept {
    return ownsMemory() || isInBlock()
               ? std::string_view(data_.word.as.longString, data_.word.length)
               : std::string_view(data_.brief.text, data_.brief.size);
  }
  // Whether two keys have the same text.
  bool sameText(const JSON& other) const noexcept {
    // The first half has the length and, of a short text, its beginning. (Keys are never in a
    // block, which it would tell as well.)
    if (firstHalf() != other.firstHalf()) return false;
    return text() == other.text();
  }
  std::uint64_t firstHalf() const noexcept {
    std::uint64_t half = 0;
    std::memcpy(&half, &data_, sizeof half);
    return half;
  }
  void setShortString(std::string_view value) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
      // In registers: to copy a number of bytes that is not known in advance takes much longer.
      const PartialWords text = loadPartialWords(value.data(), value.size());
      const auto kind = static_cast<std::uint64_t>(Kind::string);
      setHalves(kind | value.size() << 8 | text.low << 16, text.low >> 48 | text.high << 16);
    } else {
      data_.brief = {
          .kind = Kind::string, .size = static_cast<std::uint8_t>(value.size()), .text = {}};
      std::memcpy(data_.brief.text, value.data(), value.size());
    }
  }
  void setHalves(std::uint64_t first, std::uint64_t second) noexcept {
    char* const bytes = reinterpret_cast<char*>(&data_);
    std::memcpy(bytes, &first, sizeof first);
    std::memcpy(bytes + sizeof first, &second, sizeof second);
  }
  void setLongString(std::string_view value);
  // Makes this, which owns nothing, what `other` is, and `other` a null.
  void takeFrom(JSON& other) noexcept {
    if (other.kind() == Kind::object) {
      std::construct_at(&object_, std::move(other.object_));
      other.endObject();
      return;
    }
    if (other.isInBlock()) {
      setLongString(other.text());
    } else {
      data_ = other.data_;
    }
    other.data_ = Data{};
  }
  // Makes an object a null.
  void endObject() noexcept {
    std::destroy_at(&object_);
    std::construct_at(&data_);
  }
  void copyFrom(const JSON& other);
  void copyShallow(const JSON& other);
  void destroy() noexcept;
  void takeApart() noexcept;
  void freeMemory() noexcept;
  bool isDeep() const noexcept;
  static bool equalShallow(const JSON& a, const JSON& b) noexcept;

  // The values of an array or object; others have none.
  std::size_t childCount() const noexcept;
  JSON& child(std::size_t index) const noexcept;
  void dropLastChild() noexcept;

  union {
    Data data_ = {};
    ObjectWord object_;  // Kind::object
  };
};

// The key is a string value: sixteen bytes, and no allocation for the usual short ones.
struct JSONObject::Entry {
  explicit Entry(JSON&& theKey) noexcept : key(std::move(theKey)) {}
  Entry(JSON&& theKey, JSON&& theValue) noexcept
      : key(std::move(theKey)), value(std::move(theValue)) {}
  JSON key;
  JSON value;
  std::string_view name() const noexcept { return key.text(); }
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

inline JSONObject::Entry* JSONObject::entries() const noexcept {
  return block_ == nullptr ? nullptr
                           : std::launder(reinterpret_cast<Entry*>(block_ + sizeof(Header)));
}
inline std::span<JSONObject::Entry> JSONObject::members() const noexcept {
  return {entries(), size()};
}
inline JSONObject::ConstIterator JSONObject::begin() const noexcept {
  return ConstIterator(entries());
}
inline JSONObject::ConstIterator JSONObject::end() const noexcept {
  return ConstIterator(entries() + size());
}
inline JSONObject::Iterator JSONObject::begin() noexcept { return Iterator(entries()); }
inline JSONObject::Iterator JSONObject::end() noexcept { return Iterator(entries() + size()); }

}  // namespace velta
