// Curl: GET requests over HTTP and HTTPS through libcurl, which is loaded when it is first needed:
// linked, it would cost every start a few milliseconds, also of users without a connection key.
//
// Always so: certificates and host names are verified, redirects are not followed, only http and
// https are spoken, and a user in the URL is refused.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace velta {

// The parts of a URL that say where a request goes. The scheme is in lower case.
struct URLParts {
  std::string scheme;
  std::string host;
  bool hasUser = false;  // "user@" or "user:password@"
};

// The parts of an absolute URL; absent when `url` is none. Throws Curl::Error when libcurl cannot
// be loaded.
std::optional<URLParts> parseURL(const std::string& url);

// A handle of libcurl. It keeps the connection of the last request open for the next one to the
// same host. One thread at a time.
class Curl {
 public:
  // A transfer that did not come to its end; what() is libcurl's description.
  class Error : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
  };

  struct Request {
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers;  // names and values
    std::chrono::seconds patience{10};  // to connect, and without any progress after that
    std::chrono::seconds whole{120};    // for all of it
    std::size_t maxBytes = 0;           // of the body, unpacked
    bool viaProxy = true;               // follow the proxy variables of the environment
    std::string extraCertificates;      // PEM; trusted besides the system's
  };

  struct Response {
    int status = 0;
    std::string body;
  };

  Curl();
  ~Curl();
  Curl(Curl&&) noexcept;
  Curl& operator=(Curl&&) noexcept;
  Curl(const Curl&) = delete;
  Curl& operator=(const Curl&) = delete;

  // The answer, whatever its status. Throws Error.
  Response get(const Request& request);

  // Closes the connection that is kept.
  void closeConnections();

 private:
  struct Handle;
  std::unique_ptr<Handle> handle_;  // null until the first request
};

}  // namespace velta
