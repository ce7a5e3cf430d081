// Recordings as a client has them made: the built program, with a script in the pipeline's place.

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "support/DataHome.h"
#include "support/ServerProcess.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using test::DataHome;
using test::ServerProcess;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::chrono::seconds kPatience(30);

// Asks until `holds` says true. False when it does not within the time.
template <class Condition>
bool comesTrue(Condition holds) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// A data home with an audio file and a checkout, and servers on it. At the end it waits for the
// processes that were started, so that none is left behind.
class RecordingTest : public testing::Test {
 protected:
  RecordingTest() {
    home.write("checkout/pipeline/process_meeting.py", "");
    home.write("Talk.MP3", "");
    home.write("mcp-config.json",
               R"({"clients":{"owner":["private","work","shared"],"dashboard":["shared"]}})");
    const std::string allowed =
        R"({"tools":{"search_meetings":true,"read_notes":true,"process_recordings":true}})";
    home.write("agents.json",
               R"({"agents":{"owner":)" + allowed + R"(,"dashboard":)" + allowed + "}}");
    environment = home.environment();
    environment["VELTA_REPO"] = home.file("checkout");
    environment["VELTA_PIPELINE_PYTHON"] = VELTA_SOURCE_DIR "/tests/support/stub-pipeline";
    environment["ELEVENLABS_API_KEY"] = "secret";
  }

  ~RecordingTest() override {
    for (const fs::path& folder : folders()) {
      letGo(folder);
      EXPECT_TRUE(comesTrue([&] { return fs::exists(folder / "stub.ended"); })) << folder;
    }
  }

  void start(const std::string& client) {
    server.reset();
    server.emplace(
        ServerProcess::Options{.arguments = {"--client", client}, .environment = environment});
  }

  JSONObject call(const std::string& tool, const std::string& arguments) {
    const std::string line = R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":")" +
                             tool + R"(","arguments":)" + arguments + "}}";
    const JSON answer = parseJSON(server->ask(line));
    return *answer.asObject()->getObject("result");
  }

  // The result of a call that succeeds.
  JSONObject success(const std::string& tool, const std::string& arguments) {
    const JSONObject envelope = call(tool, arguments);
    EXPECT_EQ(envelope.getBool("isError"), false) << writeCompact(envelope);
    const JSONObject* result = envelope.getObject("structuredContent");
    return result ? *result : JSONObject();
  }

  // Starts a job; returns the result.
  JSONObject process(const std::string& title) {
    return success("process_recording",
                   R"({"path":")" + home.file("Talk.MP3") + R"(","title":")" + title + R"("})");
  }

  JSONObject job(const std::string& id) { return success("get_job", R"({"id":")" + id + R"("})"); }

  static std::string textOf(const JSONObject& object, std::string_view key) {
    return std::string(object.getString(key).value_or("(none)"));
  }

  // Polls a job until it is in `state`.
  JSONObject jobIn(const std::string& id, const std::string& state) {
    JSONObject last;
    EXPECT_TRUE(comesTrue([&] {
      last = job(id);
      return textOf(last, "state") == state;
    })) << writeCompact(last);
    return last;
  }

  std::vector<fs::path> folders() const {
    std::vector<fs::path> found;
    if (!home.has("recordings")) return found;
    for (const auto& entry : fs::directory_iterator(home.file("recordings")))
      found.push_back(entry.path());
    return found;
  }

  fs::path onlyFolder() const { return folders().at(0); }

  // The lines that the process wrote into a file of its folder.
  std::vector<std::string> noted(const std::string& name) const {
    return home.lines(onlyFolder().string().substr(home.path().size() + 1) + "/" + name);
  }

  // Lets a process that waits go on.
  void letGo(const fs::path& folder) const {
    home.write(folder.string().substr(home.path().size() + 1) + "/stub.go", "");
  }

  DataHome home;
  std::map<std::string, std::string> environment;
  std::optional<ServerProcess> server;
};

TEST_F(RecordingTest, WithoutThePermissionItIsDenied) {
  home.remove("agents.json");
  start("owner");
  for (const std::string tool : {"process_recording", "get_job"}) {
    const std::string answer = writeCompact(call(tool, R"({"path":"/x","id":"job-1"})"));
    EXPECT_THAT(answer, HasSubstr(tool + " is turned off for agent 'owner': it needs the "
                                         "permission process_recordings (Process recordings)"));
    EXPECT_THAT(answer, HasSubstr(R"("isError":true)"));
  }
  EXPECT_THAT(folders(), IsEmpty());
}

TEST_F(RecordingTest, RefusalIsAnErrorOfTheTool) {
  start("owner");
  EXPECT_EQ(writeCompact(call("process_recording", R"({"path":"/no/such.mp3"})")),
            R"({"content":[{"text":"Error executing tool process_recording: No file at )"
            R"(/no/such.mp3. Pass an absolute path to an audio file","type":"text"}],)"
            R"("isError":true})");
  EXPECT_THAT(writeCompact(call("get_job", R"({"id":"run-1"})")),
              HasSubstr("Error executing tool get_job: 'run-1' is not a job id. Job ids look like "
                        "job-20261012-153000-ab12cd"));
}

