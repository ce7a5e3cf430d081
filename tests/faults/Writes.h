// Writes: every way in which the program writes a file, each as a small session that can be run on
// a sound system and on one that fails; and what has to hold afterwards.
//
//   const Write& write = writes().front();
//   const Reference reference(write);            // before and after, on a sound system
//   Place place(write);
//   const auto ending = place.run(fault);        // something fails in between
//   reference.expectOldOrNew(place.tree());      // never a mixture
//   reference.expectNextRunMendsIt(place);       // and no temporary file stays
#pragma once

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ios>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "json/JSONParser.h"
#include "support/Faults.h"
#include "support/LoopbackServer.h"
#include "support/ServerProcess.h"
#include "support/TemporaryFolder.h"

namespace velta::test {

using Environment = std::map<std::string, std::string>;

inline const std::string kKey = "velta_pat_" + std::string(43, 'k');
inline const std::string kOldKey = "velta_pat_" + std::string(43, '0');
inline constexpr std::string_view kMeeting = "aaaaaaaa-0000-4000-8000-000000000001";

inline std::string callOf(std::string_view tool, std::string_view arguments = "{}") {
  return R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":")" + std::string(tool) +
         R"(","arguments":)" + std::string(arguments) + "}}\n";
}

inline constexpr std::string_view kPing = R"({"jsonrpc":"2.0","id":2,"method":"ping"})"
                                          "\n";

// Everything in a folder: relative paths with what is there. Folders hold "/", links "-> TARGET".
// Names are without what differs from run to run, so one may come several times.
using Tree = std::multimap<std::string, std::string>;

// `text` without digits, dashes and the random end of job ids.
inline std::string scrubbed(std::string_view text) {
  constexpr std::string_view kJob = "job-";
  std::string rest;
  while (!text.empty()) {
    if (text.starts_with(kJob)) {
      const std::size_t end = text.find_first_not_of("0123456789abcdef-", kJob.size());
      text.remove_prefix(std::min(end, text.size()));
      rest += "JOB";
      continue;
    }
    const char c = text.front();
    if ((c < '0' || c > '9') && c != '-') rest += c;
    text.remove_prefix(1);
  }
  return rest;
}

inline Tree treeOf(const std::string& folder) {
  namespace fs = std::filesystem;
  Tree tree;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    std::string name = fs::relative(entry.path().parent_path(), folder) / entry.path().filename();
    if (name.starts_with("./")) name.erase(0, 2);
    std::string content = "/";
    if (entry.is_symlink()) {
      content = "-> " + fs::read_symlink(entry.path()).string();
    } else if (entry.is_regular_file()) {
      std::ifstream stream(entry.path(), std::ios::binary);
      content.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    tree.emplace(scrubbed(name), content);
  }
  return tree;
}

// A web service with one meeting.
inline LoopbackServer::Reply answerOfService(const LoopbackServer::Request& request) {
  const std::string id = R"({"meetings":[{"id":")" + std::string(kMeeting) + "\"";
  if (!request.query.contains("ids")) return {.body = id + R"(,"status":"done","rev":"2"}]})"};
  std::string lines;
  for (int i = 0; i < 60; ++i) {
    lines += (i == 0 ? "" : ",") + std::string(R"({"t_start":)") + std::to_string(i) +
             R"(,"speaker":"Arlo","text":"Deposit agreed, 押金談好了"})";
  }
  return {.body = id + R"(,"title_suggestion":"Web","transcript":[)" + lines + "]}]}"};
}

struct Place;

struct Write {
  std::string name;
  std::function<void(Place&)> prepare;  // puts the old files there
  std::vector<std::string> arguments;
  std::function<std::string(const Place&)> input;
  std::string file;   // what it writes above all, as a tree calls it
  std::string claim;  // what standard output holds when the program says that it was written
};

// What "fsync" costs says nothing here, so the files are in memory where that is possible.
inline const bool kFilesAreInMemory = [] {
  return std::filesystem::is_directory("/dev/shm") && ::setenv("TMPDIR", "/dev/shm", 0) == 0;
}();

inline std::string programThatDoesNothing() {
  return std::filesystem::exists("/bin/true") ? "/bin/true" : "/usr/bin/true";
}

// Where a session takes place: a data home, and beside it what the session needs.
struct Place {
  // With `mount` something is done with the home while it is empty.
  explicit Place(const Write& toDo, const std::function<void(const std::string&)>& mount = nullptr)
      : write(toDo) {
    if (mount) mount(home);
    environment = {{"MEETING_NOTES_HOME", home},
                   {"HOME", root.file("user")},
                   {"PATH", "/usr/bin:/bin"},
                   {"TZ", "Asia/Taipei"},
                   {"VELTA_REPO", root.file("checkout")},
                   {"VELTA_PIPELINE_PYTHON", programThatDoesNothing()},
                   {"ELEVENLABS_API_KEY", "key"}};
    root.write("checkout/pipeline/process_meeting.py", "");
    root.write("Talk.mp3", "");
    put("agents.json", R"({"agents":{"owner":{"tools":{"search_meetings":true,"read_notes":true,)"
                       R"("process_recordings":true,"add_terms":true}}}})");
    write.prepare(*this);
  }

