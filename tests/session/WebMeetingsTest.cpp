// Web meetings with the real program: a web service on this computer, the key on a pipe or typed at
// a terminal.

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "session/Calls.h"
#include "support/DataHome.h"
#include "support/Faults.h"
#include "support/LoopbackServer.h"
#include "support/PseudoTerminal.h"
#include "support/ServerProcess.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using test::DataHome;
using Environment = std::map<std::string, std::string>;
using test::LoopbackServer;
using test::PseudoTerminal;
using test::runProgram;
using test::ServerProcess;
using test::toolCall;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

const std::string kKey = "velta_pat_" + std::string(20, 'A') + "-_" + std::string(21, 'z');
const std::string kOldKey = "velta_pat_" + std::string(43, '0');
const std::string kA = "aaaaaaaa-0000-4000-8000-000000000001";
const std::string kB = "bbbbbbbb-0000-4000-8000-000000000002";
constexpr const char* kCache = "velta-mcp-cloud-cache.json";
constexpr const char* kPrompt = "Paste the connection key from 連接 AI (input stays hidden): ";
const std::string kNextStep =
    "Next step: create a key on the web page 連接 AI and run `velta-mcp connect` (the binary "
    "inside Velta.app, see mcp/README.md)";
const std::string kRefused =
    "web meetings: the connection key was refused: it was revoked on the web or never existed. " +
    kNextStep;

// The web service with the meetings that a test gives it. It knows one key.
class Service {
 public:
  explicit Service(LoopbackServer::Security security = LoopbackServer::Security::plain)
      : server_([this](const LoopbackServer::Request& request) { return answer(request); },
                security) {}

  // `more` holds further members of the meeting, each with a comma before it.
  void put(const std::string& uuid, const std::string& rev, const std::string& more = "") {
    const std::lock_guard lock(mutex_);
    meetings_[uuid] = {rev, more};
  }

  // Takes the place of the usual answers.
  void answerWith(LoopbackServer::Handler handler) {
    const std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
  }

  // The usual answer.
  LoopbackServer::Reply usual(const LoopbackServer::Request& request) const {
    if (request.header("authorization") != "Bearer " + kKey) return {.status = 401, .body = "{}"};
    if (request.path != "/api/mcp/meetings") return {.status = 404};
    const auto ids = request.query.find("ids");
    return {.body = ids != request.query.end() ? download(ids->second) : listing(request.query)};
  }

  const LoopbackServer& server() const { return server_; }
  LoopbackServer& server() { return server_; }

  // What was asked for, in order: "list OFFSET" or "load COUNT".
  std::vector<std::string> asked() const {
    std::vector<std::string> asked;
    for (const LoopbackServer::Request& request : server_.requests()) {
      const auto ids = request.query.find("ids");
      asked.push_back(ids == request.query.end()
                          ? "list " + request.query.at("offset")
                          : "load " + std::to_string(split(ids->second).size()));
    }
    return asked;
  }

 private:
  struct Stored {
    std::string rev;
    std::string more;
  };

  static std::vector<std::string> split(const std::string& ids) {
    std::vector<std::string> parts;
    std::istringstream stream(ids);
    for (std::string part; std::getline(stream, part, ',');) parts.push_back(part);
    return parts;
  }

  LoopbackServer::Reply answer(const LoopbackServer::Request& request) const {
    const std::lock_guard lock(mutex_);
    return handler_ ? handler_(request) : usual(request);
  }

  std::string listing(const std::map<std::string, std::string>& query) const {
    const std::size_t offset = std::stoul(query.at("offset"));
    const std::size_t limit = std::stoul(query.at("limit"));
    std::string list;
    std::size_t at = 0;
    for (const auto& [uuid, stored] : meetings_) {
      if (at >= offset && at < offset + limit) {
        list += (list.empty() ? "" : ",") + (R"({"id":")" + uuid) + R"(","status":"done","rev":")" +
                stored.rev + "\"}";
      }
      ++at;
    }
    return R"({"meetings":[)" + list + "]}";
  }

  std::string download(const std::string& ids) const {
    std::string list;
    for (const std::string& uuid : split(ids)) {
      list +=
          (list.empty() ? "" : ",") + (R"({"id":")" + uuid) + "\"" + meetings_.at(uuid).more + "}";
    }
    return R"({"meetings":[)" + list + "]}";
  }

  mutable std::mutex mutex_;
  std::map<std::string, Stored> meetings_;
  LoopbackServer::Handler handler_;
  LoopbackServer server_;  // the last: its threads use the others
};

// A process of a test has no terminal: a person who runs the tests is not asked for a key.
class WebMeetings : public testing::Test {
 protected:
  WebMeetings() {
    const int terminal = ::open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (terminal < 0) return;
    ::ioctl(terminal, TIOCNOTTY);
    ::close(terminal);
  }

  Environment environment(const std::string& base) const {
    Environment environment = home_.environment();
    environment["VELTA_API_BASE"] = base;
    return environment;
  }
  Environment environment() const { return environment(service_.server().origin()); }
  Environment withKey() const {
    Environment with = environment();
    with["VELTA_TOKEN"] = kKey;
    return with;
  }

