// Clients that go without a farewell, in every way that they can: the server ends by itself, with
// the status that it should, and leaves no process behind.

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
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
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __linux__
#include <sys/prctl.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "support/DataHome.h"

namespace velta {
namespace {

using test::DataHome;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr std::chrono::seconds kPatience(60);

const std::string kInitialize =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-06-18"}})";
const std::string kPing = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";
const std::string kPong = R"({"jsonrpc":"2.0","id":1,"result":{}})";

std::string callOf(const std::string& tool, const std::string& arguments) {
  return R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":")" + tool +
         R"(","arguments":)" + arguments + "}}";
}

const std::string kLargeCall =
    callOf("get_transcript", R"({"id":"rec-long","limit":2000})");  // an answer of half a megabyte

// Asks until `holds` says true. False when it does not within the time.
template <class Condition>
bool comesTrue(Condition holds) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// --- descriptors

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;
};

Pipe makePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error(std::strerror(errno));
  return {ends[0], ends[1]};
}

void closeEnd(int& descriptor) {
  if (descriptor >= 0) ::close(descriptor);
  descriptor = -1;
}

void writeWhole(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count <= 0) throw std::runtime_error(std::string("write: ") + std::strerror(errno));
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

std::string readSome(int descriptor) {
  char buffer[65536];
  const ssize_t count = ::read(descriptor, buffer, sizeof buffer);
  return {buffer, count > 0 ? static_cast<std::size_t>(count) : 0};
}

std::string readToEnd(int descriptor) {
  std::string text;
  for (std::string piece = readSome(descriptor); !piece.empty(); piece = readSome(descriptor))
    text += piece;
  return text;
}

std::string readLine(int descriptor) {
  std::string line;
  for (char byte = 0; ::read(descriptor, &byte, 1) == 1 && byte != '\n';) line += byte;
  return line;
}

// Whether whoever writes there waits for somebody to read.
bool isFull(int readEnd) {
  int held = 0;
  return ::ioctl(readEnd, FIONREAD, &held) == 0 && held == ::fcntl(readEnd, F_GETPIPE_SZ);
}

// --- processes

struct Ending {
  int status = -1;  // exit status, -1 when a signal ended it
  int signal = 0;   // the signal that ended it
};

// A server and our ends of its pipes. Copies mean the same.
struct Server {
  pid_t pid = -1;
  int input = -1;
  int output = -1;

  void say(const std::string& line) const { writeWhole(input, line + "\n"); }
  void close() {
    closeEnd(input);
    closeEnd(output);
  }
};

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Starts a server whose standard error is `errors`. It holds no other descriptor of ours.
Server start(const std::map<std::string, std::string>& variables, int errors) {
  const Pipe in = makePipe();
  const Pipe out = makePipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.readEnd, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out.writeEnd, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  // What the test does with signals is no business of the server's.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigfillset(&defaults);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  std::vector<std::string> arguments = {VELTA_BINARY, "--client", "owner"};
  std::vector<std::string> environment;
  for (const auto& [name, value] : variables)
    environment.push_back(std::string(name).append("=").append(value));
  Server server{.input = in.writeEnd, .output = out.readEnd};
  const int error = ::posix_spawn(&server.pid, VELTA_BINARY, &actions, &attributes,
                                  pointersTo(arguments).data(), pointersTo(environment).data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  ::close(in.readEnd);
  ::close(out.writeEnd);
  if (error != 0) throw std::runtime_error(std::strerror(error));
  return server;
}

// Processes whose parent is this one.
std::vector<std::string> ownChildren() {
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::ifstream stream(entry.path() / "stat");
    std::string stat;
    std::getline(stream, stat);                // nothing, of what is no process or none any more
    const std::size_t name = stat.rfind(')');  // a name may hold anything
    if (name == std::string::npos) continue;
    const std::string parent = " " + std::to_string(::getpid()) + " ";
    if (stat.compare(name + 3, parent.size(), parent) == 0) found.push_back(stat);
  }
  return found;
}

