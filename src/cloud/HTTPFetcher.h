// HTTPFetcher: how the parts that talk to the web service send a request. Tests put their own in.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace velta {

// A GET request.
struct URLRequest {
  std::string url;
  std::vector<std::pair<std::string, std::string>> headers;  // names and values
  std::chrono::seconds timeout{10};  // to connect, and without any progress after that
};

struct HTTPResponse {
  int status = 0;
  std::string body;  // as bytes, unpacked
};

// A transfer that brought no whole answer; what() is the cause as the system describes it.
class TransportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class HTTPFetcher {
 public:
  HTTPFetcher() = default;
  virtual ~HTTPFetcher() = default;
  HTTPFetcher(const HTTPFetcher&) = delete;
  HTTPFetcher& operator=(const HTTPFetcher&) = delete;

  // The answer to `request`, whatever its status is. Throws TransportError.
  virtual HTTPResponse get(const URLRequest& request) = 0;

  // No request follows for a while: connections that were kept for it may go.
  virtual void endSession() {}
};

}  // namespace velta