  static ServerProcess::Options options(Environment environment,
                                        std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"--client", "claude-code"});
    return {.arguments = std::move(more), .environment = std::move(environment)};
  }

  void saveKey(const std::string& key, mode_t mode = 0600) const {
    ::chmod(home_.write("cloud-token", key + "\n").c_str(), mode);
  }

  // The settings of web meetings.
  void configure(const std::string& cloud) const {
    home_.write("mcp-config.json", R"({"sources": [{"type": "recordings", "glob": ")" +
                                       home_.file("recordings/*/notes.json") + R"("}], "cloud": )" +
                                       cloud + "}");
  }

  // A local recording that was sent to the service, where it has the id `uuid`.
  void recordSent(const std::string& name, const std::string& uuid) const {
    home_.write("recordings/" + name + "/notes.json", R"({"title": "Local"})");
    home_.write("recordings/" + name + "/upload.json", R"({"meeting_id": ")" + uuid + "\"}");
  }

  ServerProcess::Ending runAction(const std::string& action, const Environment& environment,
                                  const std::string& input = "") const {
    return runProgram({.arguments = {action}, .environment = environment}, input);
  }

  const DataHome home_;
  Service service_;
};

// What a call that must succeed gives.
JSONObject contentOf(const std::string& answer) {
  const JSON parsed = parseJSON(answer);
  const JSONObject* result = parsed.asObject()->getObject("result");
  if (result == nullptr || result->getObject("structuredContent") == nullptr)
    throw std::runtime_error("no content: " + answer);
  return *result->getObject("structuredContent");
}

JSONObject listMeetings(ServerProcess& server) {
  return contentOf(server.ask(toolCall("list_meetings")));
}

std::vector<std::string> idsOf(const JSONObject& listed) {
  std::vector<std::string> ids;
  for (const JSON& meeting : *listed.getArray("meetings"))
    ids.emplace_back(*meeting.asObject()->getString("id"));
  return ids;
}

std::vector<std::string> keysOf(const JSONObject& object) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : object) keys.emplace_back(key);
  return keys;
}

// The lines of standard error behind the one that tells who is served.
std::string afterFirstLine(const std::string& errors) {
  EXPECT_THAT(errors, StartsWith("meeting-notes MCP: client=claude-code sees "));
  return errors.substr(std::min(errors.size(), errors.find('\n') + 1));
}

// --- serving

TEST_F(WebMeetings, AreListedBesideLocalOnesAndMergedIntoTheirTwins) {
  recordSent("twin", kB);
  service_.put(kA, "1", R"(, "title": "Alpha", "date": "2026-09-01", "tags": ["web"])");
  service_.put(kB, "1", R"(, "title": "Beta", "user_notes": "From the web")");
  ServerProcess server(options(withKey()));
  const JSONObject listed = listMeetings(server);
  EXPECT_THAT(idsOf(listed), ElementsAre("cloud-" + kA, "rec-twin"));
  const JSONObject& alpha = *listed.getArray("meetings")->at(0).asObject();
  EXPECT_EQ(alpha.getString("source"), "cloud");
  EXPECT_EQ(alpha.getString("title"), "Alpha");
  EXPECT_EQ(alpha.getString("visibility"), "private");

  const JSONObject& index = *listed.getObject("index");
  EXPECT_THAT(keysOf(index), ElementsAre("indexed_at", "age_hours", "web_meetings"));
  JSONObject web = *index.getObject("web_meetings");
  EXPECT_THAT(keysOf(web),
              ElementsAre("connected", "ok", "at", "indexed", "merged_into_local", "unfinished"));
  EXPECT_THAT(std::string(web.getString("at").value_or("")), EndsWith("+00:00"));
  web.set("at", "now");
  EXPECT_EQ(writeCompact(web),
            R"({"connected":true,"ok":true,"at":"now","indexed":1,"merged_into_local":1,)"
            R"("unfinished":0})");

  const JSONObject twin = contentOf(
      server.ask(toolCall("get_meeting", R"({"id":"rec-twin","sections":["user_notes"]})")));
  EXPECT_EQ(twin.getString("title"), "Local");
  EXPECT_THAT(writeCompact(twin), HasSubstr("From the web"));
  const auto ending = server.finish();
  EXPECT_EQ(afterFirstLine(ending.errors), "index refreshed: meetings=2 changed=1 web=1\n");
  EXPECT_EQ(ending.status, 0);
}

TEST_F(WebMeetings, RequestsAreAskedInTheNameOfTheKey) {
  service_.put(kA, "1");
  runProgram(options(withKey()));
  ASSERT_THAT(service_.asked(), ElementsAre("list 0", "load 1"));
  for (const LoopbackServer::Request& request : service_.server().requests()) {
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.path, "/api/mcp/meetings");
    EXPECT_EQ(request.header("authorization"), "Bearer " + kKey);
    EXPECT_EQ(request.header("user-agent"), "velta-mcp/0.2 (cpp)");
    EXPECT_THAT(request.target, Not(HasSubstr("velta_pat_")));
  }
  EXPECT_EQ(service_.server().connections(), 1);
}

