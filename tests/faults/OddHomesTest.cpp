// Data homes at paths that patterns, shells and formats would take for something else: everything
// that the program reads and writes is found there, and nowhere else.

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "faults/Writes.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "support/LoopbackServer.h"
#include "support/ServerProcess.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using test::callOf;
using test::kKey;
using test::LoopbackServer;
using test::runProgram;
using test::ServerProcess;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testing::ValuesIn;

struct OddHome {
  std::string label;
  std::string path;        // below a folder of the test's own
  std::string decoy = "";  // another home that `path` as a pattern, or badly quoted, would mean
};

void PrintTo(const OddHome& home, std::ostream* out) { *out << home.label; }

// A path of more than `length` bytes.
std::string longPath(std::size_t length) {
  std::string path = std::string(200, 'x');
  while (path.size() < length) path += "/" + std::string(200, 'x');
  return path;
}

const std::vector<OddHome>& oddHomes() {
  static const std::vector<OddHome> all = {
      {"Blanks", " with  blanks ", "with blanks"},
      {"Chinese", "會議 記錄（押金）"},
      {"Brackets", "a[b]", "ab"},
      {"NegatedBrackets", "[!a]", "b"},
      {"OpenBracket", "a[b", "ab"},
      {"Star", "st*r", "stair"},
      {"StarAlone", "*", "x"},
      {"QuestionMark", "wh?t", "what"},
      {"Backslash", "back\\slash", "backslash"},
      {"BackslashAtTheEnd", "back\\", "back"},
      {"BackslashBeforeAStar", "\\*", "*"},
      {"Braces", "{a,b}", "a"},
      {"LeadingDash", "-leading", "leading"},
      {"Tilde", "~", "user"},
      {"Dots", "...", "x"},
      {"Hidden", ".hidden", "hidden"},
      {"LineFeed", "new\nline", "newline"},
      {"Quotes", "quote\"s'", "quotes"},
      {"Variable", "$HOME", "user"},
      {"Format", "100%s%n", "100"},
      {"FoldersOfThem", "a[b]/c*/d?/e\\/會", "ab/cc/dd/e/會"},
      {"Long", longPath(3600)},
  };
  return all;
}

class OddHomes : public testing::TestWithParam<OddHome> {
 protected:
  OddHomes() {
    makeHome(home_, "Own");
    if (!GetParam().decoy.empty()) makeHome(root_.file("place/" + GetParam().decoy), "Decoy");
    root_.write("checkout/pipeline/process_meeting.py", "");
    root_.write("Talk.mp3", "");
    environment_ = {{"MEETING_NOTES_HOME", home_},
                    {"HOME", root_.file("place/user")},
                    {"PATH", "/usr/bin:/bin"},
                    {"TZ", "Asia/Taipei"},
                    {"VELTA_REPO", root_.file("checkout")},
                    {"VELTA_PIPELINE_PYTHON", VELTA_SOURCE_DIR "/tests/support/stub-pipeline"},
                    {"ELEVENLABS_API_KEY", "key"}};
  }

  // Fills a home with a recording, and with permissions for everything.
  void makeHome(const std::string& home, const std::string& title) const {
    put(home, "recordings/one/notes.json", R"({"title":")" + title + R"("})");
    put(home, "agents.json",
        R"({"agents":{"owner":{"tools":{"search_meetings":true,"read_notes":true,)"
        R"("process_recordings":true,"add_terms":true}}}})");
  }

  void put(const std::string& home, const std::string& name, std::string_view bytes) const {
    root_.write(home.substr(root_.path().size() + 1) + "/" + name, bytes);
  }
  std::string read(const std::string& name) const {
    return root_.read(home_.substr(root_.path().size() + 1) + "/" + name);
  }
  bool has(const std::string& name) const { return fs::exists(home_ + "/" + name); }

  ServerProcess::Options options(std::vector<std::string> arguments = {"--client", "owner"}) const {
    return {.arguments = std::move(arguments), .environment = environment_};
  }

  // What a new server answers to one call.
  std::string call(std::string_view tool, std::string_view arguments = "{}") const {
    const auto ending = runProgram(options(), callOf(tool, arguments));
    EXPECT_EQ(ending.status, 0);
    EXPECT_THAT(ending.errors, Not(HasSubstr("could not")));
    return ending.output;
  }

  // Waits until the process that stands for the pipeline has ended. False when it does not in time.
  bool comesToItsEnd() const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline) {
      for (const auto& folder : fs::directory_iterator(home_ + "/recordings"))
        if (fs::exists(folder.path() / "stub.ended")) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }

  TemporaryFolder root_;
  const std::string home_ = root_.file("place/" + GetParam().path);
  std::map<std::string, std::string> environment_;
};

INSTANTIATE_TEST_SUITE_P(Faults, OddHomes, ValuesIn(oddHomes()),
                         [](const auto& one) { return one.param.label; });

