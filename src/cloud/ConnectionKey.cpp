#include "cloud/ConnectionKey.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <system_error>
#include <utility>

#include <unistd.h>

#include "platform/Files.h"
#include "platform/Regex.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::string_view kVariable = "VELTA_TOKEN";
constexpr std::string_view kFileName = "cloud-token";
constexpr std::string_view kTemporaryPrefix = ".cloud-token.";  // a process id follows
constexpr std::string_view kNotConnected = "not connected";
constexpr mode_t kKeyPermissions = 0600;
constexpr mode_t kOthers = 077;
constexpr std::size_t kTellingPiece = 8;  // characters of a key that must not be shown in a row

std::string notAKeyInEnvironment() {
  return "env VELTA_TOKEN is not a Velta connection key (velta_pat_ plus 43 characters). " +
         std::string(kCreateKey);
}

std::string readableByOthers(const std::string& path) {
  return path +
         " can be read by other users of this Mac, so it is not used. Next step: run `chmod 600 '" +
         path + "'`, or run `velta-mcp connect` again";
}

std::string notAKeyInFile(const std::string& path) {
  return path + " does not hold a Velta connection key. " + std::string(kCreateKey);
}

// What VELTA_TOKEN says, absent when it is not set or says nothing.
std::optional<std::string> keyTextOfEnvironment(const Config& config) {
  const auto variable = config.env.find(std::string(kVariable));
  if (variable == config.env.end()) return std::nullopt;
  const std::string_view text = trimWhiteSpace(variable->second);
  return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

std::optional<std::string> readText(const std::string& path) {
  try {
    std::string text = readFile(path);
    return isValidUTF8(text) ? std::optional(std::move(text)) : std::nullopt;
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

std::variant<ConnectionKey, NoKey> keyOfFile(const std::string& path) {
  const auto status = fileStatus(path);
  if (!status) return NoKey{std::string(kNotConnected), /*isAbsent=*/true};
  const std::string shown = repairUTF8(path);
  if ((status->permissions & kOthers) != 0) return NoKey{readableByOthers(shown)};
  const auto text = readText(path);
  if (!text) return NoKey{"cannot read " + shown};
  const std::string_view key = trimWhiteSpace(*text);
  if (!isConnectionKey(key)) return NoKey{notAKeyInFile(shown)};
  return ConnectionKey{std::string(key), shown};
}

// How many characters at `at` in `text` go on as some piece of `key` does.
std::size_t lengthOfPieceAt(std::string_view text, std::size_t at, std::string_view key) {
  std::size_t longest = 0;
  for (std::size_t from = 0; from < key.size(); ++from) {
    const auto end = std::mismatch(key.begin() + static_cast<std::ptrdiff_t>(from), key.end(),
                                   text.begin() + static_cast<std::ptrdiff_t>(at), text.end());
    longest = std::max(longest, static_cast<std::size_t>(end.first - key.begin()) - from);
  }
  return longest;
}

}  // namespace

bool isConnectionKey(std::string_view text) {
  static const Regex pattern("^velta_pat_[A-Za-z0-9_-]{43}$");
  return isValidUTF8(text) && pattern.matches(text);
}

std::string keyFile(const Config& config) { return joinPath(config.home, kFileName); }

std::variant<ConnectionKey, NoKey> loadKey(const Config& config) {
  const auto text = keyTextOfEnvironment(config);
  if (!text) return keyOfFile(keyFile(config));
  if (!isConnectionKey(*text)) return NoKey{notAKeyInEnvironment()};
  return ConnectionKey{*text, "env " + std::string(kVariable)};
}

void saveKey(const Config& config, const std::string& key) {
  removeUnfinishedKeys(config);
  const std::string temporary = std::string(kTemporaryPrefix) + std::to_string(::getpid());
  writeFileAtomically(keyFile(config), key + "\n", kKeyPermissions, temporary);
}

void removeUnfinishedKeys(const Config& config) {
  const std::string prefix = joinPath(config.home, kTemporaryPrefix);
  for (const std::string& path : globPaths(escapeForGlob(prefix) + "*")) removeFile(path);
}

std::string withoutKey(std::string_view text, std::string_view key) {
  std::string masked;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = lengthOfPieceAt(text, at, key);
    if (length >= std::min(kTellingPiece, key.size()) && length > 0) {
      masked += "***";
      at += length;
    } else {
      masked += text[at++];
    }
  }
  return masked;
}

}  // namespace velta
