// AdminStats: usage and revenue figures of the web service, for its owner.
//
// They are asked for with a token of their own and handed on as they come, except that an answer
// with a full e-mail address in it is refused: only masked ones may reach an agent. The token is
// never part of a message.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "cloud/HTTPFetcher.h"
#include "config/Config.h"
#include "json/JSON.h"

namespace velta {

class AdminStats {
 public:
  using Keychain = std::function<std::optional<std::string>()>;

  struct Token {
    std::optional<std::string> text;
    std::string source;  // where it came from, or where it was looked for
  };

  // `environment` and `fetcher` must outlive this. `keychain` gives the stored token, as far as
  // there is one.
  AdminStats(const Environment& environment, HTTPFetcher& fetcher, Keychain keychain);

  // The token that counts: VELTA_ADMIN_AGENT_TOKEN, else the keychain's.
  Token token() const;

  // The figures of the last `days` days: 0 stands for 30, anything else is kept between 7 and 90.
  // Throws StoreError.
  JSONObject stats(std::int64_t days) const;

  // What the keychain of this computer holds, read with its own program.
  static std::optional<std::string> keychainToken();

 private:
  std::string urlFor(std::int64_t days) const;
  std::string bodyOf(const std::string& url, const std::string& token) const;

  const Environment& environment_;
  HTTPFetcher& fetcher_;
  Keychain keychain_;
};

}  // namespace velta
