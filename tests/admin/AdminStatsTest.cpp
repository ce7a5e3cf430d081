#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "admin/AdminStats.h"
#include "cloud/URLSessionFetcher.h"
#include "config/BuildConstants.h"
#include "config/StoreError.h"
#include "json/JSONWriter.h"
#include "support/LoopbackServer.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

using test::LoopbackServer;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// The statistics of a service that answers as the test says.
class Stats : public testing::Test {
 protected:
  LoopbackServer::Reply reply_{.body = R"({"users":3})"};
  LoopbackServer server_{[this](const LoopbackServer::Request&) { return reply_; }};
  Environment environment_{{"VELTA_API_BASE", server_.origin()},
                           {"VELTA_ADMIN_AGENT_TOKEN", "secret-admin-token"}};
  std::optional<std::string> stored_;  // what the keychain holds
  int keychainCalls_ = 0;
  URLSessionFetcher fetcher_{environment_};

  AdminStats admin() {
    return {environment_, fetcher_, [this] {
              ++keychainCalls_;
              return stored_;
            }};
  }

  std::string answer(std::int64_t days = 0) { return writeCompact(admin().stats(days)); }

  std::string failure() {
    try {
      return "answered: " + answer();
    } catch (const StoreError& error) {
      EXPECT_EQ(error.kind(), StoreError::Kind::value);
      return error.message();
    }
  }

  std::string url() const { return server_.origin() + "/api/admin/agent/stats?days=30"; }
};

TEST_F(Stats, AnswerIsHandedOnAsItIs) {
  reply_.body = R"( {"z":1,"a":[1.5,null,"a***@example.com"],"n":{}} )";
  EXPECT_EQ(answer(), R"({"z":1,"a":[1.5,null,"a***@example.com"],"n":{}})");
}

TEST_F(Stats, NumberThatCannotBeWrittenIsNull) {
  reply_.body = R"({"a":1e400})";
  EXPECT_EQ(answer(), R"({"a":null})");
}

TEST_F(Stats, DaysAreThirtyUnlessGivenAndKeptBetweenSevenAndNinety) {
  const std::vector<std::pair<std::int64_t, std::string>> cases = {
      {0, "30"}, {3, "7"},   {365, "90"}, {7, "7"},          {90, "90"},      {-5, "7"},
      {8, "8"},  {91, "90"}, {1, "7"},    {INT64_MAX, "90"}, {INT64_MIN, "7"}};
  for (const auto& [asked, sent] : cases) {
    server_.forgetRequests();
    answer(asked);
    ASSERT_EQ(server_.requests().size(), 1U);
    EXPECT_EQ(server_.requests().front().target, "/api/admin/agent/stats?days=" + sent) << asked;
  }
}

TEST_F(Stats, RequestCarriesTokenAndHeaders) {
  answer();
  const auto request = server_.requests().front();
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.header("authorization"), "Bearer secret-admin-token");
  EXPECT_EQ(request.header("accept"), "application/json");
  EXPECT_EQ(request.header("x-velta-locale"), "en");
  EXPECT_EQ(request.header("user-agent"), "velta-mcp/0.2 (cpp)");
}

TEST_F(Stats, SlashesAtTheEndOfTheBaseAreRemoved) {
  environment_["VELTA_API_BASE"] = server_.origin() + "///";
  answer();
  EXPECT_EQ(server_.requests().front().path, "/api/admin/agent/stats");
}

TEST_F(Stats, TokenOfTheEnvironmentIsTrimmedAndWins) {
  environment_["VELTA_ADMIN_AGENT_TOKEN"] = " \n token\t";
  const auto token = admin().token();
  EXPECT_EQ(token.text, "token");
  EXPECT_EQ(token.source, "env VELTA_ADMIN_AGENT_TOKEN");
  EXPECT_EQ(keychainCalls_, 0);
}

TEST_F(Stats, KeychainIsAskedWhenTheEnvironmentSaysNothing) {
  stored_ = "stored";
  for (const std::string blank : {"", "   ", "\n"}) {
    environment_["VELTA_ADMIN_AGENT_TOKEN"] = blank;
    EXPECT_EQ(admin().token().text, "stored");
    EXPECT_EQ(admin().token().source, "Keychain velta-admin-agent");
  }
  environment_.erase("VELTA_ADMIN_AGENT_TOKEN");
  EXPECT_EQ(admin().token().text, "stored");
  answer();
  EXPECT_EQ(server_.requests().back().header("authorization"), "Bearer stored");
}

TEST_F(Stats, WithoutATokenNothingIsSent) {
  environment_.erase("VELTA_ADMIN_AGENT_TOKEN");
  EXPECT_EQ(failure(),
            "No admin agent token (no Keychain item velta-admin-agent). Next step: Arlo stores it "
            "once with `security add-generic-password -s velta-admin-agent -a velta -w` "
            "(web/README.md step 6w)");
  EXPECT_TRUE(server_.requests().empty());
}

TEST_F(Stats, EveryStatusHasItsText) {
  const std::vector<std::pair<int, std::string>> cases = {
      {401,
       "the token was refused. Next step: check that the Keychain item velta-admin-agent holds the "
       "same value as the Worker secret ADMIN_AGENT_TOKEN"},
      {404,
       "the Worker has no ADMIN_AGENT_TOKEN, or this deploy has no agent route yet. Next step: npx "
       "wrangler secret put ADMIN_AGENT_TOKEN in web/, then deploy"},
      {429, "more than 30 calls in a minute. Next step: wait a minute"},
      {503,
       "the server is not set up for admin data (service key or the admin SQL). Next step: "
       "web/README.md steps 6p to 6v"},
      {403, "server error, try again later"},
      {500, "server error, try again later"},
      {302, "server error, try again later"}};
  for (const auto& [status, text] : cases) {
    reply_.status = status;
    reply_.body = "bob@example.com secret-admin-token";
    EXPECT_EQ(failure(), "Velta admin stats HTTP " + std::to_string(status) + ": " + text);
  }
}