  // Writes a file of the data home.
  void put(const std::string& name, std::string_view bytes) const {
    root.write("home/" + name, bytes);
  }
  // Puts a link into the data home.
  void link(const std::string& name, const std::string& target) const {
    std::filesystem::create_symlink(target, home + "/" + name);
  }
  void serve() {
    service = std::make_unique<LoopbackServer>(answerOfService);
    environment["VELTA_API_BASE"] = service->origin();
  }

  ServerProcess::Options options() const {
    return {.arguments = write.arguments, .environment = environment};
  }
  ServerProcess::Ending run() const { return runProgram(options(), write.input(*this)); }
  ServerProcess::Ending run(const Fault& fault) const {
    ServerProcess::Options faulty = options();
    faulty.environment = withFault(environment, home, fault);
    return runProgram(faulty, write.input(*this));
  }
  // Under a shell that makes `limit` first, with both outputs in one and no descriptor but the
  // standard ones, whatever the test was started with.
  ServerProcess::Ending runUnder(const std::string& limit) const {
    ServerProcess::Options limited = options();
    limited.program = "/bin/sh";
    limited.arguments = {
        "-c", "exec 2>&1 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; " + limit + "; exec \"$0\" \"$@\"",
        VELTA_BINARY};
    limited.arguments.insert(limited.arguments.end(), write.arguments.begin(),
                             write.arguments.end());
    return runProgram(limited, write.input(*this));
  }

  Tree tree() const { return treeOf(home); }

  const Write& write;
  TemporaryFolder root;
  const std::string home = root.makeFolder("home");
  Environment environment;
  std::unique_ptr<LoopbackServer> service;
};

// Puts what no session changes, so that only the write that matters is among the calls.
inline void putQuietHome(const Place& place) {
  place.put("recordings/one/notes.json", R"({"title":"One"})");
  place.put("mcp-config.json", "{}");
  place.put("activity.jsonl", R"({"time":"2026-10-12T07:31:00+00:00","agent":"owner"})"
                              "\n");
}

inline std::string addTerm(const Place&) {
  return callOf("add_term", R"({"wrong":"押筋","right":"押金"})") + std::string(kPing);
}

inline std::string listMeetings(const Place&) {
  return callOf("list_meetings") + std::string(kPing);
}

inline std::string oldDictionary() {
  std::string terms;
  for (int i = 0; i < 60; ++i) {
    terms += (i == 0 ? "" : ",") + std::string(R"({"wrong":"word)") + std::to_string(i) +
             R"(","right":"better word","tier":"hint"})";
  }
  return R"({"self_name":"Arlo","terms":[)" + terms + "]}";
}

// A process id that no process has.
inline pid_t deadProcess() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return child;
}