TEST_F(RecordingTest, FinishedRecordingCanBeReadAtOnce) {
  environment["STUB_STEPS"] = "transcribe notes";
  environment["STUB_WAIT"] = "1";
  start("owner");
  const std::string id = textOf(process("Weekly"), "job_id");
  EXPECT_EQ(job(id).get("meeting_id"), nullptr);
  letGo(onlyFolder());
  const JSONObject done = jobIn(id, "done");
  EXPECT_EQ(textOf(done, "next"), "Call get_meeting with meeting_id");
  EXPECT_EQ(done.getInt("index_meetings"), 1);
  const std::string meeting = textOf(done, "meeting_id");
  EXPECT_EQ(meeting, "rec-" + onlyFolder().filename().string());
  const std::string read = writeCompact(success("get_meeting", R"({"id":")" + meeting + R"("})"));
  EXPECT_THAT(read, HasSubstr(R"("id":")" + meeting + R"(")"));
  EXPECT_THAT(read, HasSubstr(R"("visibility":"private")"));
}

TEST_F(RecordingTest, ProcessIsStartedAsAPipelineExpects) {
  start("owner");
  jobIn(textOf(process("Weekly"), "job_id"), "done");
  const std::string folder = onlyFolder().string();
  EXPECT_THAT(noted("stub.arguments"),
              ElementsAre(environment["VELTA_PIPELINE_PYTHON"],
                          home.file("checkout/pipeline/process_meeting.py"), folder,
                          "--import-audio", home.file("Talk.MP3"), "--no-open"));
  EXPECT_THAT(noted("stub.directory"), ElementsAre(home.file("checkout")));
  for (const auto& [name, value] : environment)
    EXPECT_THAT(noted("stub.environment"), Contains(name + "=" + value));
  EXPECT_THAT(noted("job.log"), ElementsAre("stub: started"));
}

TEST_F(RecordingTest, ProcessOutlivesTheServer) {
  environment["STUB_STEPS"] = "transcribe";
  environment["STUB_WAIT"] = "1";
  start("owner");
  const std::string id = textOf(process("Weekly"), "job_id");
  EXPECT_TRUE(comesTrue([&] { return textOf(job(id), "step") == "transcribe"; }));
  EXPECT_EQ(server->finish().status, 0);
  start("owner");
  const JSONObject running = job(id);
  EXPECT_EQ(textOf(running, "state"), "running");
  EXPECT_EQ(textOf(running, "step"), "transcribe");
  letGo(onlyFolder());
  EXPECT_EQ(textOf(jobIn(id, "done"), "meeting_id"), "rec-" + onlyFolder().filename().string());
}

TEST_F(RecordingTest, ProcessOutlivesAKilledServer) {
  environment["STUB_WAIT"] = "1";
  start("owner");
  const std::string id = textOf(process("Weekly"), "job_id");
  server.reset();  // SIGKILL
  letGo(onlyFolder());
  start("owner");
  jobIn(id, "done");
}

TEST_F(RecordingTest, ProcessThatDiesInMidStepHasFailedWithReasonAndLog) {
  environment["STUB_STEPS"] = "transcribe";
  environment["STUB_END"] = "die";
  start("owner");
  const JSONObject failed = jobIn(textOf(process("Weekly"), "job_id"), "failed");
  EXPECT_EQ(textOf(failed, "step"), "transcribe");
  EXPECT_EQ(textOf(failed, "reason"),
            "The pipeline process exited without a status. Most likely it could not start (python, "
            "ffmpeg or key missing)");
  EXPECT_EQ(writeCompact(*failed.get("log_tail")),
            R"(["stub: started","stub: transcribe","stub: out of memory",""])");
  EXPECT_EQ(failed.get("meeting_id"), nullptr);
}

TEST_F(RecordingTest, ProcessThatReportsItsFailureIsQuoted) {
  environment["STUB_END"] = "failed";
  start("owner");
  const JSONObject failed = jobIn(textOf(process("Weekly"), "job_id"), "failed");
  EXPECT_EQ(textOf(failed, "detail"), "no speech found");
  EXPECT_EQ(failed.get("reason"), nullptr);
  EXPECT_EQ(textOf(failed, "next"),
            "Fix the cause named in detail or log_tail, then call process_recording again");
}

TEST_F(RecordingTest, ProgramThatCannotStartIsNamed) {
  environment["VELTA_PIPELINE_PYTHON"] = "/no/such/python";
  start("owner");
  EXPECT_THAT(
      writeCompact(call("process_recording", R"({"path":")" + home.file("Talk.MP3") + R"("})")),
      HasSubstr("Error executing tool process_recording: could not start /no/such/python: "
                "No such file or directory"));
  ASSERT_EQ(folders().size(), 1U);
  EXPECT_TRUE(fs::remove_all(onlyFolder()) > 0);  // nothing ran in it
}

