// URLSessionFetcher: the HTTPFetcher that really goes out, over HTTP and HTTPS.
//
// Redirects are not followed, so that no key travels on; certificates are always verified, against
// the system's and those in the file that SSL_CERT_FILE names; the proxy variables count, except
// for hosts that are this computer; packed answers are unpacked; one connection is kept between
// requests. An answer larger than 256 MiB and a transfer longer than two minutes fail.
#pragma once

#include <string>

#include "cloud/HTTPFetcher.h"
#include "config/Config.h"
#include "platform/Curl.h"

namespace velta {

class URLSessionFetcher : public HTTPFetcher {
 public:
  explicit URLSessionFetcher(const Environment& environment);

  HTTPResponse get(const URLRequest& request) override;
  void endSession() override;

 private:
  std::string certificateFile_;  // of SSL_CERT_FILE; empty when unset
  Curl curl_;
};

}  // namespace velta
