#include "cloud/URLSessionFetcher.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <system_error>
#include <utility>

#include "platform/Files.h"

namespace velta {
namespace {

constexpr std::chrono::seconds kWholeTransfer(120);
constexpr std::size_t kMaxBody = std::size_t{256} << 20U;  // bytes

// Whether `url` names this computer itself, which no proxy has to do with.
bool isLoopback(const std::string& url) {
  const auto parts = parseURL(url);
  return parts &&
         (parts->host == "localhost" || parts->host == "127.0.0.1" || parts->host == "[::1]");
}

std::string certificatesIn(const std::string& file) {
  if (file.empty()) return "";
  try {
    return readFile(file);
  } catch (const std::system_error& error) {
    throw TransportError("cannot read SSL_CERT_FILE " + file + ": " + error.code().message());
  }
}

std::string valueOr(const Environment& environment, const std::string& name) {
  const auto found = environment.find(name);
  return found == environment.end() ? "" : found->second;
}

}  // namespace

URLSessionFetcher::URLSessionFetcher(const Environment& environment)
    : certificateFile_(valueOr(environment, "SSL_CERT_FILE")) {}

HTTPResponse URLSessionFetcher::get(const URLRequest& request) {
  try {
    Curl::Response response = curl_.get({.url = request.url,
                                         .headers = request.headers,
                                         .patience = request.timeout,
                                         .whole = kWholeTransfer,
                                         .maxBytes = kMaxBody,
                                         .viaProxy = !isLoopback(request.url),
                                         .extraCertificates = certificatesIn(certificateFile_)});
    return {response.status, std::move(response.body)};
  } catch (const Curl::Error& error) {
    throw TransportError(error.what());
  }
}

void URLSessionFetcher::endSession() { curl_.closeConnections(); }

}  // namespace velta
