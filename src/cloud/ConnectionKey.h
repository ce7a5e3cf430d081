// ConnectionKey: the user's personal key for the web service: "velta_pat_" and 43 characters.
//
// It stands in VELTA_TOKEN or in the file "cloud-token" of the data home, which only the user may
// read. Nothing is kept between calls; the key is never part of a message.
#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "config/Config.h"

namespace velta {

struct ConnectionKey {
  std::string key;
  std::string source;  // where it came from: "env VELTA_TOKEN" or the path of the key file
};

// Why there is no usable key.
struct NoKey {
  std::string reason;     // for the user; names the next step where there is one
  bool isAbsent = false;  // there is none at all, neither good nor bad
};

// What to do to get a key; messages about keys end in it.
inline constexpr std::string_view kCreateKey =
    "Next step: create a key on the web page 連接 AI and run `velta-mcp connect` (the binary "
    "inside "
    "Velta.app, see mcp/README.md)";

// Whether all of `text` has the form of a key.
bool isConnectionKey(std::string_view text);

// Path of the key file.
std::string keyFile(const Config& config);

// The key that counts now: that of the environment when that says anything, else that of the file.
// A file that other users can read is not read.
std::variant<ConnectionKey, NoKey> loadKey(const Config& config);

// Writes the key file atomically, readable by the user only from its first instant on. Throws
// std::system_error.
void saveKey(const Config& config, const std::string& key);

// Removes what a `saveKey` left that was cut off: a key in a temporary file.
void removeUnfinishedKeys(const Config& config);

// `text` with all of `key`, and every piece of it of eight or more characters, replaced by "***".
std::string withoutKey(std::string_view text, std::string_view key);

}  // namespace velta