// A data home with a long and a short meeting, and the death of a client of a server on it.
class ClientDeathTest : public testing::Test {
 protected:
  ClientDeathTest() {
    std::signal(SIGPIPE, SIG_IGN);
    // A process that loses its parent becomes a child of the test, which can wait for it then and
    // sees that there is none.
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    home.write("agents.json",
               R"({"agents":{"owner":{"tools":{"read_transcripts":true,"add_terms":true,)"
               R"("process_recordings":true}}}})");
    addRecording("long", 2000);
    addRecording("short", 1);
    errors = ::open(home.file("stderr").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  }

  ~ClientDeathTest() override {
    server.close();
    ::close(errors);
    if (server.pid > 0) ::kill(server.pid, SIGKILL);
    EXPECT_THAT(ownChildren(), IsEmpty());
    for (const std::string& name : home.names()) EXPECT_THAT(name, Not(HasSubstr(".tmp")));
    if (home.has("activity.jsonl")) {
      EXPECT_THAT(home.read("activity.jsonl"), EndsWith("}\n"));
      EXPECT_THAT(home.lines("activity.jsonl"), Each(StartsWith(R"({"time":")")));
    }
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
  }

  void addRecording(const std::string& name, int lines) const {
    std::string notes = R"({"title":"A","started_at":"2020-10-12T15:30:00+08:00","lines":[)";
    for (int i = 0; i < lines; ++i)
      notes += std::string(i > 0 ? "," : "") + R"({"text":"deposit )" + std::string(100, 'x') +
               R"(","t_start":)" + std::to_string(i) + "}";
    home.write("recordings/" + name + "/notes.json", notes + "]}");
  }

  std::map<std::string, std::string> environment() const {
    auto variables = home.environment();
    variables["VELTA_REPO"] = home.file("checkout");
    variables["VELTA_PIPELINE_PYTHON"] = VELTA_SOURCE_DIR "/tests/support/stub-pipeline";
    variables["ELEVENLABS_API_KEY"] = "secret";
    variables["STUB_WAIT"] = "1";
    return variables;
  }

  void startServer() { server = start(environment(), errors); }

  // Has a client, a process of its own, start the server and do `deeds` with it; then the client
  // is killed. Only the client has the other ends of the server's pipes.
  void serverOfKilledClient(const std::function<void(const Server&)>& deeds) {
    Pipe told = makePipe();
    const pid_t client = ::fork();
    if (client == 0) {
      try {
        const Server own = start(environment(), errors);
        deeds(own);
        writeWhole(told.writeEnd, std::to_string(own.pid) + "\n");
        while (true) ::pause();
      } catch (const std::exception& error) {
        writeWhole(told.writeEnd, error.what());
      }
      ::_exit(1);
    }
    closeEnd(told.writeEnd);
    const std::string pid = readLine(told.readEnd);
    ::kill(client, SIGKILL);
    ::waitpid(client, nullptr, 0);
    closeEnd(told.readEnd);
    server.pid = std::atoi(pid.c_str());
    ASSERT_GT(server.pid, 0) << "the client failed: " << pid;
  }

  // How the server ends by itself.
  Ending waitForServer() {
    int status = 0;
    const bool ended =
        comesTrue([&] { return ::waitpid(server.pid, &status, WNOHANG) == server.pid; });
    EXPECT_TRUE(ended) << "the server runs on";
    if (!ended) return {};
    server.pid = -1;
    if (WIFSIGNALED(status)) return {.signal = WTERMSIG(status)};
    return {.status = WEXITSTATUS(status)};
  }

  void expectUsualEnd() {
    const Ending ending = waitForServer();
    EXPECT_EQ(ending.signal, 0);
    EXPECT_EQ(ending.status, 0);
  }

  // The data home as the next client finds it.
  void expectNextServerAnswers() {
    startServer();
    server.say(kPing);
    EXPECT_EQ(readLine(server.output), kPong);
    server.close();
    expectUsualEnd();
  }

  DataHome home;
  int errors = -1;
  Server server;
};

TEST_F(ClientDeathTest, HalfALineAndBothEndsClosed) {
  startServer();
  server.say(kPing);
  EXPECT_EQ(readLine(server.output), kPong);
  writeWhole(server.input, kPing.substr(0, 20));
  server.close();
  expectUsualEnd();
  expectNextServerAnswers();
}

TEST_F(ClientDeathTest, HalfALineAndTheClientKilled) {
  serverOfKilledClient([](const Server& own) {
    own.say(kPing);
    if (readLine(own.output) != kPong) throw std::runtime_error("no pong");
    writeWhole(own.input, kPing.substr(0, 20));
  });
  expectUsualEnd();
  expectNextServerAnswers();
}