TEST_F(RecordingTest, ClientWithoutPrivateMeetingsSeesTheStateOnly) {
  constexpr const char* kNote =
      "This meeting is private; this client sees job status only, never its content";
  start("dashboard");
  const JSONObject started = process("Weekly");
  EXPECT_THAT(started.keys(), ElementsAre("job_id", "state", "visibility", "next", "note"));
  EXPECT_EQ(textOf(started, "note"), kNote);
  const JSONObject done = jobIn(textOf(started, "job_id"), "done");
  EXPECT_THAT(done.keys(), ElementsAre("job_id", "state", "step", "updated_at", "created_at",
                                       "note", "index_meetings"));
  EXPECT_EQ(textOf(done, "note"), kNote);
  EXPECT_THAT(writeCompact(call("get_meeting",
                                R"({"id":"rec-)" + onlyFolder().filename().string() + R"("})")),
              HasSubstr(R"("isError":true)"));
}

TEST_F(RecordingTest, DoneRecordingOutsideTheSourcesIsPointedOut) {
  home.write("mcp-config.json", R"({"sources":[],"clients":{"owner":["private"]}})");
  start("owner");
  const JSONObject done = jobIn(textOf(process("Weekly"), "job_id"), "done");
  EXPECT_THAT(textOf(done, "warning"),
              HasSubstr("Processing finished but the meeting is not in the index."));
  EXPECT_EQ(done.getInt("index_meetings"), 0);
}

#ifdef __linux__

// Children of `parent` that have ended and were not waited for.
int defunctChildren(pid_t parent) {
  int found = 0;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::ifstream stream(entry.path() / "stat");
    std::string stat;
    std::getline(stream, stat);                // nothing, of what is no process or none any more
    const std::size_t name = stat.rfind(')');  // a name may hold anything
    if (name == std::string::npos) continue;
    const std::string wanted = " Z " + std::to_string(parent) + " ";
    if (stat.compare(name + 1, wanted.size(), wanted) == 0) ++found;
  }
  return found;
}

// A signal in the sets of /proc/PID/status.
std::uint64_t bitOf(int signal) { return std::uint64_t{1} << static_cast<unsigned>(signal - 1); }

// The ignored ones among the signal lines of /proc/PID/status.
std::uint64_t ignoredSignals(const std::vector<std::string>& lines) {
  constexpr std::string_view kName = "SigIgn:\t";
  for (const std::string& line : lines)
    if (line.starts_with(kName)) return std::stoull(line.substr(kName.size()), nullptr, 16);
  throw std::runtime_error("no ignored signals were noted");
}

TEST_F(RecordingTest, HundredJobsLeaveNoDefunctProcess) {
  start("owner");
  std::vector<std::string> ids;
  for (int count = 0; count < 100; ++count) {
    ids.push_back(textOf(process("Weekly"), "job_id"));
    jobIn(ids.back(), "done");
  }
  EXPECT_EQ(folders().size(), 100U);
  // A job is done a moment before its process has ended; asked again, none is left.
  EXPECT_TRUE(comesTrue([&] {
    for (const std::string& id : ids) job(id);
    return defunctChildren(server->pid()) == 0;
  }));
  EXPECT_THAT(server->errorsSoFar(), Not(HasSubstr("could not")));
}

TEST_F(RecordingTest, EndedProcessStaysDefunctUntilItsJobIsAskedFor) {
  start("owner");
  const std::string id = textOf(process("Weekly"), "job_id");
  EXPECT_TRUE(comesTrue([&] { return defunctChildren(server->pid()) == 1; }));
  EXPECT_EQ(textOf(job(id), "state"), "done");
  EXPECT_EQ(defunctChildren(server->pid()), 0);
}

TEST_F(RecordingTest, ProcessHasASessionOfItsOwnAndNothingOfTheServers) {
  start("owner");
  jobIn(textOf(process("Weekly"), "job_id"), "done");
  const std::string ids = noted("stub.session").at(0);
  EXPECT_EQ(ids.substr(0, ids.find(' ')), ids.substr(ids.find(' ') + 1));
  EXPECT_THAT(noted("stub.signals"), Contains("SigBlk:\t0000000000000000"));
  EXPECT_EQ(ignoredSignals(noted("stub.signals")) & (bitOf(SIGPIPE) | bitOf(SIGXFSZ)), 0U);
  for (const std::string& descriptor : noted("stub.descriptors")) {
    const std::size_t arrow = descriptor.find(" -> ");
    if (arrow == std::string::npos) continue;
    const std::string target = descriptor.substr(arrow + 4);
    EXPECT_TRUE(target == "/dev/null" || target.starts_with(onlyFolder().string()) ||
                target == environment["VELTA_PIPELINE_PYTHON"])
        << descriptor;
  }
}

#endif

}  // namespace
}  // namespace velta
