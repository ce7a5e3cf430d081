#include "admin/AdminStats.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string_view>
#include <utility>

#include "admin/EmailGuard.h"
#include "cloud/Cloud.h"
#include "cloud/ConnectionKey.h"
#include "config/BuildConstants.h"
#include "config/StoreError.h"
#include "json/JSONParser.h"
#include "json/JSONWalk.h"
#include "platform/Process.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::string_view kVariable = "VELTA_ADMIN_AGENT_TOKEN";
constexpr std::string_view kPath = "/api/admin/agent/stats?days=";
constexpr std::chrono::seconds kTimeout(30);
constexpr std::int64_t kUsualDays = 30;
constexpr std::int64_t kFewestDays = 7;
constexpr std::int64_t kMostDays = 90;
constexpr std::size_t kQuotedBytes = 60;  // of an answer that is no JSON object

constexpr std::string_view kTokenRefused =
    "the token was refused. Next step: check that the Keychain item velta-admin-agent holds the "
    "same value as the Worker secret ADMIN_AGENT_TOKEN";
constexpr std::string_view kNoRoute =
    "the Worker has no ADMIN_AGENT_TOKEN, or this deploy has no agent route yet. Next step: npx "
    "wrangler secret put ADMIN_AGENT_TOKEN in web/, then deploy";
constexpr std::string_view kTooManyCalls =
    "more than 30 calls in a minute. Next step: wait a minute";
constexpr std::string_view kNotSetUp =
    "the server is not set up for admin data (service key or the admin SQL). Next step: "
    "web/README.md steps 6p to 6v";
constexpr std::string_view kOther = "server error, try again later";
constexpr std::string_view kHoldsAddress =
    "Refused: the server answer holds a full email address; only masked emails may reach an agent. "
    "Next step: report this, the Worker's agentUsers check was bypassed";

std::string noToken(const std::string& source) {
  return "No admin agent token (" + source +
         "). Next step: Arlo stores it once with `security add-generic-password -s "
         "velta-admin-agent -a velta -w` (web/README.md step 6w)";
}

std::string_view causeOf(int status) {
  switch (status) {
    case 401:
      return kTokenRefused;
    case 404:
      return kNoRoute;
    case 429:
      return kTooManyCalls;
    case 503:
      return kNotSetUp;
    default:
      return kOther;
  }
}

// The text with its "\uXXXX" turned into characters, wherever they stand: what is no JSON may hold
// an address in that form all the same.
std::string withEscapesDecoded(std::string_view text) {
  std::string decoded;
  while (!text.empty()) {
    const std::size_t escape = text.find("\\u");
    decoded += text.substr(0, escape);
    if (escape == std::string_view::npos) break;
    text.remove_prefix(escape);
    try {
      const JSON character = parseJSON("\"" + std::string(text.substr(0, 6)) + "\"");
      decoded += *character.asString();
      text.remove_prefix(6);
    } catch (const JSONParseError&) {
      decoded += text.front();
      text.remove_prefix(1);
    }
  }
  return decoded;
}

// The object that `body` holds; absent for everything else.
std::optional<JSONObject> objectIn(const std::string& body) {
  try {
    JSON value = parseJSON(body);
    if (JSONObject* object = value.asObject()) return std::move(*object);
  } catch (const JSONParseError&) {
    return std::nullopt;
  }
  return std::nullopt;
}

// The figures in an answer, once it is certain that nobody's address is among them.
JSONObject guarded(const std::string& url, const std::string& body, const std::string& token) {
  auto object = objectIn(body);
  if (holdsEmailAddress(body) ||
      (object ? holdsEmailAddress(*object) : holdsEmailAddress(withEscapesDecoded(body))))
    throw StoreError::value(std::string(kHoldsAddress));
  if (!object)
    throw StoreError::value("Velta admin stats: " + url + " did not answer JSON (first bytes: '" +
                            withoutKey(firstBytesAsText(body, kQuotedBytes), token) + "')");
  dropUnwritableNumbers(*object);
  return *std::move(object);
}

}  // namespace

AdminStats::AdminStats(const Environment& environment, HTTPFetcher& fetcher, Keychain keychain)
    : environment_(environment), fetcher_(fetcher), keychain_(std::move(keychain)) {}

AdminStats::Token AdminStats::token() const {
  const auto variable = environment_.find(std::string(kVariable));
  if (variable != environment_.end()) {
    const std::string_view text = trimWhiteSpace(variable->second);
    if (!text.empty()) return {std::string(text), "env " + std::string(kVariable)};
  }
  if (auto stored = keychain_()) return {std::move(stored), "Keychain velta-admin-agent"};
  return {std::nullopt, "no Keychain item velta-admin-agent"};
}

JSONObject AdminStats::stats(std::int64_t days) const {
  const Token token = this->token();
  if (!token.text) throw StoreError::value(noToken(token.source));
  const std::string url = urlFor(days);
  return guarded(url, bodyOf(url, *token.text), *token.text);
}

std::string AdminStats::urlFor(std::int64_t days) const {
  const auto variable = environment_.find("VELTA_API_BASE");
  const bool given = variable != environment_.end() && !variable->second.empty();
  const std::int64_t asked = days == 0 ? kUsualDays : std::clamp(days, kFewestDays, kMostDays);
  return withoutFinalSlashes(given ? variable->second : std::string(kServiceOrigin)) +
         std::string(kPath) + std::to_string(asked);
}

std::string AdminStats::bodyOf(const std::string& url, const std::string& token) const {
  HTTPResponse answer;
  try {
    answer = fetcher_.get({.url = url,
                           .headers = {{"Authorization", "Bearer " + token},
                                       {"Accept", "application/json"},
                                       {"X-Velta-Locale", "en"},
                                       {"User-Agent", userAgent()}},
                           .timeout = kTimeout});
  } catch (const TransportError& error) {
    throw StoreError::value("Could not reach " + url + " (" + withoutKey(error.what(), token) +
                            "). Next step: check the network, then retry");
  }
  fetcher_.endSession();
  if (answer.status < 200 || answer.status > 299)
    throw StoreError::value("Velta admin stats HTTP " + std::to_string(answer.status) + ": " +
                            std::string(causeOf(answer.status)));
  return std::move(answer.body);
}

std::optional<std::string> AdminStats::keychainToken() {
  const auto output = outputOfProgram({"/usr/bin/security", "find-generic-password", "-s",
                                       "velta-admin-agent", "-a", "velta", "-w"});
  if (!output) return std::nullopt;
  const std::string text = repairUTF8(*output);
  const std::string_view token = trimWhiteSpace(text);
  return token.empty() ? std::nullopt : std::optional<std::string>(token);
}

}  // namespace velta