TEST_F(ClientDeathTest, MegabytesWithoutTheEndOfTheLineAndTheClientKilled) {
  serverOfKilledClient([](const Server& own) {
    writeWhole(own.input, R"({"jsonrpc":"2.0","id":")" + std::string(5'000'000, 'x'));
  });
  expectUsualEnd();
}

TEST_F(ClientDeathTest, KilledWhileTheServerWaitsForARequest) {
  serverOfKilledClient([](const Server& own) {
    own.say(kPing);
    if (readLine(own.output) != kPong) throw std::runtime_error("no pong");
  });
  expectUsualEnd();
}

TEST_F(ClientDeathTest, KilledBetweenInitializeAndInitialized) {
  serverOfKilledClient([](const Server& own) {
    own.say(kInitialize);
    if (readLine(own.output).find("2025-06-18") == std::string::npos)
      throw std::runtime_error("not initialized");
  });
  expectUsualEnd();
  expectNextServerAnswers();
}

TEST_F(ClientDeathTest, NeverReadsLargeAnswersAndClosesBothEnds) {
  startServer();
  for (int i = 0; i < 100; ++i) server.say(kLargeCall);
  EXPECT_TRUE(comesTrue([&] { return isFull(server.output); }));
  EXPECT_EQ(::waitpid(server.pid, nullptr, WNOHANG), 0) << "it waits, and lives";
  server.close();
  expectUsualEnd();
  // It was stuck in the first answer and did not go on with the other calls.
  EXPECT_EQ(home.lines("activity.jsonl").size(), 1U);
}

TEST_F(ClientDeathTest, KilledWhileTheServerIsStuckInAnAnswer) {
  serverOfKilledClient([](const Server& own) {
    own.say(kLargeCall);
    own.say(kLargeCall);
    if (!comesTrue([&] { return isFull(own.output); })) throw std::runtime_error("not full");
  });
  expectUsualEnd();
  expectNextServerAnswers();
}

TEST_F(ClientDeathTest, ReadingEndClosedInMidAnswer) {
  startServer();
  server.say(kLargeCall);
  EXPECT_THAT(readSome(server.output), StartsWith(R"({"jsonrpc":"2.0","id":2,"result":)"));
  EXPECT_TRUE(comesTrue([&] { return isFull(server.output); }));
  closeEnd(server.output);
  expectUsualEnd();  // its input is still open
}

TEST_F(ClientDeathTest, ReadingEndClosedBetweenTwoAnswers) {
  startServer();
  server.say(kPing);
  EXPECT_EQ(readLine(server.output), kPong);
  closeEnd(server.output);
  EXPECT_EQ(::waitpid(server.pid, nullptr, WNOHANG), 0) << "it cannot know yet";
  server.say(kPing);
  expectUsualEnd();
}

TEST_F(ClientDeathTest, InputClosedAfterRequestsThatAreAnsweredAllTheSame) {
  startServer();
  for (int i = 0; i < 20; ++i) server.say(kLargeCall);
  server.say(kPing);
  closeEnd(server.input);
  std::istringstream answers(readToEnd(server.output));
  std::string answer;
  for (int i = 0; i < 20; ++i) {
    std::getline(answers, answer);
    EXPECT_NE(answer.find(R"("count":2000,"truncated":false)"), std::string::npos);
    EXPECT_TRUE(answer.ends_with("}}}")) << answer.substr(answer.size() - 100);
  }
  std::getline(answers, answer);
  EXPECT_EQ(answer, kPong);
  EXPECT_FALSE(std::getline(answers, answer));
  expectUsualEnd();
}

TEST_F(ClientDeathTest, BothEndsClosedAtOnceWithoutAWord) {
  startServer();
  server.close();
  expectUsualEnd();
}

