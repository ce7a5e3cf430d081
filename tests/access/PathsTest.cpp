// The program reads and writes below its data home and where the configuration says, and nowhere
// else, whatever ids, titles, file names and patterns it is given. What stands outside holds a word
// that may not come out anywhere, and has to be the same afterwards.

#include <cstddef>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSON.h"
#include "json/JSONWriter.h"
#include "support/ServerProcess.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using test::ServerProcess;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string kSecret = "outsidersecret";  // in every file outside, and in no call

std::string callOf(const std::string& tool, const JSONObject& arguments) {
  return writeCompact(
      JSONObject{{"jsonrpc", "2.0"},
                 {"id", 1},
                 {"method", "tools/call"},
                 {"params", JSONObject{{"name", tool}, {"arguments", JSON(arguments)}}}});
}

// Everything that is there, links not followed: path, kind, and what a file holds or a link says.
std::map<std::string, std::string> snapshotOf(const fs::path& folder, const fs::path& except) {
  std::map<std::string, std::string> found;
  for (auto entry = fs::recursive_directory_iterator(folder);
       entry != fs::recursive_directory_iterator(); ++entry) {
    const fs::path& path = entry->path();
    if (path == except) {
      entry.disable_recursion_pending();
      continue;
    }
    std::string& what = found[path.string()];
    if (entry->is_symlink()) {
      what = "link to " + fs::read_symlink(path).string();
    } else if (entry->is_directory()) {
      what = "folder";
    } else {
      std::ifstream stream(path, std::ios::binary);
      what = "file " + std::string(std::istreambuf_iterator<char>(stream), {});
    }
  }
  return found;
}

// A data home, "home", in a folder with other things. The client may use every tool.
class Paths : public testing::Test {
 protected:
  Paths() {
    root_.write("outside/secret.md", "# " + kSecret + "\n@Eve  00:01\n" + kSecret + "\n");
    root_.write("outside/secret-digest.md", "# " + kSecret + "\n" + kSecret + " 00:02\n");
    root_.write("outside/secret.json", JSONWithSecret());
    root_.write("outside/notes.json", JSONWithSecret());
    root_.write("outside/job-secret.json", JSONWithSecret());
    root_.write("outside/status.json", JSONWithSecret());
    root_.write("outside/job.log", kSecret + "\n");
    root_.write("outside/recordings/secret/notes.json", JSONWithSecret());
    root_.write("outside/records/secret/meeting.json", JSONWithSecret());
    root_.write("outside/talk.m4a", kSecret);
    root_.write("checkout/pipeline/process_meeting.py", "");
    root_.makeFolder("user");
    setSources("[]");
    root_.write("home/agents.json",
                R"({"agents":{"hostile":{"hide_private":false,"tools":{"read_transcripts":true,)"
                R"("process_recordings":true,"add_terms":true}}}})");
  }

