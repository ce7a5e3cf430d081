// CannedFetcher: a web service that gives the answers it was given, and goes nowhere.
#pragma once

#include <cstddef>
#include <string>

#include "cloud/HTTPFetcher.h"

namespace velta::fuzz {

struct CannedFetcher : HTTPFetcher {
  HTTPResponse get(const URLRequest& request) override {
    const bool isDownload = request.url.find("ids=") != std::string::npos;
    if (isDownload) ++downloads;
    const HTTPResponse& answer = isDownload ? download : listing;
    if (answer.status == 0) throw TransportError("Could not connect");
    return answer;
  }

  HTTPResponse listing;   // to all but downloads; status 0: the transfer fails
  HTTPResponse download;  // to requests for meetings by their ids
  std::size_t downloads = 0;
};

}  // namespace velta::fuzz