inline const std::vector<Write>& writes() {
  static const std::vector<std::string> owner = {"--client", "owner"};
  static const std::vector<Write> all = {
      {"NewConfiguration",
       [](Place& place) { place.put("recordings/one/notes.json", R"({"title":"One"})"); }, owner,
       listMeetings, "mcpconfig.json", ""},
      {"BrokenConfiguration",
       [](Place& place) {
         putQuietHome(place);
         place.put("mcp-config.json", "{\"sources\": [broken");
       },
       owner, listMeetings, "mcpconfig.json", ""},
      {"HomeThatIsNotThere",
       [](Place& place) {
         place.put("mcp-config.json", "{}");
         place.environment["MEETING_NOTES_HOME"] = place.home + "/not/yet";
       },
       owner, listMeetings, "not/yet/mcpconfig.json", ""},
      {"ActivityLog", [](Place& place) { putQuietHome(place); }, owner, listMeetings,
       "activity.jsonl", ""},
      {"ActivityLogElsewhere",
       [](Place& place) {
         putQuietHome(place);
         place.environment["MEETING_MCP_AGENTS"] = place.home + "/else/where/agents.json";
       },
       owner, listMeetings, "else/where/activity.jsonl", ""},
      {"NewDictionary", [](Place& place) { putQuietHome(place); }, owner, addTerm,
       "dictionary.json", R"("saved":true)"},
      {"Dictionary",
       [](Place& place) {
         putQuietHome(place);
         place.put("dictionary.json", oldDictionary());
       },
       owner, addTerm, "dictionary.json", R"("saved":true)"},
      {"LinkedFiles",
       [](Place& place) {
         putQuietHome(place);
         place.put("else/where/dictionary.json", oldDictionary());
         place.put("else/config/config.json", "broken");
         place.link("dictionary.json", "else/where/dictionary.json");
         std::filesystem::remove(place.home + "/mcp-config.json");
         place.link("mcp-config.json", place.home + "/else/config/config.json");
       },
       owner, addTerm, "else/where/dictionary.json", R"("saved":true)"},
      {"Recording", [](Place& place) { putQuietHome(place); }, owner,
       [](const Place& place) {
         return callOf("process_recording", R"({"path":")" + place.root.file("Talk.mp3") + "\"}") +
                std::string(kPing);
       },
       "jobs/JOB.json", R"("job_id":)"},
      {"WebCache",
       [](Place& place) {
         putQuietHome(place);
         place.serve();
         place.put("cloud-token", kKey + "\n");
         ::chmod((place.home + "/cloud-token").c_str(), 0600);
         place.put("velta-mcp-cloud-cache.json", "{}");
       },
       owner, listMeetings, "veltamcpcloudcache.json", ""},
      {"ConnectionKey",
       [](Place& place) {
         place.serve();
         place.put("cloud-token", kOldKey + "\n");
         ::chmod((place.home + "/cloud-token").c_str(), 0600);
       },
       {"connect"},
       [](const Place&) { return kKey + "\n"; },
       "cloudtoken",
       "Saved to "},
      {"LinkedConnectionKey",
       [](Place& place) {
         place.serve();
         place.put("else/where/token", kOldKey + "\n");
         ::chmod((place.home + "/else/where/token").c_str(), 0600);
         place.link("cloud-token", "else/where/token");
       },
       {"connect"},
       [](const Place&) { return kKey + "\n"; },
       "else/where/token",
       "Saved to "},
      {"Disconnect",
       [](Place& place) {
         place.put("cloud-token", kOldKey + "\n");
         ::chmod((place.home + "/cloud-token").c_str(), 0600);
         place.put("velta-mcp-cloud-cache.json", "{}");
       },
       {"disconnect"},
       [](const Place&) { return std::string(); },
       "cloudtoken",
       ""},
  };
  return all;
}

// What has to stand on standard output or error when `file` of the tree was not written because of
// `cause`. Empty where that is passed over on purpose: the defaults hold without a configuration
// file, and "disconnect" does what it can.
inline std::vector<std::string> toldOf(const Place& place, const std::string& file,
                                       const std::string& cause) {
  const auto dictionary = place.home + "/dictionary.json";
  if (file.ends_with("dictionary.json")) {
    return {"could not save " + dictionary + ": " + cause +
            ". Nothing was changed. Next step: make the folder and the file writable for this "
            "user, then call add_term again"};
  }
  if (file.ends_with("activity.jsonl")) {
    return {"could not write the activity log " + place.home + "/",
            "activity.jsonl (" + cause + "); calls still run"};
  }
  if (file.find("recordings") == 0 || file.find("jobs") == 0) {
    return {"Error executing tool process_recording: ", place.home, ": " + cause};
  }
  if (file == "veltamcpcloudcache.json" && place.service) {
    return {"web meetings: the cache could not be written (" + cause + ")"};
  }
  if (file.ends_with("token") && place.service) {
    return {"Not saved: could not write " + place.home + "/cloud-token: " + cause};
  }
  return {};
}

// A write on a sound system.
class Reference {
 public:
  explicit Reference(const Write& write) : write_(write) {
    const Place place(write);
    root_ = place.root.path();
    before_ = place.tree();
    const auto ending = place.run();
    after_ = place.tree();
    output_ = ending.output;
    if (ending.status != 0 || ending.signal != 0 || ending.output.find(write.claim) == npos ||
        contentsOf(before_, write.file) == contentsOf(after_, write.file)) {
      throw std::runtime_error(write.name + " does not do on a sound system what it is about: " +
                               ending.output + ending.errors);
    }
  }

  // Every file is as it was or as it ought to become, and none went that ought to stay. Temporary
  // files are borne where `killed`.
  void expectOldOrNew(const Place& place, bool killed) const {
    const Tree tree = place.tree();
    for (const auto& [name, content] : tree) {
      if (killed && isTemporary(name)) continue;
      EXPECT_TRUE(isLog(name) ? isWholeLog(content, oldLog(name))
                              : holds(before_, name, content, root_, place) ||
                                    holds(after_, name, content, root_, place))
          << name << " is neither old nor new: " << content;
    }
    for (const auto& [name, content] : before_) {
      EXPECT_TRUE(tree.contains(name) || !after_.contains(name)) << name << " went";
    }
  }

