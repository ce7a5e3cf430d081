#include "cloud/Cloud.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <unordered_set>

#include "cloud/ConnectionKey.h"
#include "config/BuildConstants.h"
#include "json/JSONParser.h"
#include "meetings/TextNorm.h"
#include "platform/Curl.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::string_view kMeetingsPath = "/api/mcp/meetings";
constexpr std::size_t kPageSize = 500;
constexpr std::size_t kMaxPages = 20;
constexpr std::size_t kQuotedBytes = 60;     // of an answer that is no JSON
constexpr std::size_t kRefusalBytes = 4000;  // of the body of a refusal that are looked at
constexpr std::size_t kCauseLength = 200;    // characters of its "cause" that are looked at

constexpr std::string_view kExpired =
    "the connection key expired: it was created with an expiry on the web page 連接 AI. ";
constexpr std::string_view kRefused =
    "the connection key was refused: it was revoked on the web or never existed. ";
constexpr std::string_view kNoRoute =
    "this Velta server has no /api/mcp route yet. Next step: deploy the Worker (web/), then try "
    "again";
constexpr std::string_view kTooManyCalls =
    "too many calls in a minute. Next step: wait a minute; local meetings still answer";
constexpr std::string_view kNotSetUp =
    "the server is not set up for connection keys. Next step: run "
    "web/supabase/migrations/2026-10-14-mcp-tokens.sql in Supabase";
constexpr std::string_view kOffline =
    "). Most likely this Mac is offline. Next step: check the network; local meetings still answer "
    "and web meetings come back on the next call";

std::string refusingToSend(const std::string& base) {
  return "refusing to send the connection key to " + visibleOnOneLine(repairUTF8(base)) +
         ": use https. Next step: fix VELTA_API_BASE or cloud.base in mcp-config.json";
}

// Where the user or the build says that the service is.
std::string configuredBase(const Config& config) {
  const auto variable = config.env.find("VELTA_API_BASE");
  if (variable != config.env.end() && !variable->second.empty()) return variable->second;
  const JSONObject file = config.loadConfigFile(/*writeDefault=*/false);
  const JSONObject* cloud = file.getObject("cloud");
  const auto base = cloud != nullptr ? cloud->getString("base") : std::nullopt;
  return std::string(base && !base->empty() ? *base : kServiceOrigin);
}

bool mayHaveKey(const URLParts& url) {
  if (url.hasUser) return false;
  if (url.scheme == "https") return true;
  return url.scheme == "http" && (url.host == "127.0.0.1" || url.host == "localhost");
}

bool isUnreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

// A query value as a URL holds it (RFC 3986, section 3.4): ids stay readable, joined with ",".
std::string percentEncoded(std::string_view text) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    if (isUnreserved(c) || c == ',') {
      encoded += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded.append({'%', kHex[byte >> 4U], kHex[byte & 15U]});
  }
  return encoded;
}

std::string withQuery(std::string url, const Cloud::Query& query) {
  char separator = '?';
  for (const auto& [name, value] : query) {
    url += separator + percentEncoded(name) + "=" + percentEncoded(value);
    separator = '&';
  }
  return url;
}

// Whether a refusal says that the key expired, and not that it is unknown.
bool saysExpired(std::string_view body) {
  try {
    const JSON answer = parseJSON(body.substr(0, kRefusalBytes));
    const JSONObject* object = answer.asObject();
    const auto given = object != nullptr ? object->getString("cause") : std::nullopt;
    if (!given) return false;
    std::string cause(firstCharacters(*given, kCauseLength));
    std::ranges::replace(cause, '\n', ' ');
    return lowerASCII(cause).find("expired") != std::string::npos;
  } catch (const JSONParseError&) {
    return false;
  }
}

CloudError webError(std::string_view kind, const std::string& text) {
  return {kind, "web meetings: " + text};
}

CloudError errorOfStatus(const HTTPResponse& answer) {
  switch (answer.status) {
    case 401:
      return webError("auth", std::string(saysExpired(answer.body) ? kExpired : kRefused) +
                                  std::string(kCreateKey));
    case 404:
      return webError("setup", std::string(kNoRoute));
    case 429:
      return webError("busy", std::string(kTooManyCalls));
    case 503:
      return webError("setup", std::string(kNotSetUp));
    default:
      return webError("server", "server error HTTP " + std::to_string(answer.status) +
                                    ". Next step: try again later; local meetings still answer");
  }
}

// The object of an answer that lists meetings. Throws CloudError.
JSONObject meetingsAnswer(const std::string& url, const std::string& body) {
  std::optional<JSON> parsed;
  try {
    parsed = parseJSON(body);
  } catch (const JSONParseError&) {
    throw webError("server", url + " did not answer JSON (first bytes '" +
                                 firstBytesAsText(body, kQuotedBytes) + "')");
  }
  JSONObject* object = parsed->asObject();
  if (object == nullptr || object->getArray("meetings") == nullptr)
    throw webError("server", url + " answered without a meetings list");
  return std::move(*object);
}