TEST_F(Stats, FullAddressIsRefusedWhereverItStands) {
  const std::string refusal =
      "Refused: the server answer holds a full email address; only masked emails may reach an "
      "agent. Next step: report this, the Worker's agentUsers check was bypassed";
  for (const std::string body :
       {R"({"mail":"bob@example.io"})", R"({"mail":"bob＠example.com"})",
        R"({"mail":"bob﹫example.com"})", R"({"bob@example.com":1})",
        R"({"mail":"bob\u0040example.com"})", R"({"a":[[{"b":"b\u006fb\uFF20example.com"}]]})",
        R"({"a":1,"a":"bob@example.com","a":2})", "bob@example.com", "<p>bob@example.com</p>",
        R"(broken {"mail":"bob\u0040example.com")", R"(["bob@example.com"])",
        R"(["bob\ufe6bexample.com"])"}) {
    reply_.body = body;
    EXPECT_EQ(failure(), refusal) << body;
  }
}

TEST_F(Stats, WhatIsNoJSONObjectIsQuotedInPart) {
  reply_.body = "<!doctype html>\n<p>" + std::string(100, 'x');
  EXPECT_EQ(failure(), "Velta admin stats: " + url() +
                           " did not answer JSON (first bytes: '<!doctype html> <p>" +
                           std::string(41, 'x') + "')");
  for (const std::string body : {"", "[1]", "\"text\"", "7", "null", "{"}) {
    reply_.body = body;
    EXPECT_EQ(failure(),
              "Velta admin stats: " + url() + " did not answer JSON (first bytes: '" + body + "')");
  }
}

TEST_F(Stats, TokenIsNeverPartOfAMessage) {
  reply_.body = "you sent secret-admin-token";
  EXPECT_THAT(failure(), AllOf(HasSubstr("you sent ***'"), Not(HasSubstr("secret-admin"))));
  environment_["VELTA_ADMIN_AGENT_TOKEN"] = "short";
  reply_.body = "you sent short";
  EXPECT_THAT(failure(), HasSubstr("you sent ***'"));
}

TEST_F(Stats, FixedTextsStayWholeWhateverTheTokenIs) {
  for (const std::string token : {"velta-admin-agent-7f3a", "tok", "e"}) {
    environment_["VELTA_ADMIN_AGENT_TOKEN"] = token;
    reply_.status = 401;
    EXPECT_THAT(failure(), HasSubstr("the token was refused. Next step: check that the Keychain "
                                     "item velta-admin-agent holds the same value"));
  }
}

TEST_F(Stats, FailedTransferNamesTheURLAndTheCause) {
  reply_.raw = "nonsense";
  EXPECT_THAT(failure(), AllOf(StartsWith("Could not reach " + url() + " ("),
                               EndsWith("). Next step: check the network, then retry")));
  environment_["VELTA_API_BASE"] = "http://127.0.0.1:1";
  EXPECT_THAT(failure(), StartsWith("Could not reach http://127.0.0.1:1/api/admin/agent/stats"));
}

TEST_F(Stats, TokenWithALineBreakInsideIsNotSent) {
  environment_["VELTA_ADMIN_AGENT_TOKEN"] = "token\r\nX-Evil: 1";
  EXPECT_THAT(failure(), HasSubstr("a header value holds a line break"));
  EXPECT_TRUE(server_.requests().empty());
}

// Answers without any network, and keeps what it was asked.
class RecordingFetcher : public HTTPFetcher {
 public:
  HTTPResponse get(const URLRequest& request) override {
    asked.push_back(request);
    return {.status = 200, .body = "{}"};
  }

  std::vector<URLRequest> asked;
};

// The request that these variables lead to.
URLRequest requestWith(Environment environment) {
  environment["VELTA_ADMIN_AGENT_TOKEN"] = "token";
  RecordingFetcher fetcher;
  AdminStats(environment, fetcher, [] { return std::nullopt; }).stats(0);
  return fetcher.asked.at(0);
}

TEST(StatsRequest, GoesToTheServiceUnlessAnotherBaseIsGiven) {
  const std::string rest = "/api/admin/agent/stats?days=30";
  EXPECT_EQ(requestWith({}).url, std::string(kServiceOrigin) + rest);
  EXPECT_EQ(requestWith({{"VELTA_API_BASE", ""}}).url, std::string(kServiceOrigin) + rest);
  // Whatever its scheme.
  for (const std::string base : {"https://stats.example", "http://stats.example"})
    EXPECT_EQ(requestWith({{"VELTA_API_BASE", base + "/"}}).url, base + rest);
}

TEST(StatsRequest, HasThirtySecondsOfPatience) {
  EXPECT_EQ(requestWith({}).timeout, std::chrono::seconds(30));
}

TEST(Keychain, ThatThisComputerDoesNotHaveGivesNothing) {
#ifdef __APPLE__
  GTEST_SKIP() << "would ask the real keychain";
#endif
  EXPECT_EQ(AdminStats::keychainToken(), std::nullopt);
}

}  // namespace
}  // namespace velta