  // What was not written is told with the cause, and nothing is called written that is not.
  void expectClear(const Place& place, const ServerProcess::Ending& ending,
                   const std::string& cause) const {
    const Tree tree = place.tree();
    const std::string said = ending.output + ending.errors;
    bool fileIsNew = true;
    for (const auto& [name, content] : after_) {
      if (isNew(tree, name, content, place)) continue;
      if (name == write_.file) fileIsNew = false;
      for (const std::string& text : toldOf(place, name, cause))
        EXPECT_THAT(said, testing::HasSubstr(text)) << "for " << name;
    }
    if (write_.claim.empty()) return;
    EXPECT_EQ(ending.output.find(write_.claim) != npos, fileIsNew) << said;
  }

  // The same on a sound system: it works, and afterwards there is nothing but what belongs there.
  void expectNextRunMendsIt(const Place& place) const {
    // A person who was left with a temporary file starts the server, not the same command again.
    const bool isCommand = write_.arguments.front() != "--client";
    if (isCommand) {
      runProgram({.arguments = {"--no-reindex"}, .environment = place.environment});
      expectNoTemporaries(place);
    }
    const auto ending = place.run();
    EXPECT_EQ(ending.signal, 0);
    EXPECT_EQ(ending.status, 0) << ending.output << ending.errors;
    EXPECT_EQ(ending.output.find(kError) != npos, output_.find(kError) != npos) << ending.output;
    EXPECT_THAT(ending.output, testing::HasSubstr(write_.claim));
    expectNoTemporaries(place);
    const Tree tree = place.tree();
    for (const auto& [name, content] : after_) {
      EXPECT_TRUE(tree.contains(name)) << name;
      EXPECT_TRUE(name != write_.file || isNew(tree, name, content, place)) << name;
    }
    for (const auto& [name, content] : tree)
      EXPECT_TRUE(!isLog(name) || isWholeLog(content, oldLog(name))) << content;
  }

  bool isKnown(const std::string& name) const {
    return before_.contains(name) || after_.contains(name) || name == "mcpconfig.json" ||
           name == "activity.jsonl";  // those of the server behind a command
  }

 private:
  static constexpr std::size_t npos = std::string::npos;
  static constexpr std::string_view kError = R"("isError":true)";

  static bool isLog(const std::string& name) { return name.ends_with("activity.jsonl"); }

  // What a log held before.
  std::string oldLog(const std::string& name) const {
    const auto old = before_.find(name);
    return old == before_.end() ? "" : old->second;
  }

  // The old lines, and behind them none but whole ones.
  static bool isWholeLog(const std::string& content, const std::string& old) {
    if (!content.starts_with(old) || (!content.empty() && !content.ends_with('\n'))) return false;
    std::istringstream lines(content);
    try {
      for (std::string line; std::getline(lines, line);) parseJSON(line);
    } catch (const JSONParseError&) {
      return false;
    }
    return true;
  }

  static bool isTemporary(const std::string& name) {
    const std::string last = name.substr(name.rfind('/') + 1);
    return last.starts_with(".velta") || last.starts_with(".cloudtoken");
  }

  static std::vector<std::string> contentsOf(const Tree& tree, const std::string& name) {
    std::vector<std::string> contents;
    const auto [begin, end] = tree.equal_range(name);
    for (auto it = begin; it != end; ++it) contents.push_back(it->second);
    return contents;
  }

  // `content` with paths as a place at `root` has them, and nothing in it that differs otherwise.
  static std::string comparable(std::string content, const std::string& root) {
    for (std::size_t at = content.find(root); at != npos; at = content.find(root, at))
      content.replace(at, root.size(), "ROOT");
    return scrubbed(content);
  }

  static bool holds(const Tree& tree, const std::string& name, const std::string& content,
                    const std::string& root, const Place& place) {
    for (const std::string& expected : contentsOf(tree, name)) {
      if (expected == content) return true;
      if (comparable(expected, root) == comparable(content, place.root.path())) return true;
    }
    return false;
  }

  bool isNew(const Tree& tree, const std::string& name, const std::string& content,
             const Place& place) const {
    for (const std::string& found : contentsOf(tree, name)) {
      if (isLog(name) && found.size() > oldLog(name).size()) return true;
      if (comparable(found, place.root.path()) == comparable(content, root_)) return true;
    }
    return false;
  }

  void expectNoTemporaries(const Place& place) const {
    for (const auto& [name, content] : place.tree())
      EXPECT_TRUE(isKnown(name)) << name << " stays: " << content;
  }

  const Write& write_;
  std::string root_;
  Tree before_;
  Tree after_;
  std::string output_;
};

}  // namespace velta::test