TEST_F(ClientDeathTest, ReaderOfStandardErrorGoneWhileTheClientStays) {
  Pipe diagnostics = makePipe();
  server = start(environment(), diagnostics.writeEnd);
  closeEnd(diagnostics.writeEnd);
  EXPECT_THAT(readLine(diagnostics.readEnd), HasSubstr("client=owner"));
  EXPECT_THAT(readLine(diagnostics.readEnd), HasSubstr("index refreshed"));
  closeEnd(diagnostics.readEnd);
  for (int i = 0; i < 3; ++i) {  // a warning each
    home.write("agents.json", "{" + std::string(static_cast<std::size_t>(i), ' '));
    server.say(callOf("list_meetings", "{}"));
    EXPECT_THAT(readLine(server.output), HasSubstr(R"("isError":false)"));
  }
  server.close();
  expectUsualEnd();
}

TEST_F(ClientDeathTest, KilledBeforeTheIndexIsBuilt) {
  for (int number = 0; number < 300; ++number) addRecording("many-" + std::to_string(number), 100);
  // Killed when the server has said who it is and not yet that it read everything. A machine that
  // looks away at that moment is given further chances.
  bool wasBuilding = false;
  for (int attempt = 0; attempt < 20 && !wasBuilding; ++attempt) {
    ASSERT_EQ(::ftruncate(errors, 0), 0);
    ASSERT_NO_FATAL_FAILURE(serverOfKilledClient([&](const Server&) {
      comesTrue([&] { return home.read("stderr").find("client=owner") != std::string::npos; });
    }));
    wasBuilding = home.read("stderr").find("index refreshed") == std::string::npos;
    expectUsualEnd();
    EXPECT_THAT(home.read("stderr"), HasSubstr("index refreshed: meetings=302 changed=302"));
  }
  EXPECT_TRUE(wasBuilding);
}

TEST_F(ClientDeathTest, KilledWhileARecordingIsMadeWhichGoesOn) {
  home.write("checkout/pipeline/process_meeting.py", "");
  home.write("Talk.MP3", "");
  serverOfKilledClient([&](const Server& own) {
    own.say(
        callOf("process_recording", R"({"title":"Talk","path":")" + home.file("Talk.MP3") + "\"}"));
    const std::string answer = readLine(own.output);
    if (answer.find(R"("state":"running")") == std::string::npos) throw std::runtime_error(answer);
  });
  expectUsualEnd();
  EXPECT_EQ(ownChildren().size(), 1U) << "the pipeline's process lives on, as an orphan";

  const std::string record =
      std::filesystem::directory_iterator(home.file("jobs"))->path().stem().string();
  const auto state = [&] {
    server.say(callOf("get_job", R"({"id":")" + record + R"("})"));
    return readLine(server.output);
  };
  startServer();
  EXPECT_THAT(state(), HasSubstr(R"("state":"running")"));
  const JSON job = parseJSON(home.read("jobs/" + record + ".json"));
  const std::string folder(*job.asObject()->getString("folder"));
  home.write(folder.substr(home.path().size() + 1) + "/stub.go", "");
  int status = 0;
  const auto process = static_cast<pid_t>(*job.asObject()->getInt("pid"));
  EXPECT_TRUE(comesTrue([&] { return ::waitpid(process, &status, WNOHANG) == process; }));
  EXPECT_EQ(status, 0);
  EXPECT_THAT(state(), HasSubstr(R"("next":"Call get_meeting with meeting_id")"));
  server.close();
  expectUsualEnd();
}

TEST_F(ClientDeathTest, KilledWhileTermsAreAdded) {
  serverOfKilledClient([](const Server& own) {
    for (int i = 0; i < 200; ++i)
      own.say(callOf("add_term", R"({"right":"r","wrong":"w)" + std::to_string(i) + "\"}"));
    for (int i = 0; i < 5; ++i) readLine(own.output);
  });
  expectUsualEnd();
  const JSON dictionary = parseJSON(home.read("dictionary.json"));
  EXPECT_GE(dictionary.asObject()->getArray("terms")->size(), 5U);
}

TEST_F(ClientDeathTest, SignalsThatEndTheServerDoSoInMidAnswer) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
    startServer();
    server.say(kPing);
    EXPECT_EQ(readLine(server.output), kPong);
    server.say(kLargeCall);
    EXPECT_TRUE(comesTrue([&] { return isFull(server.output); }));
    ASSERT_EQ(::kill(server.pid, signal), 0);
    EXPECT_EQ(waitForServer().signal, signal);
    server.close();
  }
  expectNextServerAnswers();
}

}  // namespace
}  // namespace velta

#endif