TEST_F(WebMeetings, ComeOverTLSFromAServerWhoseCertificateIsTrusted) {
  Service secure(LoopbackServer::Security::tls);
  secure.put(kA, "1");
  Environment variables = environment(secure.server().origin());
  variables["VELTA_TOKEN"] = kKey;
  const auto distrusting = runProgram(options(variables));
  EXPECT_THAT(afterFirstLine(distrusting.errors),
              StartsWith("index refreshed: meetings=0 changed=0 web=unreachable\n"
                         "WARN web meetings: could not reach https://localhost:"));
  EXPECT_THAT(secure.asked(), IsEmpty());
  variables["SSL_CERT_FILE"] = secure.server().certificateFile();
  const auto trusting = runProgram(options(variables));
  EXPECT_EQ(afterFirstLine(trusting.errors), "index refreshed: meetings=1 changed=0 web=1\n");
}

TEST_F(WebMeetings, RefusedKeyIsAWarningAtTheStartAndInAnswers) {
  home_.write("recordings/local/notes.json", "{}");
  service_.answerWith([](const auto&) { return LoopbackServer::Reply{.status = 401}; });
  ServerProcess server(options(withKey()));
  const JSONObject listed = listMeetings(server);
  EXPECT_THAT(idsOf(listed), ElementsAre("rec-local"));
  EXPECT_EQ(listed.getObject("index")->getString("warning"), kRefused);
  EXPECT_EQ(listed.getObject("index")->getObject("web_meetings")->getBool("ok"), false);
  EXPECT_EQ(afterFirstLine(server.finish().errors),
            "index refreshed: meetings=1 changed=1 web=unreachable\nWARN " + kRefused + "\n");
}

TEST_F(WebMeetings, RestartWithoutNetworkServesTheCache) {
  service_.put(kA, "1", R"(, "title": "Alpha", "transcript": [{"text": "a deposit"}])");
  runProgram(options(withKey()));
  Environment offline = withKey();
  {
    const LoopbackServer gone([](const auto&) { return LoopbackServer::Reply(); });
    offline["VELTA_API_BASE"] = gone.origin();
  }
  ServerProcess server(options(offline));
  const JSONObject listed = listMeetings(server);
  EXPECT_THAT(idsOf(listed), ElementsAre("cloud-" + kA));
  const std::string warning(listed.getObject("index")->getString("warning").value_or(""));
  EXPECT_THAT(warning, AllOf(StartsWith("web meetings: could not reach " +
                                        offline.at("VELTA_API_BASE") + "/api/mcp/meetings?"),
                             HasSubstr("). Most likely this Mac is offline. Next step: ")));
  EXPECT_EQ(listed.getObject("index")->getObject("web_meetings")->getInt("indexed"), 1);
  EXPECT_EQ(afterFirstLine(server.finish().errors),
            "index refreshed: meetings=1 changed=0 web=unreachable\nWARN " + warning + "\n");
}

TEST_F(WebMeetings, TurnedOffTheyAreNeitherAskedForNorServed) {
  service_.put(kA, "1");
  home_.write("recordings/local/notes.json", "{}");
  runProgram(options(withKey()));
  service_.server().forgetRequests();
  configure(R"({"enabled": false})");
  ServerProcess server(options(withKey()));
  const JSONObject listed = listMeetings(server);
  EXPECT_THAT(idsOf(listed), ElementsAre("rec-local"));
  EXPECT_EQ(listed.getObject("index")->getObject("web_meetings")->getString("note"),
            "web meetings are turned off (cloud.enabled false in mcp-config.json)");
  EXPECT_EQ(afterFirstLine(server.finish().errors),
            "index refreshed: meetings=1 changed=1 web=off\n");
  EXPECT_THAT(service_.asked(), IsEmpty());
}

TEST_F(WebMeetings, WithoutUsableKeyNoRequestEverGoesOut) {
  home_.write("recordings/local/notes.json", "{}");
  const std::string file = home_.file("cloud-token");
  const std::string notIncluded = "web meetings are not included: ";
  const std::pair<std::function<void(Environment&)>, std::string> cases[] = {
      {[](Environment&) {},
       "Web meetings (velta.example) are not included: this Mac has no Velta "
       "connection key. " +
           kNextStep},
      {[&](Environment&) { saveKey(kKey, 0644); },
       notIncluded + file +
           " can be read by other users of this Mac, so it is not used. Next step: run `chmod 600 "
           "'" +
           file + "'`, or run `velta-mcp connect` again"},
      {[&](Environment&) { saveKey("something else"); },
       notIncluded + file + " does not hold a Velta connection key. " + kNextStep},
      {[&](Environment& variables) {
         saveKey(kKey);
         variables["VELTA_TOKEN"] = "velta_pat_short";
       },
       notIncluded +
           "env VELTA_TOKEN is not a Velta connection key (velta_pat_ plus 43 characters). " +
           kNextStep},
  };
  for (const auto& [prepare, note] : cases) {
    Environment variables = environment();
    prepare(variables);
    ServerProcess server(options(variables));
    const JSONObject listed = listMeetings(server);
    EXPECT_EQ(listed.getObject("index")->getObject("web_meetings")->getString("note"), note);
    EXPECT_THAT(afterFirstLine(server.finish().errors), EndsWith(" web=off\n"));
  }
  EXPECT_EQ(service_.server().connections(), 0);
}