TEST_P(OddHomes, DefaultSourceFindsItsMeetingsAndNoOthers) {
  for (const char* when : {"at the first start", "with the file that the first start wrote"}) {
    const std::string answer = call("list_meetings");
    EXPECT_THAT(answer, HasSubstr(R"("title":"Own")")) << when;
    EXPECT_THAT(answer, HasSubstr(R"("count":1)")) << when;
    EXPECT_TRUE(has("mcp-config.json")) << when;
  }
}

TEST_P(OddHomes, TermsAndTheActivityLogAreKeptThere) {
  EXPECT_THAT(call("add_term", R"({"wrong":"押筋","right":"押金"})"), HasSubstr(R"("saved":true)"));
  EXPECT_THAT(call("add_term", R"({"wrong":"押筋","right":"押金"})"),
              HasSubstr(R"("created":false)"));
  EXPECT_THAT(read("dictionary.json"), HasSubstr("押金"));
  EXPECT_THAT(read("activity.jsonl"), HasSubstr(R"("tool":"add_term")"));
}

TEST_P(OddHomes, RecordingBecomesAMeetingThere) {
  ServerProcess server(options());
  const auto ask = [&](std::string_view tool, const std::string& arguments) {
    std::string line = callOf(tool, arguments);
    line.pop_back();
    const JSON answer = parseJSON(server.ask(line));
    const JSONObject* result =
        answer.asObject()->getObject("result")->getObject("structuredContent");
    EXPECT_NE(result, nullptr) << writeCompact(answer);
    return result != nullptr ? *result : JSONObject();
  };
  const JSONObject started =
      ask("process_recording", R"({"path":")" + root_.file("Talk.mp3") + R"("})");
  const std::string id(started.getString("job_id").value_or(""));
  EXPECT_TRUE(has("jobs/" + id + ".json"));
  // At its end, so that nothing writes there any more when the folder goes.
  ASSERT_TRUE(comesToItsEnd());
  const JSONObject job = ask("get_job", R"({"id":")" + id + "\"}");
  EXPECT_EQ(job.getString("state"), "done") << writeCompact(job);
  const std::string meeting(job.getString("meeting_id").value_or("none"));
  EXPECT_EQ(ask("get_meeting", R"({"id":")" + meeting + "\"}").getString("id"), meeting);
  const std::string folder = "recordings/" + meeting.substr(std::string("rec-").size());
  ASSERT_TRUE(has(folder + "/session.json"));
  EXPECT_THAT(read(folder + "/job.log"), HasSubstr("stub: started"));
}

TEST_P(OddHomes, WebMeetingsAreCachedThereAndTheKeyIsKeptAndForgotten) {
  auto service = std::make_unique<LoopbackServer>(test::answerOfService);
  environment_["VELTA_API_BASE"] = service->origin();
  const auto connected = runProgram(options({"connect"}), kKey);
  EXPECT_EQ(connected.status, 0) << connected.output;
  EXPECT_THAT(connected.output, StartsWith("Saved to " + home_ + "/cloud-token "));
  EXPECT_EQ(read("cloud-token"), kKey + "\n");
  EXPECT_THAT(call("list_meetings"), HasSubstr(R"("title":"Web")"));
  EXPECT_TRUE(has("velta-mcp-cloud-cache.json"));
  service.reset();
  EXPECT_THAT(runProgram(options(), callOf("list_meetings")).output,
              AllOf(HasSubstr(R"("title":"Web")"), HasSubstr(R"("title":"Own")")))
      << "from the cache";
  EXPECT_THAT(runProgram(options({"disconnect"})).output,
              StartsWith("Deleted " + home_ + "/cloud-token."));
  EXPECT_FALSE(has("cloud-token"));
  EXPECT_FALSE(has("velta-mcp-cloud-cache.json"));
}

TEST_P(OddHomes, WhatAKilledProgramLeftIsFoundAndRemoved) {
  const std::string dead = std::to_string(test::deadProcess());
  const std::vector<std::string> left = {".velta-" + dead + "-0.tmp",
                                         "recordings/.velta-" + dead + "-1.tmp",
                                         "jobs/.velta-" + dead + "-2.tmp", ".cloud-token." + dead};
  for (const std::string& name : left) put(home_, name, "half");
  const auto ending = runProgram(options({"--no-reindex"}));
  EXPECT_EQ(ending.status, 0);
  for (const std::string& name : left) EXPECT_FALSE(has(name)) << name;
}

TEST(LongHome, ThatTheSystemDoesNotTakeIsNamedWithTheCause) {
  const TemporaryFolder root;
  const std::string home = root.file(longPath(5000));
  const std::string agents =
      root.write("agents.json", R"({"agents":{"owner":{"tools":{"add_terms":true}}}})");
  const auto ending = runProgram({.arguments = {"--client", "owner"},
                                  .environment = {{"MEETING_NOTES_HOME", home},
                                                  {"MEETING_MCP_AGENTS", agents},
                                                  {"HOME", root.file("user")}}},
                                 callOf("add_term", R"({"wrong":"押筋","right":"押金"})"));
  EXPECT_EQ(ending.status, 0);
  EXPECT_THAT(ending.output,
              HasSubstr("could not save " + home + "/dictionary.json: File name too long"));
}

}  // namespace
}  // namespace velta
