// The owner's figures, from the built program to a web service on loopback.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/DataHome.h"
#include "support/LoopbackServer.h"
#include "support/ServerProcess.h"

namespace velta {
namespace {

using test::DataHome;
using test::LoopbackServer;
using test::ServerProcess;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kToken = "an-admin-token-of-the-owner";
constexpr std::string_view kCall =
    R"({"id":1,"method":"tools/call","params":{"name":"velta_admin_stats","arguments":{"days":14}}})";

class AdminSession : public testing::Test {
 protected:
  std::string body_ = R"({"signups":12,"users":["a***@example.com"]})";
  LoopbackServer service_{
      [this](const LoopbackServer::Request&) { return LoopbackServer::Reply{.body = body_}; }};
  DataHome home_;
  std::vector<std::string> arguments_ = {"--client", "claude-code", "--no-reindex",
                                         "--admin-stats"};

  std::string answerTo(std::string_view line) {
    auto environment = home_.environment();
    environment["VELTA_API_BASE"] = service_.origin();
    environment["VELTA_ADMIN_AGENT_TOKEN"] = kToken;
    ServerProcess server({.arguments = arguments_, .environment = environment});
    std::string answer = server.ask(line);
    errors_ = server.finish().errors;
    return answer;
  }

  std::string errors_;
};

TEST_F(AdminSession, FiguresComeAsTextAndAsStructuredContent) {
  EXPECT_EQ(answerTo(kCall),
            R"({"jsonrpc":"2.0","id":1,"result":{"content":[{"text":"{\n  \"signups\": 12,\n)"
            R"(  \"users\": [\n    \"a***@example.com\"\n  ]\n}","type":"text"}],)"
            R"("isError":false,"structuredContent":{"signups":12,"users":["a***@example.com"]}}})");
  ASSERT_EQ(service_.requests().size(), 1U);
  EXPECT_EQ(service_.requests().front().target, "/api/admin/agent/stats?days=14");
  EXPECT_EQ(service_.requests().front().header("authorization"), "Bearer " + std::string(kToken));
}

TEST_F(AdminSession, CallWithoutDaysAsksForThirty) {
  answerTo(R"({"id":1,"method":"tools/call","params":{"name":"velta_admin_stats"}})");
  ASSERT_EQ(service_.requests().size(), 1U);
  EXPECT_EQ(service_.requests().front().target, "/api/admin/agent/stats?days=30");
}

TEST_F(AdminSession, AnswerWithAFullAddressIsRefused) {
  body_ = R"({"users":["arlo\uff20example.com"]})";
  const std::string answer = answerTo(kCall);
  EXPECT_THAT(answer, HasSubstr("Error executing tool velta_admin_stats: Refused: the server"));
  EXPECT_THAT(answer, HasSubstr("\"isError\":true"));
  EXPECT_THAT(answer, Not(HasSubstr("example.com")));
}

TEST_F(AdminSession, ToolIsListedLast) {
  const std::string list = answerTo(R"({"id":1,"method":"tools/list"})");
  EXPECT_GT(list.rfind(R"("name":"velta_admin_stats")"),
            list.rfind(R"("name":"search_transcripts")"));
}

TEST_F(AdminSession, WithoutTheOptionNothingIsListedNorSent) {
  arguments_.pop_back();
  EXPECT_THAT(answerTo(R"({"id":1,"method":"tools/list"})"), Not(HasSubstr("velta_admin_stats")));
  EXPECT_THAT(answerTo(kCall), HasSubstr("is not enabled on this server"));
  EXPECT_TRUE(service_.requests().empty());
}

TEST_F(AdminSession, TokenStandsNowhere) {
  body_ = "you sent " + std::string(kToken);
  EXPECT_THAT(answerTo(kCall), Not(HasSubstr(std::string(kToken))));
  EXPECT_THAT(errors_, Not(HasSubstr(std::string(kToken))));
  for (const std::string& line : home_.lines("activity.jsonl"))
    EXPECT_THAT(line, Not(HasSubstr(std::string(kToken))));
}

}  // namespace
}  // namespace velta
