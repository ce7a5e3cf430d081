// No byte of a meeting reaches an agent that may not see it. Random worlds, random agents and
// random calls; for every agent the answers are compared, byte by byte, with those in the same
// world without the meetings that it may not see. That covers titles, counts, notes, orders and
// error texts alike, and whatever a tool will tell in the future.
//
// VELTA_ACCESS_WORLDS is the number of worlds, VELTA_ACCESS_SEED the first one's seed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "access/World.h"
#include "cloud/HTTPFetcher.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "server/Server.h"
#include "support/ServerProcess.h"
#include "support/TimeZone.h"

namespace velta {
namespace {

using test::kCommonPeople;
using test::kCommonWords;
using test::PlannedAgent;
using test::PlannedJob;
using test::PlannedMeeting;
using test::Random;
using test::ServerProcess;
using test::Unseen;
using test::Words;
using test::World;

constexpr std::int64_t kNow = 1'792'800'000;  // 2026-10-24T00:00:00Z
constexpr std::size_t kWorlds = 12;
constexpr std::size_t kCalls = 60;  // for each agent
const std::string kKey = "velta_pat_" + std::string(43, 'k');

std::size_t numberFromEnvironment(const char* name, std::size_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? static_cast<std::size_t>(std::strtoull(text, nullptr, 10)) : otherwise;
}

std::map<std::string, std::string> environmentOf(const TemporaryFolder& root) {
  return {{"MEETING_NOTES_HOME", root.file("home")},
          {"HOME", root.file("user")},
          {"PATH", "/usr/bin:/bin"},
          {"TZ", "Asia/Taipei"},
          {"VELTA_TOKEN", kKey},
          {"VELTA_API_BASE", "http://127.0.0.1:1"},  // where nobody listens
          {"VELTA_REPO", root.file("no-checkout")}};
}

// One session: what is asked, and what comes back as it stands on the wire.
class Session {
 public:
  virtual ~Session() = default;
  virtual std::string ask(const std::string& line) = 0;
};

using Client = std::optional<std::string>;  // absent: one that gives no name

using Sessions = std::function<std::unique_ptr<Session>(const TemporaryFolder&, const Client&)>;

// The web service cannot be reached, so that web meetings come from the cache.
class Offline : public HTTPFetcher {
 public:
  HTTPResponse get(const URLRequest&) override { throw TransportError("offline"); }
};

class SessionHere : public Session {
 public:
  SessionHere(const TemporaryFolder& root, const Client& client)
      : server_({.config = Config::fromEnvironment(environmentOf(root)),
                 .client = client,
                 .diagnose = [](std::string_view) {},
                 .now = [] { return instantFromSeconds(kNow); },
                 .fetcher = &offline_}) {}

  std::string ask(const std::string& line) override {
    std::string answer;
    for (const std::string& part : server_.handle(line)) answer += part + "\n";
    return answer;
  }

 private:
  Offline offline_;
  Server server_;
};

class SessionOfTheProgram : public Session {
 public:
  SessionOfTheProgram(const TemporaryFolder& root, const Client& client)
      : process_({.arguments = client ? Words{"--client", *client} : Words{},
                  .environment = environmentOf(root)}) {}

  std::string ask(const std::string& line) override { return process_.ask(line); }

 private:
  ServerProcess process_;
};

template <class Kind>
std::unique_ptr<Session> open(const TemporaryFolder& root, const Client& client) {
  return std::make_unique<Kind>(root, client);
}

std::string callLine(const std::string& tool, JSON arguments) {
  JSONObject params;
  params.set("name", tool);
  params.set("arguments", std::move(arguments));
  return writeCompact(JSONObject{
      {"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"}, {"params", std::move(params)}});
}

// Random calls, with what the agent can know, guess, or has heard about what it may not see.
class Calls {
 public:
  Calls(Random& random, const World& world, const PlannedAgent& agent)
      : random_(random), world_(world) {
    for (const PlannedMeeting& meeting : world.meetings) {
      if (world.sees(agent, meeting)) continue;
      hiddenPeople_.insert(meeting.people.begin(), meeting.people.end());
    }
  }