TEST_F(WebMeetings, WithoutTheFirstReadingTheyComeWithTheFirstCall) {
  service_.put(kA, "1");
  ServerProcess server(options(withKey(), {"--no-reindex"}));
  server.ask(R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})");
  EXPECT_THAT(service_.asked(), IsEmpty());
  EXPECT_THAT(idsOf(listMeetings(server)), ElementsAre("cloud-" + kA));
  EXPECT_THAT(service_.asked(), ElementsAre("list 0", "load 1"));
  EXPECT_EQ(afterFirstLine(server.finish().errors), "");
}

TEST_F(WebMeetings, AreAskedForAgainWhenTheIntervalHasPassed) {
  configure(R"({"refresh_seconds": 3600})");
  service_.put(kA, "1");
  ServerProcess server(options(withKey()));
  listMeetings(server);
  listMeetings(server);
  EXPECT_THAT(service_.asked(), ElementsAre("list 0", "load 1"));
  configure(R"({"refresh_seconds": -1})");
  service_.put(kB, "1");
  EXPECT_THAT(idsOf(listMeetings(server)), UnorderedElementsAre("cloud-" + kA, "cloud-" + kB));
  listMeetings(server);
  EXPECT_THAT(service_.asked(), ElementsAre("list 0", "load 1", "list 0", "load 1", "list 0"));
}

TEST_F(WebMeetings, FailedSyncIsNotTriedAgainBeforeTheIntervalHasPassed) {
  service_.answerWith([](const auto&) { return LoopbackServer::Reply{.status = 503}; });
  home_.write("recordings/local/notes.json", "{}");
  ServerProcess server(options(withKey()));
  for (int i = 0; i < 3; ++i) listMeetings(server);
  EXPECT_THAT(service_.asked(), ElementsAre("list 0"));
}

TEST_F(WebMeetings, KeyThatIsSavedOrRemovedMeanwhileCountsInTheNextRefresh) {
  configure(R"({"refresh_seconds": -1})");
  service_.put(kA, "1");
  home_.write("recordings/local/notes.json", "{}");
  ServerProcess server(options(environment()));
  EXPECT_THAT(idsOf(listMeetings(server)), ElementsAre("rec-local"));
  saveKey(kKey);
  EXPECT_THAT(idsOf(listMeetings(server)), UnorderedElementsAre("cloud-" + kA, "rec-local"));
  EXPECT_EQ(runAction("disconnect", environment()).status, 0);
  EXPECT_THAT(idsOf(listMeetings(server)), ElementsAre("rec-local"));
  EXPECT_FALSE(home_.has(kCache));
}

// --- many meetings

std::string uuidOf(int number) {
  std::string digits = std::to_string(number);
  return "00000000-0000-4000-8000-" + std::string(12 - digits.size(), '0') + digits;
}

TEST_F(WebMeetings, ThousandNewOnesTakeThreeListingsAndTwentyDownloadsOnOneConnection) {
  for (int number = 0; number < 1000; ++number)
    service_.put(uuidOf(number), "1", R"(, "title": "T", "transcript": [{"text": "a deposit"}])");
  const auto ending = runProgram(options(withKey()));
  EXPECT_EQ(afterFirstLine(ending.errors), "index refreshed: meetings=1000 changed=0 web=1000\n");
  std::vector<std::string> expected = {"list 0", "list 500", "list 1000"};
  expected.insert(expected.end(), 20, "load 50");
  EXPECT_EQ(service_.asked(), expected);
  EXPECT_EQ(service_.server().connections(), 1);
}