  static std::string JSONWithSecret() {
    return R"({"title":")" + kSecret + R"(","verdict":")" + kSecret + R"(","step":")" + kSecret +
           R"(","detail":")" + kSecret + R"(","created_at":")" + kSecret +
           R"(","visibility":"shared","decisions":[")" + kSecret + R"("],"lines":[{"text":")" +
           kSecret + "\"}]}";
  }

  std::string home() const { return root_.file("home"); }

  void setSources(const std::string& sources) const {
    root_.write("home/mcp-config.json", R"({"sources":)" + sources + "}");
  }

  std::map<std::string, std::string> environment() const {
    return {{"MEETING_NOTES_HOME", home()},
            {"HOME", root_.file("user")},
            {"PATH", "/usr/bin:/bin"},
            {"VELTA_REPO", root_.file("checkout")},
            {"VELTA_PIPELINE_PYTHON", "/usr/bin/true"},
            {"ELEVENLABS_API_KEY", "key"}};
  }

  // Asks all of `lines` in one session of the program. What it says is returned; nothing outside
  // may be told in it, or written into the data home, or have changed.
  std::vector<std::string> ask(const std::vector<std::string>& lines) {
    return askWith({.arguments = {"--client", "hostile"}, .environment = environment()}, lines);
  }

  std::vector<std::string> askWith(const ServerProcess::Options& options,
                                   const std::vector<std::string>& lines) {
    const std::string home = options.environment.at("MEETING_NOTES_HOME");
    const auto before = snapshotOf(root_.path(), home);
    std::vector<std::string> answers;
    ServerProcess server(options);
    for (const std::string& line : lines) {
      answers.push_back(server.ask(line));
      EXPECT_FALSE(tells(answers.back())) << line.substr(0, 300) << "\nis answered by\n"
                                          << answers.back().substr(0, 600);
    }
    const auto ending = server.finish();
    EXPECT_EQ(ending.status, 0);
    EXPECT_FALSE(tells(ending.errors)) << ending.errors;
    EXPECT_EQ(snapshotOf(root_.path(), home), before);
    for (const auto& [path, what] : snapshotOf(home, "")) {
      EXPECT_FALSE(what.starts_with("file") && tells(what)) << path;
    }
    return answers;
  }

  static bool tells(const std::string& text) { return text.find(kSecret) != std::string::npos; }

  // Calls that bring out all that is in the index.
  static std::vector<std::string> readingCalls(const std::vector<std::string>& ids) {
    std::vector<std::string> lines = {callOf("list_meetings", {{"limit", 200}})};
    for (const char* word : {"outsider", "secret", "s", ":"})
      lines.push_back(callOf("search_transcripts", {{"query", word}, {"limit", 200}}));
    for (const std::string& id : ids) {
      lines.push_back(callOf("get_meeting", {{"id", id}}));
      lines.push_back(callOf("get_transcript", {{"id", id}}));
    }
    return lines;
  }

  TemporaryFolder root_;
};

// Names that lead out of a folder, or try to.
std::vector<std::string> hostileNames(const TemporaryFolder& root) {
  std::vector<std::string> names = {"..",
                                    ".",
                                    "/",
                                    "",
                                    "~",
                                    "~root",
                                    "../outside",
                                    "../outside/secret",
                                    "../outside/secret.md",
                                    "../../../outside/secret.md",
                                    "../../../../outside/secret",
                                    "../../../../outside/secret.md",
                                    "./../../../../outside/secret.md",
                                    "x/../../../../../outside/secret.md",
                                    "..\\..\\outside\\secret.md",
                                    "%2e%2e%2foutside%2fsecret.md",
                                    "*",
                                    "[",
                                    "{a,b}",
                                    "$HOME",
                                    "`id`",
                                    "a\nb",
                                    std::string(5000, 'a')};
  names.push_back(root.file("outside/secret.md"));
  names.push_back(root.file("outside/secret"));
  names.push_back("/" + root.file("outside/secret.md"));
  names.push_back("file://" + root.file("outside/secret.md"));
  names.push_back(std::string("digest.md\0/../../../../outside/secret.md", 40));
  names.push_back(root.file("outside/secret.md") + std::string("\0.md", 4));
  names.push_back(std::string("\0", 1));
  return names;
}

TEST_F(Paths, DigestFilesOutsideOfTheRecordAreNotRead) {
  setSources(R"([{"type":"legacy","path":")" + home() + R"(/old"}])");
  std::vector<std::string> ids;
  std::size_t number = 0;
  for (const std::string& name : hostileNames(root_)) {
    for (const char* key : {"digestFile", "id"}) {
      const std::string folder = "r" + std::to_string(number++);
      JSONObject record{{"title", folder}, {key, name}};
      if (key == std::string("digestFile")) record.set("id", folder);
      root_.write("home/old/records/" + folder + "/meeting.json", writeCompact(record));
      ids.push_back("legacy-" + (key == std::string("id") ? name : folder));
    }
  }
  root_.write("home/old/records/honest/meeting.json", R"({"digestFile":"my notes.md"})");
  root_.write("home/old/records/honest/my notes.md", "# Heading\nread as it should\n");
  ids.emplace_back("legacy-honest");
  const auto answers = ask(readingCalls(ids));
  EXPECT_THAT(answers[answers.size() - 2], HasSubstr("read as it should"));
}

TEST_F(Paths, IdsAndTitlesNameNoFileElsewhere) {
  root_.write("home/jobs/job-honest.json", R"({"created_at":"long ago","pid":0})");
  const std::string audio = root_.write("audio/talk.m4a", "sound");
  std::vector<std::string> lines;
  for (const std::string& name : hostileNames(root_)) {
    lines.push_back(callOf("get_meeting", {{"id", name}}));
    lines.push_back(callOf("get_transcript", {{"id", name}}));
    lines.push_back(callOf("get_person", {{"name", name}}));
    lines.push_back(callOf("search_transcripts", {{"query", name}, {"speaker", name}}));
    lines.push_back(callOf("add_term", {{"wrong", name}, {"right", "right"}}));
    lines.push_back(callOf("process_recording", {{"path", name}}));
    lines.push_back(callOf("process_recording", {{"path", audio}, {"title", name}}));
    lines.push_back(callOf("get_job", {{"id", name}}));
    lines.push_back(callOf("get_job", {{"id", "job-" + name}}));
    lines.push_back(callOf("get_job", {{"id", "job-/" + name}}));
    lines.push_back(callOf(name, {{"id", name}}));
  }
  // Ids that would lead to a record outside if the system took them for paths.
  for (const char* folder : {"job-", "job-x", "job-.."})
    root_.makeFolder("home/jobs/" + std::string(folder));
  for (const char* id : {"job-/../../../outside/job-secret", "job-x/../../../outside/job-secret",
                         "job-../../../../outside/job-secret", "../outside/job-secret",
                         "../../outside/job-secret", "job-..\\..\\outside\\job-secret"})
    lines.push_back(callOf("get_job", {{"id", id}}));
  lines.push_back(callOf("get_job", {{"id", "job-honest"}}));
  const auto answers = ask(lines);
  EXPECT_THAT(answers.back(), HasSubstr("long ago"));
  EXPECT_THAT(answers[6], HasSubstr("job_id")) << "a title started no recording";

  // What the titles made is one folder each, directly among the recordings.
  for (const auto& entry : fs::directory_iterator(root_.file("home/recordings"))) {
    EXPECT_TRUE(entry.is_directory()) << entry.path();
    for (const auto& inner : fs::directory_iterator(entry.path()))
      EXPECT_THAT((std::vector<std::string>{"session.json", "job.log"}),
                  testing::Contains(inner.path().filename().string()));
  }
}

TEST_F(Paths, NULBytesInArgumentsEndNoPath) {
  root_.write("home/jobs/job-honest.json", R"({"created_at":"long ago","pid":0})");
  const std::string text = root_.write("audio/secret.txt", "no sound");
  const auto answers =
      ask({callOf("get_job", {{"id", std::string("job-honest.json\0", 16)}}),
           callOf("get_job", {{"id", std::string("job-honest.json\0x", 17)}}),
           callOf("process_recording", {{"path", text + std::string("\0.m4a", 5)}}),
           callOf("process_recording",
                  {{"path", root_.path() + std::string("/audio\0/talk.m4a", 16)}})});
  EXPECT_THAT(answers[0], HasSubstr("No job job-honest"));
  EXPECT_THAT(answers[1], HasSubstr("No job job-honest"));
  EXPECT_THAT(answers[2], HasSubstr("No file at"));
  EXPECT_THAT(answers[3], HasSubstr("No file at"));
}

TEST_F(Paths, NameOfTheClientNamesNoFile) {
  for (const char* client : {"../outside/secret", "/", "..", "\n", "*"}) {
    ServerProcess::Options options{.arguments = {"--client", client}, .environment = environment()};
    askWith(options, {callOf("list_meetings", {}), callOf("nothing", {})});
  }
}

TEST_F(Paths, DataHomeWithPatternCharactersMatchesNothingBesideIt) {
  root_.write("ho?e*[x]/agents.json", "{}");
  root_.write("ho?e*[x]/recordings/honest/notes.json",
              R"({"title":"honest","visibility":"shared"})");
  root_.write("home/recordings/secret/notes.json", JSONWithSecret());
  root_.write("hope-and-x/recordings/secret/notes.json", JSONWithSecret());
  root_.write("hopex/recordings/secret/notes.json", JSONWithSecret());
  auto variables = environment();
  variables["MEETING_NOTES_HOME"] = root_.file("ho?e*[x]");
  const auto answers =
      askWith({.arguments = {"--client", "hostile"}, .environment = variables}, readingCalls({}));
  EXPECT_THAT(answers.front(), HasSubstr("rec-honest"));
}

TEST_F(Paths, SourcesWithPatternCharactersInPlainPathsMatchNothingElse) {
  setSources(R"([{"type":"legacy","path":")" + home() +
             R"(/ol[d]*"},)"
             R"({"type":"recordings","glob":"~/rec/*/notes.json"}])");
  root_.write("home/ol[d]*/records/honest/meeting.json", R"({"title":"honest"})");
  root_.write("home/old/records/secret/meeting.json", R"({"title":"a neighbour"})");
  root_.write("us*r/rec/also/notes.json", R"({"title":"also"})");
  root_.write("user/rec/secret/notes.json", JSONWithSecret());
  auto variables = environment();
  variables["HOME"] = root_.file("us*r");
  const auto answers =
      askWith({.arguments = {"--client", "hostile"}, .environment = variables}, readingCalls({}));
  EXPECT_THAT(answers.front(), AllOf(HasSubstr("legacy-honest"), HasSubstr("rec-also")));
  EXPECT_THAT(answers.front(), Not(HasSubstr("a neighbour")));
}

