#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "cloud/CloudCommand.h"
#include "cloud/FakeService.h"
#include "cloud/URLSessionFetcher.h"

namespace velta {
namespace {

using test::FakeService;
using test::kTestKey;
using test::webMeetingTexts;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Reply = FakeService::Reply;
using Request = FakeService::Request;

const std::string kOtherKey = "velta_pat_" + std::string(43, 'Z');
const std::string kRefused =
    "web meetings: the connection key was refused: it was revoked on the web or never existed. "
    "Next "
    "step: create a key on the web page 連接 AI and run `velta-mcp connect` (the binary inside "
    "Velta.app, see mcp/README.md)";
const std::string kNotAKey =
    "That is not a Velta connection key (it starts with velta_pat_). Nothing saved. Copy it again "
    "from 連接 AI";
constexpr const char* kKeyName = "cloud-token";
constexpr const char* kCacheName = "velta-mcp-cloud-cache.json";

// Every test ends with a look at what was printed: no line holds the key.
class CloudCommand : public testing::Test {
 protected:
  struct Outcome {
    int status = -1;
    std::vector<std::string> lines;
  };

  Outcome run(const std::string& action,
              const std::function<std::optional<std::string>()>& askForKey) {
    Outcome outcome;
    outcome.status = cloudCommand(action, askForKey, cloud_,
                                  [&](const std::string& line) { outcome.lines.push_back(line); });
    for (const std::string& line : outcome.lines) {
      EXPECT_THAT(line, Not(HasSubstr("0123456789abcdefghij")));
      EXPECT_THAT(line, Not(HasSubstr("\n")));
    }
    return outcome;
  }

  Outcome connect(const std::string& text) {
    return run("connect", [&text] { return std::optional(text); });
  }

  // Of an action that asks for no key.
  Outcome run(const std::string& action) {
    return run(action, [] {
      ADD_FAILURE() << "asked for a key";
      return std::nullopt;
    });
  }

  void writeKeyFile(const std::string& content) {
    folder_.write(kKeyName, content);
    ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
  }

  std::string url() const { return service_.origin() + "/api/mcp/meetings?limit=500&offset=0"; }

  FakeService service_;
  TemporaryFolder folder_;
  Config config_{folder_.path(), {{"HOME", folder_.path()}, {"VELTA_API_BASE", service_.origin()}}};
  std::string path_ = folder_.file(kKeyName);
  URLSessionFetcher fetcher_{config_.env};
  const Cloud cloud_{config_, fetcher_};
};

TEST_F(CloudCommand, ConnectSavesAKeyThatWorks) {
  service_.serve(webMeetingTexts(1, 3));
  const Outcome outcome = connect(kTestKey);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.lines,
              ElementsAre("Saved to " + path_ +
                              " (only you can read it). Web meetings found: 3. Restart your AI app "
                              "so the MCP picks it up",
                          "CLOUD_CONNECTED meetings=3"));
  EXPECT_EQ(folder_.read(kKeyName), kTestKey + "\n");
  struct stat info = {};
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0600U);
  EXPECT_THAT(folder_.names(), ElementsAre(kKeyName));
}

TEST_F(CloudCommand, ConnectAsksTheServiceWithTheNewKey) {
  writeKeyFile(kOtherKey + "\n");
  config_.env["VELTA_TOKEN"] = kOtherKey;
  EXPECT_EQ(connect(kTestKey).status, 0);
  ASSERT_EQ(service_.requests().size(), 1U);
  EXPECT_EQ(service_.requests().front().header("authorization"), "Bearer " + kTestKey);
  EXPECT_EQ(folder_.read(kKeyName), kTestKey + "\n");
}

TEST_F(CloudCommand, ConnectCountsAllPages) {
  service_.serve(webMeetingTexts(1, 501));
  EXPECT_EQ(connect(kTestKey).lines.back(), "CLOUD_CONNECTED meetings=501");
}

TEST_F(CloudCommand, ConnectWithoutAnyMeetingWorks) {
  const Outcome outcome = connect(kTestKey);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.lines.back(), "CLOUD_CONNECTED meetings=0");
}

TEST_F(CloudCommand, ConnectTrimsWhatWasPasted) {
  for (const std::string& pasted :
       {kTestKey + "\n", "  " + kTestKey + "  ", "\t" + kTestKey + "\r\n\n", "\u3000" + kTestKey}) {
    EXPECT_EQ(connect(pasted).status, 0);
    EXPECT_EQ(folder_.read(kKeyName), kTestKey + "\n");
    std::filesystem::remove(path_);
  }
}

