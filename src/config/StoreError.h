// StoreError: a failure that the caller of a tool reads. message() is the whole message; what()
// ends at a NUL byte, which a quoted argument may hold.
#pragma once

#include <stdexcept>
#include <string>

namespace velta {

class StoreError : public std::runtime_error {
 public:
  enum class Kind {
    index,   // the index is missing or empty
    lookup,  // no such meeting for this caller
    value,   // the arguments cannot be served
  };

  static StoreError index(const std::string& message) { return {Kind::index, message}; }
  static StoreError lookup(const std::string& message) { return {Kind::lookup, message}; }
  static StoreError value(const std::string& message) { return {Kind::value, message}; }

  Kind kind() const noexcept { return kind_; }
  const std::string& message() const noexcept { return message_; }

 private:
  StoreError(Kind kind, const std::string& message)
      : std::runtime_error(message), kind_(kind), message_(message) {}

  Kind kind_;
  std::string message_;
};

}  // namespace velta