// The objects among the meetings of an answer, moved out of it.
std::vector<JSONObject> takeMeetings(JSONObject& answer) {
  std::vector<JSONObject> meetings;
  JSON::Array* elements = answer.get("meetings")->asArray();
  for (JSON& element : *elements) {
    if (JSONObject* meeting = element.asObject()) meetings.push_back(std::move(*meeting));
  }
  return meetings;
}

// The id of a meeting in lower case; absent when it is not well-formed.
std::optional<std::string> idOf(const JSONObject& meeting) {
  const auto id = meeting.getString("id");
  if (!id || !uuidPattern().matches(lowerASCII(*id))) return std::nullopt;
  return lowerASCII(*id);
}

std::string joined(const std::vector<std::string>& ids) {
  std::string text;
  for (const std::string& id : ids) text += (text.empty() ? "" : ",") + id;
  return text;
}

}  // namespace

std::string userAgent() { return "velta-mcp/0.2 (" + std::string(kUserAgentTag) + ")"; }

std::string withoutFinalSlashes(std::string origin) {
  while (origin.ends_with('/')) origin.pop_back();
  return origin;
}

std::string firstBytesAsText(std::string_view body, std::size_t count) {
  std::size_t end = std::min(count, body.size());
  // Back to a place between two characters, when the cut is inside one.
  for (int back = 0; end < body.size() && end > 0 && back < 3; ++back) {
    if ((static_cast<unsigned char>(body[end]) & 0xC0U) != 0x80U) break;
    --end;
  }
  return visibleOnOneLine(repairUTF8(body.substr(0, end)), " ");
}

std::string Cloud::baseURL() const {
  std::string base = withoutFinalSlashes(configuredBase(config_));
  try {
    const auto parts = parseURL(base);
    if (parts && mayHaveKey(*parts)) return base;
  } catch (const Curl::Error& error) {
    throw CloudError("setup", error.what());
  }
  throw CloudError("setup", refusingToSend(base));
}

std::string Cloud::bodyOf(const std::string& url, const std::string& key) const {
  HTTPResponse answer;
  try {
    answer = fetcher_.get({.url = url,
                           .headers = {{"Authorization", "Bearer " + key},
                                       {"Accept", "application/json"},
                                       {"User-Agent", userAgent()},
                                       {"X-Velta-Locale", "en"}}});
  } catch (const TransportError& error) {
    throw webError("offline",
                   "could not reach " + url + " (" + error.what() + std::string(kOffline));
  }
  if (answer.status < 200 || answer.status > 299) throw errorOfStatus(answer);
  return std::move(answer.body);
}

JSONObject Cloud::request(const std::string& key, const std::string& path,
                          const Query& query) const {
  try {
    const std::string url = withQuery(baseURL() + path, query);
    return meetingsAnswer(url, bodyOf(url, key));
  } catch (const CloudError& error) {
    // Whatever a message quotes, it does not show the key.
    throw CloudError(error.kind(), withoutKey(error.what(), key));
  }
}

std::vector<JSONObject> Cloud::fetchAll(const std::string& key, const Progress& progress) const {
  std::vector<JSONObject> all;
  std::unordered_set<std::string> seen;
  for (std::size_t page = 0; page < kMaxPages; ++page) {
    JSONObject answer = request(
        key, std::string(kMeetingsPath),
        {{"limit", std::to_string(kPageSize)}, {"offset", std::to_string(page * kPageSize)}});
    const std::size_t entries = answer.getArray("meetings")->size();
    for (JSONObject& meeting : takeMeetings(answer)) {
      const auto id = idOf(meeting);
      if (!id || !seen.insert(*id).second) continue;
      meeting.set("id", *id);
      all.push_back(std::move(meeting));
    }
    if (progress) progress("web meetings: " + std::to_string(all.size()) + " listed");
    if (entries < kPageSize) break;
  }
  return all;
}

std::vector<JSONObject> Cloud::fetchByIds(const std::string& key,
                                          const std::vector<std::string>& ids) const {
  std::vector<JSONObject> meetings;
  for (std::size_t begin = 0; begin < ids.size(); begin += kBatch) {
    const auto first = ids.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = first + static_cast<std::ptrdiff_t>(std::min(kBatch, ids.size() - begin));
    JSONObject answer = request(key, std::string(kMeetingsPath), {{"ids", joined({first, last})}});
    for (JSONObject& meeting : takeMeetings(answer)) meetings.push_back(std::move(meeting));
  }
  return meetings;
}

}  // namespace velta