// A NUL byte ends a path for the system. What stands before it was not named.
TEST_F(Paths, SourcesWithNULBytesNameNothing) {
  setSources(R"([{"type":"recordings","glob":")" + root_.file("outside") +
             R"(/recordings/*/notes.json\u0000/elsewhere"},{"type":"legacy","path":")" +
             root_.file("outside") + R"(\u0000/elsewhere"}])");
  ask(readingCalls({"rec-secret", "legacy-secret"}));
}

TEST_F(Paths, WhatTheProgramCreatesIsNotRedirectedByLinks) {
  const std::string audio = root_.write("audio/talk.m4a", "sound");
  const std::string outside = root_.file("outside");
  root_.makeFolder("home/recordings");
  // The folder that a recording of today, or of tomorrow, would get.
  for (const int days : {0, 1}) {
    const std::time_t then = std::time(nullptr) + days * 86'400;
    std::tm parts = {};
    ::gmtime_r(&then, &parts);
    char day[32];
    std::strftime(day, sizeof day, "%Y-%m-%d", &parts);
    fs::create_directory_symlink(outside, home() + "/recordings/" + day + "-talk");
    fs::create_symlink(outside + "/nothing", home() + "/recordings/" + day + "-talk-2");
  }
  // Temporary files of a process that is no more, and of those that may be ours.
  for (const int process : {1 << 22, 4'194'303})
    fs::create_symlink(outside + "/secret.md",
                       home() + "/.velta-" + std::to_string(process) + "-0.tmp");
  auto variables = environment();
  variables["TZ"] = "UTC";
  const auto answers = askWith({.arguments = {"--client", "hostile"}, .environment = variables},
                               {callOf("process_recording", {{"path", audio}}),
                                callOf("add_term", {{"wrong", "rong"}, {"right", "wrong"}})});
  EXPECT_THAT(answers[0], HasSubstr("job_id"));
  EXPECT_THAT(answers[1], HasSubstr("saved"));
}

