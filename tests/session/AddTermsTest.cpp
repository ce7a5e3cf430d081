// add_term against the real program: several servers over one data home, and data homes in which
// nothing can be saved.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "session/Calls.h"
#include "support/DataHome.h"
#include "support/ServerProcess.h"

namespace velta {
namespace {

using test::DataHome;
using test::onHome;
using test::ServerProcess;
using test::toolCall;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string kTermsNextStep =
    ". Nothing was changed. Next step: make the folder and the file writable for this user, then "
    "call add_term again";

std::string callOf(const std::string& arguments) { return toolCall("add_term", arguments); }

std::string callOf(const std::string& wrong, const std::string& right) {
  return callOf(R"({"wrong":")" + wrong + R"(","right":")" + right + R"("})");
}

void allow(const DataHome& home) {
  home.write("agents.json", R"({"agents":{"claude-code":{"tools":{"add_terms":true}}}})");
}

// The object under "result" of an answer.
JSONObject resultOf(const std::string& answer) {
  return *parseJSON(answer).asObject()->getObject("result");
}

// What a call that must fail tells.
std::string failureOf(const std::string& answer) {
  const JSONObject result = resultOf(answer);
  EXPECT_EQ(result.getBool("isError"), true) << answer;
  return std::string(*result.getArray("content")->at(0).asObject()->getString("text"));
}

JSON dictionaryOf(const DataHome& home) { return parseJSON(home.read("dictionary.json")); }

// How often each wrong text stands in the dictionary.
std::map<std::string, int> wrongTexts(const DataHome& home) {
  std::map<std::string, int> counts;
  const JSON dictionary = dictionaryOf(home);
  for (const JSON& term : *dictionary.asObject()->getArray("terms"))
    ++counts[std::string(*term.asObject()->getString("wrong"))];
  return counts;
}

// Reads the dictionary again and again, as the pipeline may at any moment.
class Reader {
 public:
  explicit Reader(const DataHome& home) : home_(home), thread_([this] { readOn(); }) {}
  ~Reader() { stop(); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  void stop() {
    stopped_ = true;
    if (thread_.joinable()) thread_.join();
  }

  // Once stopped: readings that parsed, and those that did not or had fewer terms than the one
  // before them.
  int whole() const { return whole_; }
  const std::vector<std::string>& broken() const { return broken_; }

 private:
  void readOn() {
    while (!stopped_) {
      if (home_.has("dictionary.json")) readOnce();
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }

  void readOnce() {
    const std::string text = home_.read("dictionary.json");
    try {
      const JSON value = parseJSON(text);
      const JSON::Array* terms = value.asObject()->getArray("terms");
      if (terms == nullptr || terms->size() < terms_) broken_.push_back(text);
      if (terms != nullptr) terms_ = terms->size();
      ++whole_;
    } catch (const JSONParseError& error) {
      broken_.push_back(error.what() + (": " + text));
    }
  }

  const DataHome& home_;
  std::size_t terms_ = 0;
  int whole_ = 0;
  std::vector<std::string> broken_;
  std::atomic<bool> stopped_ = false;
  std::thread thread_;  // the last: it uses the others
};

TEST(AddTerms, EightServersAtOnceLoseNoTermAndTheFileIsAlwaysWhole) {
  constexpr std::size_t kServers = 8;
  constexpr std::size_t kTerms = 50;
  const DataHome home;
  allow(home);
  std::vector<std::unique_ptr<ServerProcess>> servers;
  servers.reserve(kServers);
  for (std::size_t i = 0; i < kServers; ++i)
    servers.push_back(std::make_unique<ServerProcess>(onHome(home)));
  Reader reader(home);
  for (std::size_t i = 0; i < kServers; ++i) {
    std::string calls;
    for (std::size_t k = 0; k < kTerms; ++k)
      calls += callOf("wrong-" + std::to_string(i) + "-" + std::to_string(k), "對") + "\n";
    ASSERT_TRUE(servers[i]->write(calls));
  }

  std::vector<std::int64_t> counts;  // what the answers say about the number of terms
  for (const auto& server : servers) {
    for (std::size_t k = 0; k < kTerms; ++k) {
      const auto answer = server->readLine();
      ASSERT_TRUE(answer);
      const JSONObject result = resultOf(*answer);
      ASSERT_EQ(result.getBool("isError"), false) << *answer;
      const JSONObject& saved = *result.getObject("structuredContent");
      EXPECT_EQ(saved.getBool("created"), true);
      counts.push_back(saved.getInt("dictionary_terms").value());
    }
    EXPECT_EQ(server->finish().status, 0);
  }
  reader.stop();

  // One after the other, each saw what all before it had added.
  std::vector<std::int64_t> oneToAll(kServers * kTerms);
  std::iota(oneToAll.begin(), oneToAll.end(), 1);
  std::sort(counts.begin(), counts.end());
  EXPECT_EQ(counts, oneToAll);

  std::map<std::string, int> expected;
  for (std::size_t i = 0; i < kServers; ++i) {
    for (std::size_t k = 0; k < kTerms; ++k)
      expected["wrong-" + std::to_string(i) + "-" + std::to_string(k)] = 1;
  }
  EXPECT_EQ(wrongTexts(home), expected);
  EXPECT_THAT(reader.broken(), IsEmpty());
  EXPECT_GT(reader.whole(), 10) << "the file was hardly looked at";
  for (const std::string& name : home.names())
    EXPECT_THAT(name, Not(HasSubstr(".tmp"))) << "a temporary file stays";
}

TEST(AddTerms, ServerThatIsKilledWhileItAddsLeavesAWholeFileAndNoLock) {
  const DataHome home;
  allow(home);
  std::string calls;
  for (int k = 0; k < 200; ++k) calls += callOf("wrong-" + std::to_string(k), "對") + "\n";
  {
    ServerProcess killed(onHome(home));
    ASSERT_TRUE(killed.write(calls));
    for (int k = 0; k < 20; ++k) ASSERT_TRUE(killed.readLine());
  }  // killed here, in the middle of its work
  const std::size_t before = wrongTexts(home).size();
  EXPECT_GE(before, 20U);
  ServerProcess next(onHome(home));
  EXPECT_EQ(resultOf(next.ask(callOf("another", "對")))
                .getObject("structuredContent")
                ->getInt("dictionary_terms"),
            static_cast<std::int64_t>(before + 1));
}

TEST(AddTerms, SameTermTwiceIsCreatedOnceAndThenChanged) {
  const DataHome home;
  allow(home);
  ServerProcess server(onHome(home));
  const JSONObject first = resultOf(server.ask(callOf(R"({"wrong":" 蝶沙 ","right":"碟煞"})")));
  EXPECT_EQ(writeCompact(*first.get("structuredContent")),
            R"({"saved":true,"created":true,"term":{"right":"碟煞","wrong":"蝶沙","tier":"hint"},)"
            R"("dictionary_terms":1,"note":"Applies to the next processed meeting; existing )"
            R"(meetings are not rewritten"})");
  const JSONObject second =
      resultOf(server.ask(callOf(R"({"wrong":"蝶沙","right":"蝶煞","tier":"auto"})")));
  EXPECT_EQ(second.getObject("structuredContent")->getBool("created"), false);
  EXPECT_EQ(second.getObject("structuredContent")->getInt("dictionary_terms"), 1);
  EXPECT_EQ(home.read("dictionary.json").find("碟煞"), std::string::npos);
}

TEST(AddTerms, IsDeniedWithoutThePermissionAndWritesNothing) {
  const DataHome home;
  ServerProcess server(onHome(home));
  EXPECT_EQ(failureOf(server.ask(callOf("a", "b"))),
            "add_term is turned off for agent 'claude-code': it needs the permission add_terms "
            "(Add words to your word list). Next step: ask the user to turn it on for this agent "
            "in Velta settings (agents.json at " +
                home.file("agents.json") + "); do not retry until they do");
  EXPECT_FALSE(home.has("dictionary.json"));
  EXPECT_THAT(home.lines("activity.jsonl").back(), HasSubstr(R"("status":"denied")"));
}

TEST(AddTerms, ArgumentsAreCheckedBeforeAnythingIsWritten) {
  const DataHome home;
  allow(home);
  ServerProcess server(onHome(home));
  const std::pair<std::string, std::string> cases[] = {
      {"{}", "argument wrong is required"},
      {R"({"wrong":"a","right":null})", "argument right is required"},
      {R"({"wrong":5,"right":"b"})", "argument wrong must be a string, got 5"},
      {R"({"wrong":"a","right":"b","tier":[]})", "argument tier must be a string, got []"},
      {R"({"wrong":"a","right":"b","tier":"Auto"})", "tier must be auto or hint, got 'Auto'"},
      {R"({"wrong":"　","right":"b"})",
       "both wrong and right are required, for example wrong 蝶沙, right 碟煞"},
      {R"({"wrong":"a","right":" a"})", "wrong and right are the same text, nothing to correct"},
      {R"({"wrong":"OK","right":"b","tier":"auto"})",
       "Refused as auto: 'OK' is English of two letters or fewer. Names and very short strings may "
       "only be hints. Next step: call add_term again with tier hint"},
  };
  for (const auto& [arguments, message] : cases)
    EXPECT_EQ(failureOf(server.ask(callOf(arguments))),
              "Error executing tool add_term: " + message);
  EXPECT_FALSE(home.has("dictionary.json"));
}

// --- what cannot be saved

TEST(AddTerms, FileThatTheSystemRefusesToWriteIsNamedWithTheCauseAndKept) {
  const DataHome home;
  allow(home);
  const std::string old = R"({"self_name":"Arlo","terms":[{"wrong":"old","right":"kept"}]})";
  home.write("dictionary.json", old);
  // A limit of zero bytes a file stands for a full disk.
  ServerProcess::Options options = onHome(home);
  options.program = "/bin/sh";
  options.arguments = {"-c", "trap '' XFSZ; ulimit -f 0; exec \"$0\" --client claude-code",
                       VELTA_BINARY};
  ServerProcess server(options);
  EXPECT_EQ(failureOf(server.ask(callOf("new", "term"))),
            "Error executing tool add_term: could not save " + home.file("dictionary.json") +
                ": File too large" + kTermsNextStep);
  EXPECT_EQ(home.read("dictionary.json"), old);
  for (const std::string& name : home.names())
    EXPECT_THAT(name, Not(HasSubstr(".tmp"))) << "a temporary file stays";
  // It is still there for other questions.
  EXPECT_THAT(server.ask(R"({"jsonrpc":"2.0","id":2,"method":"ping"})"),
              HasSubstr("\"result\":{}"));
}

TEST(AddTerms, DirectoryInPlaceOfTheDictionaryIsNamedAndKept) {
  const DataHome home;
  allow(home);
  home.write("dictionary.json/kept", "content");
  ServerProcess server(onHome(home));
  EXPECT_EQ(failureOf(server.ask(callOf("new", "term"))),
            "Error executing tool add_term: could not save " + home.file("dictionary.json") +
                ": Is a directory" + kTermsNextStep);
  EXPECT_EQ(home.read("dictionary.json/kept"), "content");
}

TEST(AddTerms, FileInPlaceOfTheDataHomeIsNamedAndKept) {
  const DataHome home;
  allow(home);
  home.write("no-folder", "content");
  ServerProcess::Options options = onHome(home);
  options.environment["MEETING_NOTES_HOME"] = home.file("no-folder");
  options.environment["MEETING_MCP_AGENTS"] = home.file("agents.json");
  ServerProcess server(options);
  EXPECT_EQ(failureOf(server.ask(callOf("new", "term"))),
            "Error executing tool add_term: could not save " +
                home.file("no-folder/dictionary.json") + ": Not a directory" + kTermsNextStep);
  EXPECT_EQ(home.read("no-folder"), "content");
}

TEST(AddTerms, FolderThatMayNotBeWrittenIsNamedWithTheCauseAndKept) {
  if (::geteuid() == 0) GTEST_SKIP() << "root may write everywhere";
  const DataHome home;
  allow(home);
  home.write("dictionary.json", R"({"terms":[]})");
  ASSERT_EQ(::chmod(home.path().c_str(), 0555), 0);
  ServerProcess server(onHome(home));
  const std::string answer = server.ask(callOf("new", "term"));
  ASSERT_EQ(::chmod(home.path().c_str(), 0755), 0);
  EXPECT_EQ(failureOf(answer), "Error executing tool add_term: could not save " +
                                   home.file("dictionary.json") + ": Permission denied" +
                                   kTermsNextStep);
  EXPECT_EQ(home.read("dictionary.json"), R"({"terms":[]})");
}

}  // namespace
}  // namespace velta
