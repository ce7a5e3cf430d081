// FakeService: the web service on 127.0.0.1, with the meetings that a test gives it, and a data
// home whose key and base lead there.
//
//   FakeService service;
//   service.serve({webMeetingText(1), webMeetingText(2, R"("rev": "b")")});
//   service.answer([](const auto& request) { ... });  // instead of the service, where it answers
//   EXPECT_EQ(service.downloads().size(), 1U);
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "config/Config.h"
#include "json/JSON.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "support/LoopbackServer.h"
#include "support/TemporaryFolder.h"

namespace velta::test {

// A connection key: the prefix and 43 characters.
inline const std::string kTestKey = "velta_pat_0123456789abcdefghijABCDEFGHIJklmnopqrst_-x";

inline std::string uuidOf(std::size_t number) {
  const std::string digits = std::to_string(number);
  return "00000000-0000-4000-8000-" + std::string(12 - digits.size(), '0') + digits;
}

// A web meeting as the service sends it; `more` holds further members.
inline std::string webMeetingText(std::size_t number, const std::string& more = R"("rev": "1")") {
  const std::string name = std::to_string(number);
  return R"({"id": ")" + uuidOf(number) + R"(", )" + more + R"(, "title": "Meeting )" + name +
         R"(", "transcript": [{"t_start": 1, "speaker": "A", "text": "line )" + name + R"("}]})";
}

// The meetings with the numbers `first` to `last`.
inline std::vector<std::string> webMeetingTexts(std::size_t first, std::size_t last,
                                                const std::string& more = R"("rev": "1")") {
  std::vector<std::string> texts;
  for (std::size_t number = first; number <= last; ++number)
    texts.push_back(webMeetingText(number, more));
  return texts;
}

class FakeService {
 public:
  using Request = LoopbackServer::Request;
  using Reply = LoopbackServer::Reply;
  using Instead = std::function<std::optional<Reply>(const Request&)>;

  // Replaces the meetings.
  void serve(const std::vector<std::string>& texts) {
    std::vector<JSONObject> meetings;
    for (const std::string& text : texts) meetings.push_back(*parseJSON(text).asObject());
    const std::lock_guard lock(mutex_);
    meetings_ = std::move(meetings);
  }

  // Replaces what is asked first; an empty function leaves every answer to the service.
  void answer(Instead instead) {
    const std::lock_guard lock(mutex_);
    instead_ = std::move(instead);
  }

  // Answers every request with `status`.
  void refuse(int status) {
    answer([status](const Request&) { return Reply{.status = status}; });
  }

  std::string origin() const { return server_.origin(); }
  const LoopbackServer& server() const { return server_; }
  std::vector<Request> requests() const { return server_.requests(); }
  void forgetRequests() { server_.forgetRequests(); }

  // The requests for a page of the list, and those for meetings.
  std::vector<Request> listings() const { return requestsWith("offset"); }
  std::vector<Request> downloads() const { return requestsWith("ids"); }

  // How many ids each download asked for.
  std::vector<std::size_t> downloadSizes() const {
    std::vector<std::size_t> sizes;
    for (const Request& request : downloads()) sizes.push_back(idsOf(request).size());
    return sizes;
  }

  static std::vector<std::string> idsOf(const Request& request) {
    std::vector<std::string> ids;
    std::string text = request.query.at("ids");
    for (std::size_t comma = 0; (comma = text.find(',')) != std::string::npos;) {
      ids.push_back(text.substr(0, comma));
      text.erase(0, comma + 1);
    }
    ids.push_back(text);
    return ids;
  }

  // The answer that holds these meetings.
  static Reply listOf(JSON::Array meetings) {
    JSONObject answer;
    answer.set("meetings", std::move(meetings));
    return {.status = 200, .body = writeCompact(answer)};
  }

 private:
  std::vector<Request> requestsWith(const std::string& name) const {
    std::vector<Request> found = requests();
    std::erase_if(found, [&name](const Request& r) { return !r.query.contains(name); });
    return found;
  }

  Reply replyTo(const Request& request) {
    const std::lock_guard lock(mutex_);
    if (instead_) {
      if (auto reply = instead_(request)) return *std::move(reply);
    }
    if (request.path != "/api/mcp/meetings") return {.status = 404};
    return request.query.contains("ids") ? download(request) : page(request);
  }

  Reply page(const Request& request) const {
    const std::size_t begin = std::min(numberOf(request, "offset"), meetings_.size());
    const std::size_t end = std::min(begin + numberOf(request, "limit"), meetings_.size());
    JSON::Array page;
    for (std::size_t at = begin; at < end; ++at) {
      JSONObject listed = meetings_[at];
      listed.erase("transcript");
      page.emplace_back(std::move(listed));
    }
    return listOf(std::move(page));
  }

  Reply download(const Request& request) const {
    const std::vector<std::string> asked = idsOf(request);
    const std::unordered_set<std::string> wanted(asked.begin(), asked.end());
    JSON::Array found;
    for (const JSONObject& meeting : meetings_) {
      if (wanted.contains(std::string(meeting.getString("id").value_or(""))))
        found.emplace_back(meeting);
    }
    return listOf(std::move(found));
  }

  static std::size_t numberOf(const Request& request, const std::string& name) {
    return std::strtoul(request.query.at(name).c_str(), nullptr, 10);
  }

  std::mutex mutex_;  // held to use the next two: the server has threads of its own
  std::vector<JSONObject> meetings_;
  Instead instead_;
  // The last member: it goes first, and its threads with it.
  LoopbackServer server_{[this](const Request& request) { return replyTo(request); }};
};

// A data home with the key in the environment and the service at `origin`.
class CloudHome {
 public:
  explicit CloudHome(const std::string& origin)
      : config{folder.path(),
               {{"HOME", folder.path()}, {"VELTA_TOKEN", kTestKey}, {"VELTA_API_BASE", origin}}} {}

  TemporaryFolder folder;
  Config config;
};

}  // namespace velta::test