  std::string next() {
    switch (random_.below(14)) {
      case 0:
      case 1:
        return call("list_meetings",
                    {text("query"), text("person"), date("date_from"), date("date_to"), limit()});
      case 2:
      case 3:
      case 4:
        return call("search_transcripts", {must(text("query")), text("speaker"), date("date_from"),
                                           date("date_to"), limit(), flag("include_digest")});
      case 5:
      case 6:
        return call("get_meeting", {must(id()), sections()});
      case 7:
      case 8:
        return call("get_transcript",
                    {must(id()), seconds("from_sec"), seconds("to_sec"), limit()});
      case 9:
        return call("get_person", {must(text("name")), date("date_from"), date("date_to")});
      case 10:
        return call("get_job", {must(job())});
      case 11:
        // Seldom, because every term that is saved waits for the disk.
        return random_.oneIn(4) ? addTerm() : call("search_transcripts", {text("query"), limit()});
      case 12:
        return call("process_recording", {must(path()), text("title"), text("language")});
      default:
        return somethingElse();
    }
  }

 private:
  struct Argument {
    std::string name;
    std::optional<JSON> value;
  };

  // Nearly always there.
  Argument must(Argument argument) {
    while (!argument.value && !random_.oneIn(20)) argument.value = someText();
    return argument;
  }

  std::string call(const std::string& tool, const std::vector<Argument>& arguments) {
    JSONObject object;
    for (const Argument& argument : arguments) {
      if (!argument.value) continue;
      object.set(argument.name, random_.oneIn(25) ? hostile() : *argument.value);
    }
    if (random_.oneIn(30)) object.set(someText(), hostile());
    return callLine(tool, random_.oneIn(60) ? hostile() : JSON(std::move(object)));
  }

  // A value of a kind that no tool takes there, with a text in it that may be that of a meeting.
  JSON hostile() {
    switch (random_.below(8)) {
      case 0:
        return nullptr;
      case 1:
        return true;
      case 2:
        return 5.5;
      case 3:
        return JSON::Array{JSON(someText()), JSON(7), JSON()};
      case 4:
        return JSONObject{{someText(), someText()}};
      case 5:
        return 1e300;
      case 6:
        return JSON::Array{};
      default:
        return someText();
    }
  }

  const PlannedMeeting& someMeeting() { return random_.pick(world_.meetings); }

  std::string someText() {
    static const Words kFields = {"title", "verdict", "summary", "decision", "said", "person",
                                  "role",  "written", "quote",   "heading",  "",     "usernotes"};
    const PlannedMeeting& meeting = someMeeting();
    switch (random_.below(12)) {
      case 0:
      case 1:
        return random_.pick(kCommonWords);
      case 2:
        return meeting.marker + random_.pick(kFields);
      case 3:
        return meeting.marker.substr(0, 1 + random_.below(meeting.marker.size()));
      case 4:
        return meeting.ownPerson();
      case 5:
        return random_.pick(kCommonPeople);
      case 6:
        return meeting.id();
      case 7:
        return random_.pick(kCommonWords) + " " + meeting.marker;
      case 8:
        return random_.pick(
            Words{"", " ", "\t\n", "\"", "{", "name", "talk_sec", "a", "o", "\x1b"});
      case 9:
        return "ZX" + std::string(random_.below(2), 'A');
      case 10:
        return "zxtwinq";
      default:
        return "q";
    }
  }

  Argument text(const std::string& name) {
    return {name, random_.oneIn(2) ? std::optional<JSON>(someText()) : std::nullopt};
  }

  Argument date(const std::string& name) {
    if (!random_.oneIn(5)) return {name, std::nullopt};
    const std::string day = someMeeting().date;
    return {name, random_.pick(Words{day, day, "2026-10", "0", "9999-12-31", ""})};
  }

  Argument limit() {
    static const std::vector<JSON> kLimits = {1, 1, 2, 3, 0, -1, 200, 5000, "2", 3.0, "x", 5.5};
    return {"limit", random_.oneIn(2) ? std::optional<JSON>(random_.pick(kLimits)) : std::nullopt};
  }

  Argument flag(const std::string& name) {
    static const std::vector<JSON> kFlags = {true, false, "no", 1, "maybe"};
    return {name, random_.oneIn(3) ? std::optional<JSON>(random_.pick(kFlags)) : std::nullopt};
  }

  Argument seconds(const std::string& name) {
    static const std::vector<JSON> kSeconds = {0, 1, 2.5, "3", -1, 1e300};
    return {name, random_.oneIn(4) ? std::optional<JSON>(random_.pick(kSeconds)) : std::nullopt};
  }

  Argument sections() {
    if (random_.oneIn(2)) return {"sections", std::nullopt};
    JSON::Array names;
    while (!random_.oneIn(3))
      names.emplace_back(random_.pick(Words{"verdict", "people", "digest", "quotes", "user_notes",
                                            "action_items", "lines", "tags", "chapters"}));
    return {"sections", JSON(std::move(names))};
  }