// What a glob finds is named by the configuration, and may be a link; what stands beside it is not.
TEST_F(Paths, LinksBesideARecordAreNotFollowedOutOfTheSource) {
  setSources(R"([{"type":"recordings","glob":")" + home() +
             R"(/recordings/*/notes.json"},{"type":"legacy","path":")" + home() + R"(/old"}])");
  const std::string outside = root_.file("outside");
  root_.write("home/recordings/r/notes.json", "{}");
  fs::create_symlink(outside + "/secret.json", home() + "/recordings/r/session.json");
  root_.write("home/old/records/r/meeting.json", R"({"digestFile":"digest.md"})");
  fs::create_symlink(outside + "/secret.md", home() + "/old/records/r/digest.md");
  fs::create_symlink(outside + "/secret.md", home() + "/old/records/r/transcript.md");
  fs::create_symlink(outside + "/secret.json", home() + "/recordings/r/upload.json");
  fs::create_symlink(outside + "/job-secret.json", root_.makeFolder("home/jobs") + "/job-l.json");
  root_.write("home/jobs/job-f.json",
              R"({"visibility":"work","folder":")" + home() + R"(/recordings/r"})");
  fs::create_symlink(outside + "/job-secret.json", home() + "/recordings/r/status.json");
  fs::create_symlink(outside + "/secret.md", home() + "/recordings/r/job.log");
  std::vector<std::string> lines = readingCalls({"rec-r", "legacy-r"});
  for (const char* id : {"job-l", "job-f"}) lines.push_back(callOf("get_job", {{"id", id}}));
  ask(lines);
}

TEST_F(Paths, LinksThatLeadNowhereOrInACircleHoldNothingUp) {
  setSources(R"([{"type":"recordings","glob":")" + home() +
             R"(/recordings/*/notes.json"},{"type":"legacy","path":")" + home() + R"(/old"}])");
  root_.write("home/recordings/honest/notes.json", R"({"title":"honest"})");
  fs::create_directory_symlink(home() + "/recordings", home() + "/recordings/circle");
  fs::create_symlink("notes.json", root_.makeFolder("home/recordings/own") + "/notes.json");
  fs::create_symlink("nowhere", home() + "/recordings/honest/session.json");
  root_.write("home/old/records/r/meeting.json", R"({"digestFile":"digest.md"})");
  fs::create_symlink("digest.md", home() + "/old/records/r/digest.md");
  fs::create_symlink("job-circle.json", root_.makeFolder("home/jobs") + "/job-circle.json");
  std::vector<std::string> lines = readingCalls({"rec-honest", "legacy-r"});
  lines.push_back(callOf("get_job", {{"id", "job-circle"}}));
  const auto answers = ask(lines);
  EXPECT_THAT(answers.front(), AllOf(HasSubstr("rec-honest"), HasSubstr("legacy-r")));
  EXPECT_THAT(answers.back(), HasSubstr("No job job-circle"));
}

}  // namespace
}  // namespace velta
