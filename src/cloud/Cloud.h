// Cloud: the web service as its client sees it: the list of the user's web meetings and the
// meetings themselves. Nothing is kept here; the cache is in WebMeetings.
//
// The key is sent only to an https origin or to this computer itself, and never in a URL.
#pragma once

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cloud/HTTPFetcher.h"
#include "config/Config.h"
#include "json/JSON.h"

namespace velta {

// A request that brought nothing usable; what() is the whole message and holds no key.
class CloudError : public std::runtime_error {
 public:
  // `kind`: "setup" (program or service are not set up), "auth" (the key was refused), "busy" (too
  // many calls), "server" (a bad status or answer) or "offline" (the transfer failed).
  CloudError(std::string_view kind, const std::string& message)
      : std::runtime_error(message), kind_(kind) {}

  const std::string& kind() const { return kind_; }

 private:
  std::string kind_;
};

// The User-Agent of every request to the web service.
std::string userAgent();

// `origin` without the "/" at its end.
std::string withoutFinalSlashes(std::string origin);

// At most the first `count` bytes of an answer as one line of text: no half character, control
// characters as blanks.
std::string firstBytesAsText(std::string_view body, std::size_t count);

class Cloud {
 public:
  using Query = std::vector<std::pair<std::string, std::string>>;  // names and values
  using Progress = std::function<void(const std::string&)>;  // takes what to show; may be empty

  // Most meetings that one download asks for.
  static constexpr std::size_t kBatch = 50;

  // Both must outlive this.
  Cloud(const Config& config, HTTPFetcher& fetcher) : config_(config), fetcher_(fetcher) {}

  const Config& config() const { return config_; }

  // The origin of the web service, without "/" at its end: VELTA_API_BASE, else "base" of the
  // configuration's "cloud", else the built-in one. Throws CloudError when the key must not be sent
  // there.
  std::string baseURL() const;

  // The JSON object that one GET answers; it has an array "meetings". Throws CloudError.
  JSONObject request(const std::string& key, const std::string& path, const Query& query) const;

  // The list of all web meetings, as the service describes them, each id once, in lower case.
  // Throws CloudError.
  std::vector<JSONObject> fetchAll(const std::string& key, const Progress& progress = {}) const;

  // The meetings with these ids, as the service has them; not all need come back, nor in order.
  // Throws CloudError.
  std::vector<JSONObject> fetchByIds(const std::string& key,
                                     const std::vector<std::string>& ids) const;

  // No request follows for a while.
  void endSession() const { fetcher_.endSession(); }

 private:
  // The body that a GET of `url` answers with a status of success. Throws CloudError.
  std::string bodyOf(const std::string& url, const std::string& key) const;

  const Config& config_;
  HTTPFetcher& fetcher_;
};

}  // namespace velta