  Argument id() {
    const PlannedMeeting& meeting = someMeeting();
    switch (random_.below(8)) {
      case 0:
        return {"id", meeting.folder()};
      case 1:
        return {"id", "cloud-" + meeting.uuid()};
      case 2:
        return {"id", meeting.id() + " "};
      case 3:
        return {"id", JSON(someText())};
      default:
        return {"id", meeting.id()};
    }
  }

  Argument job() {
    return {"id", random_.oneIn(6) ? "job-" + someMeeting().id() : random_.pick(world_.jobs).id};
  }

  // Not of a file of a meeting: the tool tells whether a file is there, since it has to be one.
  Argument path() {
    return {"path", random_.pick(Words{"/nowhere/" + someText() + ".m4a", someText(), "~/x.m4a",
                                       std::string(VELTA_SOURCE_DIR) + "/CMakeLists.txt"})};
  }

  // Names of people are refused as automatic replacements, those of all meetings on purpose: the
  // replacement would act on all. So no person of a hidden meeting is asked for with that tier.
  std::string addTerm() {
    const std::string wrong = someText();
    const bool isHiddenName = hiddenPeople_.contains(wrong);
    const std::string tier =
        isHiddenName ? "hint" : random_.pick(Words{"hint", "auto", "Auto", ""});
    return callLine("add_term", JSONObject{{"wrong", wrong},
                                           {"right", random_.oneIn(5) ? "" : someText()},
                                           {"tier", tier}});
  }

  std::string somethingElse() {
    static const Words kOthers = {
        R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})",
        R"({"jsonrpc":"2.0","id":1,"method":"resources/list"})",
        R"({"jsonrpc":"2.0","id":1,"method":"prompts/list"})",
        R"({"jsonrpc":"2.0","id":1,"method":"server/discover"})",
        R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{}})",
        R"({"jsonrpc":"2.0","id":1,"method":"resources/read","params":{"uri":"recordings"}})",
    };
    switch (random_.below(4)) {
      case 0:
        return call(someText(), {text("id")});
      case 1:
        return call("velta_admin_stats", {{"days", 30}});
      default:
        return random_.pick(kOthers);
    }
  }

  Random& random_;
  const World& world_;
  std::set<std::string> hiddenPeople_;
};

// `answer` with "#" in place of every number or time under `key`, also in the text item of a
// result, where quotes are escaped.
void mask(std::string& answer, const std::string& key) {
  constexpr const char* kValue =
      "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ+-.:";
  for (std::size_t at = answer.find(key); at != std::string::npos; at = answer.find(key, at)) {
    const bool isKey = at > 0 && answer[at - 1] == '"';
    at += key.size();
    if (!isKey || at == answer.size() || (answer[at] != '"' && answer[at] != '\\')) continue;
    const std::size_t begin = std::min(answer.find_first_not_of("\\\": ", at), answer.size());
    const std::size_t end = std::min(answer.find_first_not_of(kValue, begin), answer.size());
    answer.replace(begin, end - begin, "#");
  }
}

// What two worlds may tell differently, on purpose: how many meetings the index holds in all, which
// the user who set the server up wants to see, in a job that is done and in the state of the web
// meetings. With a clock that goes on, also when the index was read.
std::string comparable(std::string answer, bool clockStands) {
  for (const char* key : {"index_meetings", "indexed", "merged_into_local"}) mask(answer, key);
  if (clockStands) return answer;
  for (const char* key : {"indexed_at", "age_hours", "at"}) mask(answer, key);
  return answer;
}

// Both answers around the first byte that differs.
std::string difference(const std::string& a, const std::string& b) {
  std::size_t at = 0;
  while (at < a.size() && at < b.size() && a[at] == b[at]) ++at;
  const std::size_t begin = at < 120 ? 0 : at - 120;
  return "\n  here:    …" + a.substr(begin, 300) + "\n  instead: …" +
         (begin < b.size() ? b.substr(begin, 300) : "");
}

struct Tally {
  std::size_t visible = 0;
  std::size_t hidden = 0;
  std::size_t partlyHidden = 0;  // agents from which transcripts are hidden
  std::size_t compared = 0;
  std::size_t withMeetings = 0;  // answers that name a meeting
};