TEST_F(CloudCommand, ConnectRefusesWhatIsNoKeyBeforeAnyRequest) {
  for (const std::string& text :
       {std::string(), std::string("\n"), std::string("hello"), kTestKey.substr(0, 52),
        kTestKey + "a", kTestKey.substr(0, 52) + ".", kTestKey.substr(0, 52) + "+",
        kTestKey + "\n" + kTestKey, "\"" + kTestKey + "\"", kTestKey.substr(10)}) {
    const Outcome outcome = connect(text);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.lines, ElementsAre(kNotAKey));
  }
  EXPECT_THAT(service_.requests(), IsEmpty());
  EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(CloudCommand, ConnectWithoutAnAnswerIsNoKey) {
  const Outcome outcome = run("connect", [] { return std::nullopt; });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.lines, ElementsAre(kNotAKey));
}

TEST_F(CloudCommand, AKeyThatTheServiceRefusesNeverReachesTheDisk) {
  service_.refuse(401);
  const Outcome outcome = connect(kTestKey);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.lines, ElementsAre("Not saved: " + kRefused));
  EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(CloudCommand, ARefusedKeyLeavesTheOldOne) {
  writeKeyFile(kOtherKey + "\n");
  service_.refuse(401);
  EXPECT_EQ(connect(kTestKey).status, 1);
  EXPECT_EQ(folder_.read(kKeyName), kOtherKey + "\n");
}

TEST_F(CloudCommand, NothingIsSavedWhateverFails) {
  const std::vector<Reply> replies = {
      {.status = 302, .headers = {{"Location", service_.origin() + "/"}}},
      {.status = 403},
      {.status = 404},
      {.status = 429},
      {.status = 500},
      {.status = 503},
      {.body = "<html>"},
      {.body = "[]"},
      {.body = "{}", .claimedLength = 99},
      {.raw = ""}};
  for (const Reply& reply : replies) {
    service_.answer([&reply](const Request&) { return reply; });
    const Outcome outcome = connect(kTestKey);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.lines, ElementsAre(StartsWith("Not saved: web meetings: ")));
    EXPECT_THAT(folder_.names(), IsEmpty());
  }
}

TEST_F(CloudCommand, NothingIsSavedWhenALaterPageFails) {
  service_.serve(webMeetingTexts(1, 600));
  service_.answer([](const Request& request) -> std::optional<Reply> {
    if (request.query.at("offset") == "500") return Reply{.status = 429};
    return std::nullopt;
  });
  EXPECT_EQ(connect(kTestKey).status, 1);
  EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(CloudCommand, ConnectRefusesABadBaseBeforeAnyRequest) {
  config_.env["VELTA_API_BASE"] = "http://evil.example/";
  const Outcome outcome = connect(kTestKey);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.lines,
              ElementsAre("Not saved: refusing to send the connection key to http://evil.example: "
                          "use https. Next step: fix VELTA_API_BASE or cloud.base in "
                          "mcp-config.json"));
  EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(CloudCommand, AServiceThatEchoesTheKeyDoesNotGetItPrinted) {
  service_.answer([](const Request& request) {
    return Reply{.body = "you sent " + request.header("authorization")};
  });
  EXPECT_THAT(connect(kTestKey).lines, ElementsAre(HasSubstr("'you sent Bearer ***'")));
  writeKeyFile(kTestKey);
  EXPECT_THAT(run("status").lines, ElementsAre(HasSubstr("'you sent Bearer ***'")));
}

TEST_F(CloudCommand, AHomeThatCannotBeWrittenIsTold) {
  folder_.write("plain", "");
  config_.home = folder_.file("plain/home");
  const Outcome outcome = connect(kTestKey);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.lines,
              ElementsAre("Not saved: could not write " + folder_.file("plain/home/cloud-token") +
                          ": " + std::generic_category().message(ENOTDIR)));
}

TEST_F(CloudCommand, ConnectCreatesTheDataHome) {
  config_.home = folder_.file("new/home");
  EXPECT_EQ(connect(kTestKey).status, 0);
  EXPECT_EQ(folder_.read("new/home/cloud-token"), kTestKey + "\n");
}

TEST_F(CloudCommand, ConnectAndStatusWorkWhenWebMeetingsAreTurnedOff) {
  folder_.write("mcp-config.json", R"({"cloud": {"enabled": false}})");
  service_.serve(webMeetingTexts(1, 2));
  EXPECT_EQ(connect(kTestKey).status, 0);
  EXPECT_EQ(run("status").status, 0);
}

