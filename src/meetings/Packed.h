// Packed: a part of a meeting as compact JSON text, unpacked when somebody asks for it.
//
// What is written about a meeting is looked at seldom and is large as values: several times its
// text. Unpacking costs some microseconds.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace velta {

// `Value` is a type with two functions beside it: std::string packed(Value), and
// void unpackInto(std::string_view, Value&).
template <class Value>
class Packed {
 public:
  Packed() : Packed(Value()) {}
  Packed(Value value) : text_(packed(std::move(value))) { text_.shrink_to_fit(); }

  Value unpack() const {
    Value value;
    unpackInto(text_, value);
    return value;
  }

  // Of an object without members or a list without elements.
  bool empty() const { return text_.size() <= std::string_view("[]").size(); }

  // The compact JSON text, to be searched: a word that the value holds stands in it as it is,
  // unless it has a character that JSON escapes.
  std::string_view text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace velta