// One agent in one world.
class Trial {
 public:
  Trial(const World& world, const PlannedAgent& agent, const Sessions& sessions, bool clockStands,
        Tally& tally)
      : world_(world),
        agent_(agent),
        sessions_(sessions),
        clockStands_(clockStands),
        tally_(tally) {}

  void run(Random& random) {
    chooseLines(random);
    const std::vector<std::string> answers = answersIn(world_, {});
    expectMeetingsOfTheModel(answers.front());
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      expectNoMarkers(lines_[i], answers[i]);
      expectToldByJob(lines_[i], answers[i]);
    }
    compare(answers, answersIn(world_.without(agent_), {}), "without what is hidden");
    compare(answers, answersIn(world_, unseen()), "with other texts in what is hidden");
    count(answers);
  }

 private:
  void chooseLines(Random& random) {
    lines_.push_back(callLine("list_meetings", JSONObject{{"limit", 200}}));
    for (const PlannedMeeting& meeting : world_.meetings) {
      lines_.push_back(callLine("get_meeting", JSONObject{{"id", meeting.id()}}));
      lines_.push_back(callLine("get_transcript", JSONObject{{"id", meeting.id()}}));
      lines_.push_back(callLine("get_person", JSONObject{{"name", meeting.ownPerson()}}));
    }
    for (const PlannedJob& job : world_.jobs)
      lines_.push_back(callLine("get_job", JSONObject{{"id", job.id}}));
    for (const char* word : {"zx", "押金", "o"})
      lines_.push_back(callLine("search_transcripts", JSONObject{{"query", word}, {"limit", 200}}));
    Calls calls(random, world_, agent_);
    for (std::size_t i = 0; i < kCalls; ++i) lines_.push_back(calls.next());
  }

  std::vector<std::string> answersIn(const World& world, const Unseen& unseen) const {
    world.write(root_, unseen);
    const auto session = sessions_(root_, agent_.client);
    std::vector<std::string> answers;
    for (const std::string& line : lines_) answers.push_back(session->ask(line));
    return answers;
  }

  Unseen unseen() const {
    Unseen unseen{.otherLines = !agent_.may("read_transcripts"), .otherNeverShown = true};
    for (const PlannedJob& job : world_.jobs) {
      if (!World::seesContentOf(agent_, job)) unseen.otherJobs.push_back(job.id);
    }
    return unseen;
  }

  // What is seen is listed, so that comparing answers compares something.
  void expectMeetingsOfTheModel(const std::string& answer) const {
    std::set<std::string> expected;
    for (const PlannedMeeting& meeting : world_.meetings) {
      if (agent_.may("search_meetings") && world_.sees(agent_, meeting))
        expected.insert(meeting.id());
    }
    const JSON parsed = parseJSON(answer);
    const JSONObject* result = parsed.asObject()->getObject("result");
    const JSONObject* content = result->getObject("structuredContent");
    std::set<std::string> listed;
    if (content != nullptr) {
      for (const JSON& meeting : *content->getArray("meetings"))
        listed.emplace(*meeting.asObject()->getString("id"));
    }
    EXPECT_EQ(listed, expected);
  }

  // A marker that the call itself holds may come back in an error text.
  static void expectNoMarker(const std::string& marker, const std::string& line,
                             const std::string& answer) {
    if (answer.find(marker) == std::string::npos || line.find(marker) != std::string::npos) return;
    ADD_FAILURE() << line << "\ntells " << marker << ":\n" << answer.substr(0, 2000);
  }

  void expectNoMarkers(const std::string& line, const std::string& answer) const {
    expectNoMarker("zxtwinq", line, answer);
    for (const PlannedJob& job : world_.jobs) {
      if (!World::seesContentOf(agent_, job)) expectNoMarker(job.marker(), line, answer);
    }
    const PlannedMeeting* told = meetingToldByJob(line);
    for (const PlannedMeeting& meeting : world_.meetings) {
      if (world_.sees(agent_, meeting) || &meeting == told) continue;
      for (const std::string& marker : meeting.markers()) expectNoMarker(marker, line, answer);
    }
  }

  // The hidden meeting that a job has made, where `line` asks a job of which the agent may know it.
  const PlannedMeeting* meetingToldByJob(const std::string& line) const {
    if (!agent_.may("process_recordings") || line.find("\"get_job\"") == std::string::npos)
      return nullptr;
    for (const PlannedJob& job : world_.jobs) {
      if (line.find("{\"id\":\"" + job.id + "\"") == std::string::npos) continue;
      if (job.step != "done" || !World::seesContentOf(agent_, job)) return nullptr;
      for (const PlannedMeeting& meeting : world_.meetings) {
        const bool isHidden = world_.isServed(meeting) && !world_.sees(agent_, meeting);
        if (meeting.id() == job.meetingId && isHidden) return &meeting;
      }
    }
    return nullptr;
  }

  // An agent that may see a job but not the meeting that came of it is refused, on purpose, as it
  // is where it asks for that meeting. What it learns so is the meeting's id.
  void expectToldByJob(const std::string& line, const std::string& answer) const {
    const PlannedMeeting* told = meetingToldByJob(line);
    if (told == nullptr) return;
    EXPECT_EQ(answer,
              R"({"jsonrpc":"2.0","id":1,"result":{"content":[{"text":"Error executing tool )"
              "get_job: No meeting with id '" +
                  told->id() +
                  "' is available to this client. Next step: call list_meetings to get valid ids"
                  "\",\"type\":\"text\"}],\"isError\":true}}" +
                  (answer.ends_with('\n') ? "\n" : ""));
  }

  void compare(const std::vector<std::string>& answers, const std::vector<std::string>& others,
               const char* where) const {
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      if (meetingToldByJob(lines_[i]) != nullptr) continue;
      const std::string here = comparable(answers[i], clockStands_);
      const std::string there = comparable(others[i], clockStands_);
      ASSERT_TRUE(here == there) << lines_[i] << "\nis answered differently " << where << ":"
                                 << difference(here, there);
      ++tally_.compared;
    }
  }

  void count(const std::vector<std::string>& answers) const {
    for (const PlannedMeeting& meeting : world_.meetings)
      ++(world_.sees(agent_, meeting) ? tally_.visible : tally_.hidden);
    if (!agent_.may("read_transcripts")) ++tally_.partlyHidden;
    for (const std::string& answer : answers) {
      if (answer.find("zxa") != std::string::npos) ++tally_.withMeetings;
    }
  }

  const World& world_;
  const PlannedAgent& agent_;
  const Sessions& sessions_;
  const bool clockStands_;
  Tally& tally_;
  const TemporaryFolder root_;
  std::vector<std::string> lines_;
};