TEST_F(CloudCommand, StatusCountsTheMeetingsAndNamesTheFile) {
  writeKeyFile(kTestKey + "\n");
  service_.serve(webMeetingTexts(1, 502));
  const Outcome outcome = run("status");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.lines, ElementsAre("Connected (key from " + path_ + "). Web meetings: 502"));
  EXPECT_EQ(service_.requests().front().header("authorization"), "Bearer " + kTestKey);
}

TEST_F(CloudCommand, StatusNamesTheVariable) {
  writeKeyFile(kOtherKey + "\n");
  config_.env["VELTA_TOKEN"] = " " + kTestKey + "\n";
  const Outcome outcome = run("status");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.lines, ElementsAre("Connected (key from env VELTA_TOKEN). Web meetings: 0"));
  EXPECT_EQ(service_.requests().front().header("authorization"), "Bearer " + kTestKey);
}

TEST_F(CloudCommand, StatusWithoutKeyIsNotConnected) {
  const Outcome outcome = run("status");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.lines, ElementsAre("Not connected: not connected"));
  EXPECT_THAT(service_.requests(), IsEmpty());
  EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(CloudCommand, StatusOfALooseKeyFileSaysHowToRepairIt) {
  writeKeyFile(kTestKey);
  ASSERT_EQ(::chmod(path_.c_str(), 0644), 0);
  const Outcome outcome = run("status");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.lines,
              ElementsAre("Not connected: " + path_ +
                          " can be read by other users of this Mac, so it is not used. Next step: "
                          "run `chmod 600 '" +
                          path_ + "'`, or run `velta-mcp connect` again"));
  EXPECT_THAT(service_.requests(), IsEmpty());
}

TEST_F(CloudCommand, StatusOfAKeyThatDoesNotWorkNamesItsSource) {
  writeKeyFile(kTestKey);
  service_.refuse(401);
  const Outcome outcome = run("status");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.lines, ElementsAre("Key from " + path_ + ", but: " + kRefused));
  EXPECT_EQ(folder_.read(kKeyName), kTestKey);
}

TEST_F(CloudCommand, StatusWritesNothing) {
  config_.env["VELTA_TOKEN"] = kTestKey;
  service_.serve(webMeetingTexts(1, 2));
  EXPECT_EQ(run("status").status, 0);
  EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(CloudCommand, DisconnectForgetsKeyAndCache) {
  writeKeyFile(kTestKey);
  folder_.write(kCacheName, "{}");
  folder_.write(".cloud-token.1", kOtherKey);  // of a connect that was cut off
  folder_.write("mcp-config.json", "{}");
  const Outcome outcome = run("disconnect");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.lines, ElementsAre("Deleted " + path_ +
                                         ". Also press 撤銷 on 連接 AI so the key stops working "
                                         "everywhere"));
  EXPECT_THAT(folder_.names(), ElementsAre("mcp-config.json"));
  EXPECT_THAT(service_.requests(), IsEmpty());
}

TEST_F(CloudCommand, DisconnectWithoutAKeyFileLeavesTheCache) {
  folder_.write(kCacheName, "{}");
  const Outcome outcome = run("disconnect");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.lines, ElementsAre("No saved key on this Mac"));
  EXPECT_THAT(folder_.names(), ElementsAre(kCacheName));
}

TEST_F(CloudCommand, DisconnectTwiceHasNothingLeftToDelete) {
  writeKeyFile(kTestKey);
  run("disconnect");
  EXPECT_THAT(run("disconnect").lines, ElementsAre("No saved key on this Mac"));
}

TEST_F(CloudCommand, DisconnectRemovesABadKeyFileAsWell) {
  writeKeyFile("no key");
  ASSERT_EQ(::chmod(path_.c_str(), 0644), 0);
  EXPECT_EQ(run("disconnect").status, 0);
  EXPECT_FALSE(folder_.has(kKeyName));
}

TEST_F(CloudCommand, DisconnectIgnoresWhatCannotBeRemoved) {
  folder_.makeFolder(std::string(kKeyName) + "/full");
  folder_.makeFolder(std::string(kCacheName) + "/full");
  const Outcome outcome = run("disconnect");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.lines, ElementsAre(StartsWith("Deleted " + path_ + ". ")));
}

TEST_F(CloudCommand, OnlyConnectAsksForAKey) {
  run("status");
  run("disconnect");
}

TEST_F(CloudCommand, StatusOfflineSaysSo) {
  config_.env["VELTA_TOKEN"] = kTestKey;
  service_.answer([](const Request&) { return Reply{.raw = ""}; });
  const Outcome outcome = run("status");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.lines,
              ElementsAre(StartsWith(
                  "Key from env VELTA_TOKEN, but: web meetings: could not reach " + url() + " (")));
}

}  // namespace
}  // namespace velta