TEST_F(WebMeetings, TenThousandUnchangedOnesTakeTwentyListingsAndNoDownloadSlow) {
  std::string cache;
  for (int number = 0; number < 10'000; ++number) {
    const std::string uuid = uuidOf(number);
    service_.put(uuid, "1");
    cache += (cache.empty() ? "{" : ",") + ("\"" + uuid) +
             R"(":{"rev":"1","meeting":{"source":"cloud","id":"cloud-)" + uuid + "\"}}";
  }
  home_.write(kCache, cache + "}");
  const auto ending = runProgram(options(withKey()));
  EXPECT_EQ(afterFirstLine(ending.errors), "index refreshed: meetings=10000 changed=0 web=10000\n");
  std::vector<std::string> expected;
  for (int offset = 0; offset < 10'000; offset += 500)
    expected.push_back("list " + std::to_string(offset));
  EXPECT_EQ(service_.asked(), expected);
}

// --- connect, status, disconnect

std::string savedLines(const DataHome& home, const std::string& count) {
  return "Saved to " + home.file("cloud-token") +
         " (only you can read it). Web meetings found: " + count +
         ". Restart your AI app so the MCP picks it up\nCLOUD_CONNECTED meetings=" + count + "\n";
}

mode_t modeOf(const std::string& path) {
  struct stat info = {};
  return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : 0;
}

TEST_F(WebMeetings, ConnectTriesTheKeyOfStandardInputAndSavesIt) {
  service_.put(kA, "1");
  service_.put(kB, "1");
  for (const std::string& input : {kKey + "\n", kKey, "  " + kKey + "\t\r\nnot this line\n"}) {
    home_.remove("cloud-token");
    const auto ending = runAction("connect", environment(), input);
    EXPECT_EQ(ending.output, savedLines(home_, "2"));
    EXPECT_EQ(ending.errors, "");
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(home_.read("cloud-token"), kKey + "\n");
    EXPECT_EQ(modeOf(home_.file("cloud-token")), 0600U);
  }
  EXPECT_THAT(service_.asked(), ElementsAre("list 0", "list 0", "list 0"));
  EXPECT_THAT(home_.names(), ElementsAre("cloud-token"));
}

TEST_F(WebMeetings, ConnectMakesTheDataHome) {
  Environment variables = environment();
  variables["MEETING_NOTES_HOME"] = home_.file("not/yet/there");
  EXPECT_EQ(runAction("connect", variables, kKey).status, 0);
  EXPECT_EQ(home_.read("not/yet/there/cloud-token"), kKey + "\n");
}

TEST_F(WebMeetings, ConnectRefusesWhatIsNoKeyWithoutAskingTheService) {
  saveKey(kOldKey);
  for (const std::string& input :
       {std::string(), std::string("\n"), kKey + "x\n", kKey.substr(1) + "\n", "\n" + kKey + "\n",
        "velta_pat_" + std::string(42, '.') + "x\n"}) {
    const auto ending = runAction("connect", environment(), input);
    EXPECT_EQ(ending.output,
              "That is not a Velta connection key (it starts with velta_pat_). Nothing saved. Copy "
              "it again from 連接 AI\n");
    EXPECT_EQ(ending.errors, "");
    EXPECT_EQ(ending.status, 1);
  }
  EXPECT_EQ(service_.server().connections(), 0);
  EXPECT_EQ(home_.read("cloud-token"), kOldKey + "\n");
}

TEST_F(WebMeetings, KeyThatTheServiceRefusesIsNotSaved) {
  const auto ending = runAction("connect", environment(), kOldKey);
  EXPECT_EQ(ending.output, "Not saved: " + kRefused + "\n");
  EXPECT_EQ(ending.errors, "");
  EXPECT_EQ(ending.status, 1);
  EXPECT_THAT(home_.names(), IsEmpty());
  saveKey(kKey);
  EXPECT_EQ(runAction("connect", environment(), kOldKey).status, 1);
  EXPECT_EQ(home_.read("cloud-token"), kKey + "\n") << "the one before stays";
}

TEST_F(WebMeetings, KeyThatCannotBeSavedIsToldWithTheCause) {
  home_.write("cloud-token/in the way", "");
  const auto ending = runAction("connect", environment(), kKey);
  EXPECT_EQ(ending.output,
            "Not saved: could not write " + home_.file("cloud-token") + ": Is a directory\n");
  EXPECT_EQ(ending.status, 1);
  EXPECT_THAT(home_.names(), ElementsAre("cloud-token"));
}

TEST_F(WebMeetings, StatusTellsWhetherTheKeyWorks) {
  service_.put(kA, "1");
  struct Case {
    std::string saved;     // in the key file, empty: no file
    std::string variable;  // VELTA_TOKEN
    std::string output;
    int status;
  };
  const std::string file = home_.file("cloud-token");
  const Case cases[] = {
      {"", "", "Not connected: not connected\n", 1},
      {kKey, "", "Connected (key from " + file + "). Web meetings: 1\n", 0},
      {kKey, "  \n", "Connected (key from " + file + "). Web meetings: 1\n", 0},
      {"", kKey, "Connected (key from env VELTA_TOKEN). Web meetings: 1\n", 0},
      {kOldKey, kKey + "\n", "Connected (key from env VELTA_TOKEN). Web meetings: 1\n", 0},
      {kOldKey, "", "Key from " + file + ", but: " + kRefused + "\n", 1},
      {kKey, kOldKey, "Key from env VELTA_TOKEN, but: " + kRefused + "\n", 1},
      {"nonsense", "",
       "Not connected: " + file + " does not hold a Velta connection key. " + kNextStep + "\n", 1},
  };
  for (const auto& [saved, variable, output, status] : cases) {
    home_.remove("cloud-token");
    if (!saved.empty()) saveKey(saved);
    Environment variables = environment();
    variables["VELTA_TOKEN"] = variable;
    const auto ending = runAction("status", variables);
    EXPECT_EQ(ending.output, output);
    EXPECT_EQ(ending.errors, "");
    EXPECT_EQ(ending.status, status) << output;
  }
  EXPECT_FALSE(home_.has(kCache)) << "status asks, and keeps nothing";
}

TEST_F(WebMeetings, ConnectAndStatusWorkWhenWebMeetingsAreTurnedOff) {
  configure(R"({"enabled": false})");
  EXPECT_EQ(runAction("connect", environment(), kKey).output, savedLines(home_, "0"));
  EXPECT_EQ(runAction("status", environment()).status, 0);
}

TEST_F(WebMeetings, DisconnectForgetsTheKeyAndTheCache) {
  service_.put(kA, "1");
  saveKey(kKey);
  runProgram(options(environment()));
  ASSERT_TRUE(home_.has(kCache));
  service_.server().forgetRequests();
  const auto first = runAction("disconnect", environment());
  EXPECT_EQ(first.output, "Deleted " + home_.file("cloud-token") +
                              ". Also press 撤銷 on 連接 AI so the key stops working everywhere\n");
  EXPECT_EQ(first.errors, "");
  EXPECT_EQ(first.status, 0);
  EXPECT_FALSE(home_.has("cloud-token"));
  EXPECT_FALSE(home_.has(kCache));

  home_.write(kCache, "{}");
  const auto second = runAction("disconnect", environment());
  EXPECT_EQ(second.output, "No saved key on this Mac\n");
  EXPECT_EQ(second.status, 0);
  EXPECT_TRUE(home_.has(kCache)) << "left alone where there is no key to forget";
  EXPECT_THAT(service_.asked(), IsEmpty());
}

// --- at a terminal

// The program at a terminal of its own, as a person runs it.
class AtTerminal {
 public:
  AtTerminal(const PseudoTerminal& terminal, const std::string& argument,
             const Environment& environment) {
    std::string program = VELTA_BINARY;
    std::string only = argument;
    const std::array<char*, 3> arguments = {program.data(), only.data(), nullptr};
    std::vector<std::string> texts;
    for (const auto& [name, value] : environment)
      texts.push_back(std::string(name).append("=").append(value));
    std::vector<char*> variables;
    for (std::string& text : texts) variables.push_back(text.data());
    variables.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {  // other threads of the test do not live here: nothing but system calls
      if (!terminal.takeControl()) ::_exit(101);
      for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::dup2(terminal.line(), standard);
      ::execve(program.c_str(), arguments.data(), variables.data());
      ::_exit(102);
    }
    if (pid_ < 0) throw std::runtime_error("fork");
  }
  ~AtTerminal() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  AtTerminal(const AtTerminal&) = delete;
  AtTerminal& operator=(const AtTerminal&) = delete;

  // How it ended, as waitpid(2) tells.
  int end() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }

 private:
  pid_t pid_ = -1;
};

TEST_F(WebMeetings, ConnectAsksAtTheTerminalAndDoesNotShowTheKey) {
  service_.put(kA, "1");
  PseudoTerminal terminal;
  AtTerminal process(terminal, "connect", environment());
  std::string shown = terminal.readUntil(kPrompt);
  EXPECT_FALSE(terminal.echoes());
  terminal.type(kKey + "\n");
  shown += terminal.readUntil("CLOUD_CONNECTED meetings=1\n");
  const int status = process.end();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(shown, kPrompt + ("\n" + savedLines(home_, "1")));
  EXPECT_TRUE(terminal.echoes());
  EXPECT_EQ(home_.read("cloud-token"), kKey + "\n");
}

TEST_F(WebMeetings, InterruptAtThePromptSavesNothingAndRestoresTheEcho) {
  PseudoTerminal terminal;
  AtTerminal process(terminal, "connect", environment());
  terminal.readUntil(kPrompt);
  terminal.type(kKey + "\x03");
  const int status = process.end();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  EXPECT_TRUE(terminal.echoes());
  EXPECT_FALSE(home_.has("cloud-token"));
  EXPECT_EQ(service_.server().connections(), 0);
}

TEST_F(WebMeetings, LineThatIsTooLongForAKeyIsNone) {
  PseudoTerminal terminal;
  AtTerminal process(terminal, "connect", environment());
  terminal.readUntil(kPrompt);
  terminal.type(std::string(202, ' ') + kKey + "xyz\n");  // cut after 255 bytes: 53 of them a key
  terminal.readUntil("\n");
  process.end();
  EXPECT_EQ(terminal.rest(), savedLines(home_, "0"))
      << "what stands behind the cut is not looked at";
}

// --- the key file at every moment

// The key file and what is to become one are the user's alone, also while they are empty: who had
// opened one then could read what comes.
void expectKeysArePrivate(const DataHome& home, const std::string& when) {
  for (const std::string& name : home.names()) {
    EXPECT_THAT(name, HasSubstr("cloud-token"));
    EXPECT_EQ(modeOf(home.file(name)) & 077U, 0U) << name << " " << when;
  }
}

// While it lives, files are created as readable as their creator asks for.
class NoMask {
 public:
  NoMask() : before_(::umask(0)) {}
  ~NoMask() { ::umask(before_); }
  NoMask(const NoMask&) = delete;
  NoMask& operator=(const NoMask&) = delete;

 private:
  mode_t before_;
};

int unfinishedKeysIn(const DataHome& home) {
  int count = 0;
  for (const auto& file : std::filesystem::directory_iterator(home.path()))
    count += file.path().filename().string().starts_with(".cloud-token.") ? 1 : 0;
  return count;
}

TEST_F(WebMeetings, DisconnectForgetsAlsoTheKeyThatAKilledConnectLeft) {
  home_.write(".cloud-token.12345", kKey);
  EXPECT_EQ(runAction("disconnect", environment(), "").output, "No saved key on this Mac\n");
  EXPECT_EQ(unfinishedKeysIn(home_), 0);
}

TEST_F(WebMeetings, ConnectThatIsKilledLeavesTheOldKeyOrTheNewOneAndNeverAReadableOne) {
  if (!test::kFaultsAvailable) GTEST_SKIP() << "needs LD_PRELOAD";
  const NoMask mask;
  const auto pointsOf = [this](const DataHome& home) {
    Environment variables = home.environment();
    variables["VELTA_API_BASE"] = service_.server().origin();
    return std::pair(
        test::faultPoints({.arguments = {"connect"}, .environment = variables}, home.path(), kKey),
        variables);
  };
  const DataHome counted;
  const int points = static_cast<int>(pointsOf(counted).first.size());
  ASSERT_GE(points, 4);
  int kept = 0;
  int replaced = 0;
  for (const std::string how : {"kill", "kill-after"}) {
    for (int at = 1; at <= points; ++at) {
      const DataHome home;
      ::chmod(home.write("cloud-token", kOldKey + "\n").c_str(), 0600);
      Environment variables = home.environment();
      variables["VELTA_API_BASE"] = service_.server().origin();
      const auto ending =
          runProgram({.arguments = {"connect"},
                      .environment = test::withFault(variables, home.path(),
                                                     {.at = at, .how = how, .lasting = false})},
                     kKey);
      const std::string when = how + " at " + std::to_string(at);
      EXPECT_EQ(ending.signal, SIGKILL) << when;
      const std::string saved = home.read("cloud-token");
      EXPECT_TRUE(saved == kOldKey + "\n" || saved == kKey + "\n") << when << ": " << saved;
      ++(saved == kKey + "\n" ? replaced : kept);
      expectKeysArePrivate(home, when);
      EXPECT_EQ(runAction("connect", variables, kKey).status, 0) << "afterwards it can be saved";
      EXPECT_EQ(home.read("cloud-token"), kKey + "\n");
      EXPECT_EQ(unfinishedKeysIn(home), 0) << when;
    }
  }
  EXPECT_GT(kept, 0);
  EXPECT_GT(replaced, 0);
}

TEST_F(WebMeetings, FullDiskLeavesTheOldKeyAndNothingElse) {
  if (!test::kFaultsAvailable) GTEST_SKIP() << "needs LD_PRELOAD";
  saveKey(kOldKey);
  const std::vector<std::string> points = test::faultPoints(
      {.arguments = {"connect"}, .environment = environment()}, home_.path(), kKey);
  int failures = 0;
  for (std::size_t at = 0; at < points.size(); ++at) {
    saveKey(kOldKey);
    const auto ending =
        runAction("connect",
                  test::withFault(environment(), home_.path(),
                                  {.at = static_cast<int>(at) + 1, .how = "ENOSPC"}),
                  kKey);
    if (ending.status == 0) {  // of a call that is not needed for the key to be there
      EXPECT_EQ(home_.read("cloud-token"), kKey + "\n") << points[at];
    } else {
      ++failures;
      EXPECT_EQ(ending.output, "Not saved: could not write " + home_.file("cloud-token") +
                                   ": No space left on device\n")
          << points[at];
      EXPECT_EQ(home_.read("cloud-token"), kOldKey + "\n") << points[at];
    }
    EXPECT_THAT(home_.names(), ElementsAre("cloud-token")) << points[at];
  }
  EXPECT_GE(failures, 3);
}

TEST_F(WebMeetings, TemporaryFileOfAnEarlierProcessOfTheSameNumberIsNoObstacle) {
  ServerProcess::Options shell = {.arguments = {"-c",
                                                "echo stale >\"$1/.cloud-token.$$\"; chmod 644 "
                                                "\"$1/.cloud-token.$$\"; exec \"$0\" connect",
                                                VELTA_BINARY, home_.path()},
                                  .environment = environment(),
                                  .program = "/bin/sh"};
  const auto ending = runProgram(shell, kKey);
  EXPECT_EQ(ending.output, savedLines(home_, "0"));
  EXPECT_EQ(modeOf(home_.file("cloud-token")), 0600U);
  EXPECT_EQ(home_.read("cloud-token"), kKey + "\n");
  EXPECT_THAT(home_.names(), ElementsAre("cloud-token"));
}

// --- the key stays secret

TEST_F(WebMeetings, KeyIsInNoOutputAndInNoOtherFile) {
  home_.write("recordings/local/notes.json", "{}");
  EXPECT_EQ(runAction("connect", environment(), kKey).status, 0);
  configure(R"({"refresh_seconds": -1})");
  service_.put(kA, "1");
  ServerProcess server(options(environment()));
  std::string output = writeCompact(listMeetings(server));
  ASSERT_THAT(output, HasSubstr("cloud-" + kA));
  // From now on the service tells everybody what it got.
  service_.answerWith([](const LoopbackServer::Request& request) {
    return LoopbackServer::Reply{.body = "<p>" + request.header("authorization") + "</p>"};
  });
  output += writeCompact(listMeetings(server));
  EXPECT_THAT(output, HasSubstr("did not answer JSON (first bytes '<p>Bearer ***"));
  server.ask(toolCall("search_transcripts", R"({"query":")" + kA + "\"}"));
  const auto ending = server.finish();
  for (const std::string action : {"status", "connect"}) {
    const auto told = runAction(action, environment(), kKey);
    EXPECT_EQ(told.status, 1);
    output += told.output + told.errors;
  }
  output += ending.output + ending.errors;

  const std::string piece = kKey.substr(0, 18);  // and so no longer piece from the beginning
  EXPECT_THAT(output, Not(HasSubstr(piece)));
  EXPECT_THAT(output, Not(HasSubstr(kKey.substr(kKey.size() - 8))));
  EXPECT_TRUE(home_.has("activity.jsonl"));
  EXPECT_TRUE(home_.has(kCache));
  for (const auto& file : fs::recursive_directory_iterator(home_.path())) {
    if (!file.is_regular_file() || file.path().filename() == "cloud-token") continue;
    const std::string name = fs::relative(file.path(), home_.path());
    EXPECT_THAT(home_.read(name), Not(HasSubstr(piece))) << name;
  }
  EXPECT_EQ(modeOf(home_.file(kCache)), 0600U);
}

TEST_F(WebMeetings, KeyIsNotAmongTheArgumentsThatEverybodyCanRead) {
  if (!fs::exists("/proc/self/cmdline")) GTEST_SKIP() << "no /proc here";
  std::string arguments;
  pid_t pid = 0;
  std::mutex mutex;
  std::condition_variable known;
  service_.answerWith([&](const LoopbackServer::Request& request) {
    // While the program waits for this answer it has the key.
    std::unique_lock lock(mutex);
    known.wait(lock, [&] { return pid != 0; });
    std::ifstream stream("/proc/" + std::to_string(pid) + "/cmdline");
    std::getline(stream, arguments, '\n');
    return service_.usual(request);
  });
  ServerProcess process({.arguments = {"connect"}, .environment = environment()});
  {
    const std::lock_guard lock(mutex);
    pid = process.pid();
  }
  known.notify_all();
  process.write(kKey);
  EXPECT_EQ(process.finish().status, 0);
  EXPECT_EQ(arguments, VELTA_BINARY + std::string("\0connect\0", 9));
}

// --- progress

const std::string kErase = "\r\x1b[K";

// The server with a terminal as its standard error.
ServerProcess::Options withErrorsOn(const PseudoTerminal& terminal, Environment environment) {
  return {.arguments = {"-c", R"(exec "$0" --client claude-code 2>"$1")", VELTA_BINARY,
                        terminal.name()},
          .environment = std::move(environment),
          .program = "/bin/sh"};
}

TEST_F(WebMeetings, LongStartShowsOnATerminalHowFarItIsAndRemovesThat) {
  service_.put(kA, "1");
  std::mutex mutex;
  std::condition_variable changed;
  bool seen = false;
  service_.answerWith([&](const LoopbackServer::Request& request) {
    std::unique_lock lock(mutex);
    if (request.query.contains("ids")) changed.wait(lock, [&] { return seen; });
    return service_.usual(request);
  });
  PseudoTerminal terminal;
  ServerProcess server(withErrorsOn(terminal, withKey()));
  const std::string before = terminal.readUntil("web meetings: 1 listed");
  {
    const std::lock_guard lock(mutex);
    seen = true;
  }
  changed.notify_all();
  const std::string after = terminal.readUntil(" web=1\n");
  EXPECT_EQ(server.finish().status, 0);
  EXPECT_EQ(afterFirstLine(before), kErase + "web meetings: 1 listed");
  EXPECT_THAT(after, EndsWith(kErase + "index refreshed: meetings=1 changed=0 web=1\n"));
  EXPECT_EQ(terminal.rest(), "");
}

TEST_F(WebMeetings, QuickStartShowsOnATerminalNothingButItsLines) {
  service_.put(kA, "1");
  PseudoTerminal terminal;
  ServerProcess server(withErrorsOn(terminal, withKey()));
  listMeetings(server);
  EXPECT_EQ(server.finish().status, 0);
  EXPECT_EQ(afterFirstLine(terminal.rest()), "index refreshed: meetings=1 changed=0 web=1\n");
}

TEST_F(WebMeetings, LongStartShowsNoProgressWhereThereIsNoTerminalSlow) {
  service_.put(kA, "1");
  service_.answerWith([this](const LoopbackServer::Request& request) {
    // Longer than a start may take before progress is shown.
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    return service_.usual(request);
  });
  const auto ending = runProgram(options(withKey()));
  EXPECT_EQ(afterFirstLine(ending.errors), "index refreshed: meetings=1 changed=0 web=1\n");
}

}  // namespace
}  // namespace velta