Tally tryWorlds(std::size_t count, const Sessions& sessions, std::int64_t now, bool clockStands) {
  const std::size_t first = numberFromEnvironment("VELTA_ACCESS_SEED", 1);
  Tally tally;
  for (std::size_t seed = first; seed < first + count && !testing::Test::HasFailure(); ++seed) {
    const World world(seed, now, clockStands);
    Random random(seed + 1'000'000);
    for (const PlannedAgent& agent : world.agents) {
      SCOPED_TRACE("VELTA_ACCESS_SEED=" + std::to_string(seed) + " VELTA_ACCESS_WORLDS=1, " +
                   agent.client.value_or("no name"));
      Trial(world, agent, sessions, clockStands, tally).run(random);
    }
  }
  return tally;
}

std::string said(const Tally& tally) {
  return std::to_string(tally.visible) + " seen and " + std::to_string(tally.hidden) +
         " hidden meetings, " + std::to_string(tally.partlyHidden) +
         " agents without transcripts, " + std::to_string(tally.compared) + " comparisons, " +
         std::to_string(tally.withMeetings) + " answers with meetings";
}

TEST(AccessProperty, AnswersAreTheSameWithoutWhatTheAgentMayNotSee) {
  const TimeZone taipei("Asia/Taipei");
  const std::size_t worlds = numberFromEnvironment("VELTA_ACCESS_WORLDS", kWorlds);
  const Tally tally = tryWorlds(worlds, open<SessionHere>, kNow, /*clockStands=*/true);
  RecordProperty("tried", said(tally));
  if (worlds < 10) return;
  EXPECT_GT(tally.visible, 0U) << said(tally);
  EXPECT_GT(tally.hidden, 0U) << said(tally);
  EXPECT_GT(tally.partlyHidden, 0U) << said(tally);
  EXPECT_GT(tally.withMeetings, tally.compared / 20) << said(tally);
}

TEST(AccessProperty, AnswersOfTheProgramAreTheSameWithoutWhatTheAgentMayNotSee) {
  const TimeZone taipei("Asia/Taipei");
  const auto now = static_cast<std::int64_t>(std::time(nullptr));
  const Tally tally = tryWorlds(2, open<SessionOfTheProgram>, now, /*clockStands=*/false);
  RecordProperty("tried", said(tally));
  EXPECT_GT(tally.compared, 0U);
}

}  // namespace
}  // namespace velta
