#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ios>
#include <optional>
#include <regex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/StoreError.h"
#include "jobs/Jobs.h"
#include "jobs/Pipeline.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "support/DataHome.h"
#include "support/TimeZone.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using test::DataHome;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

const Instant kNow = instantFromSeconds(1791790200);  // 2026-10-12T15:30:00+08:00

constexpr const char* kNotAnAudioType =
    " is not an audio type the pipeline takes (.aac, .aif, .aiff, .caf, .flac, .m4a, .mov, .mp3, "
    ".mp4, .ogg, .opus, .wav, .webm)";
constexpr const char* kPipelineNotFound =
    "Pipeline not found: pipeline/process_meeting.py needs the Velta source checkout. Next step: "
    "set VELTA_REPO to the checkout in the MCP client's env, or process the recording in Velta.app";
constexpr const char* kNoPython =
    "No Python 3.11 to 3.14 for the pipeline. Next step: install Python 3.13 from python.org or "
    "Homebrew, or set VELTA_PIPELINE_PYTHON";

const std::vector<std::string> kOwner = {"private", "work", "shared"};
const std::vector<std::string> kDashboard = {"work", "shared"};

// The message of the StoreError that `action` throws; empty when it throws none.
template <class Action>
std::string refusalOf(Action action) {
  try {
    action();
  } catch (const StoreError& error) {
    return error.what();
  }
  return "";
}

// Jobs on a data home of their own, beside a checkout and an audio file, whose processes are only
// noted down.
class TestJobs {
 public:
  struct Started {
    std::vector<std::string> arguments;
    std::string workingDirectory;
    std::string logFile;
  };

  TestJobs() {
    folder.write("checkout/pipeline/process_meeting.py", "");
    audio = folder.write("Talk.m4a", "");
    config.home = folder.file("data");
    config.env = {{"HOME", folder.file("user")},
                  {"VELTA_REPO", checkout()},
                  {"VELTA_PIPELINE_PYTHON", "/opt/python"},
                  {"ELEVENLABS_API_KEY", "secret"}};
  }

  std::string checkout() const { return folder.file("checkout"); }

  Jobs jobs() {
    Jobs jobs(config, executable);
    jobs.spawn = [this](const std::vector<std::string>& arguments,
                        const std::string& workingDirectory, const std::string& logFile) -> pid_t {
      started.push_back({arguments, workingDirectory, logFile});
      return 4242;
    };
    jobs.alive = [this](pid_t pid) {
      asked.push_back(pid);
      return isAlive;
    };
    return jobs;
  }

  JSONObject process(const Jobs::ProcessArguments& arguments) {
    return jobs().processRecording(arguments, "claude-code", kNow);
  }

  // Starts a job; returns the meeting folder.
  std::string folderOf(const Jobs::ProcessArguments& arguments) {
    process(arguments);
    return fs::path(started.back().logFile).parent_path().string();
  }

  std::string refusal(const Jobs::ProcessArguments& arguments) {
    return refusalOf([&] { process(arguments); });
  }
  std::string refusal() { return refusal({.path = audio}); }

  // Writes the record of job-1 (whose folder is data/meeting) and its status file.
  void setJob(const std::string& status, const std::string& more = "") const {
    folder.write("data/jobs/job-1.json",
                 R"({"id":"job-1","folder":")" + folder.file("data/meeting") +
                     R"(","pid":77,"created_at":"then","meeting_id":"rec-1")" + more + "}");
    folder.write("data/meeting/status.json", status);
  }

  // The answer for a job.
  std::string get(const std::vector<std::string>& allowed = kOwner,
                  const std::string& id = "job-1") {
    return writeCompact(jobs().getJob(id, allowed,
                                      {[this] {
                                         ++refreshes;
                                         return std::size_t{12};
                                       },
                                       [this](const std::string& meeting) {
                                         lookedUp.push_back(meeting);
                                         return isIndexed;
                                       }}));
  }

  DataHome folder;
  Config config;
  std::string executable = "/nowhere/velta-mcp";
  std::string audio;
  std::vector<Started> started;
  std::vector<pid_t> asked;
  bool isAlive = true;
  bool isIndexed = true;
  int refreshes = 0;
  std::vector<std::string> lookedUp;

 private:
  TimeZone zone_{"Asia/Taipei"};
};

// --- process_recording: the checks
// -----------------------------------------------------------------

TEST(ProcessRecording, FirstCheckThatFailsSpeaks) {
  TestJobs jobs;
  jobs.config.env["VELTA_REPO"] = jobs.folder.file("empty");
  const std::string missing = jobs.folder.file("notes.txt");
  Jobs::ProcessArguments arguments = {.path = missing, .language = "en"};
  EXPECT_THAT(jobs.refusal(arguments), StartsWith("No file at "));
  jobs.folder.write("notes.txt", "");
  EXPECT_THAT(jobs.refusal(arguments), StartsWith(".txt is not an audio type"));
  arguments.path = jobs.audio;
  EXPECT_THAT(jobs.refusal(arguments), StartsWith("language 'en' is not supported"));
  arguments.language = "zh";
  EXPECT_EQ(jobs.refusal(arguments), kPipelineNotFound);
  EXPECT_FALSE(jobs.folder.has("data"));
  jobs.config.env["VELTA_REPO"] = jobs.checkout();
  EXPECT_EQ(jobs.refusal(arguments), "");
}

TEST(ProcessRecording, MissingFileIsNamed) {
  TestJobs jobs;
  EXPECT_EQ(jobs.refusal({.path = "/no/such.mp3"}),
            "No file at /no/such.mp3. Pass an absolute path to an audio file");
  EXPECT_EQ(jobs.refusal({.path = ""}), "No file at . Pass an absolute path to an audio file");
}

TEST(ProcessRecording, DirectoryIsNoFile) {
  TestJobs jobs;
  const std::string directory = jobs.folder.makeFolder("folder.mp3");
  EXPECT_EQ(jobs.refusal({.path = directory}),
            "No file at " + directory + ". Pass an absolute path to an audio file");
}

TEST(ProcessRecording, MissingFileInTheHomeIsNamedByItsExpandedPath) {
  TestJobs jobs;
  EXPECT_EQ(jobs.refusal({.path = "~/missing.m4a"}),
            "No file at " + jobs.folder.file("user/missing.m4a") +
                ". Pass an absolute path to an audio file");
}

TEST(ProcessRecording, PathWithANULByteIsNoFile) {
  TestJobs jobs;
  EXPECT_THAT(jobs.refusal({.path = jobs.audio + '\0' + ".m4a"}), StartsWith("No file at "));
}

TEST(ProcessRecording, FileInTheHomeIsFound) {
  TestJobs jobs;
  jobs.folder.write("user/talk.wav", "");
  EXPECT_EQ(jobs.refusal({.path = "~/talk.wav"}), "");
  EXPECT_EQ(jobs.started.at(0).arguments.at(4), jobs.folder.file("user/talk.wav"));
}

TEST(ProcessRecording, RelativePathReachesTheChildAsAnAbsoluteOne) {
  TestJobs jobs;
  const std::string relative = fs::relative(jobs.audio).string();
  ASSERT_FALSE(relative.starts_with('/'));
  EXPECT_EQ(jobs.refusal({.path = relative}), "");
  const std::string& given = jobs.started.at(0).arguments.at(4);
  EXPECT_THAT(given, StartsWith("/"));
  EXPECT_TRUE(fs::equivalent(given, jobs.audio));
}

TEST(ProcessRecording, EveryAudioTypeIsTakenInAnyCase) {
  TestJobs jobs;
  for (const std::string type : {"m4a", "mp3", "wav", "aac", "flac", "ogg", "opus", "webm", "mp4",
                                 "mov", "caf", "aiff", "aif", "MP3", "Wav"})
    EXPECT_EQ(jobs.refusal({.path = jobs.folder.write("Talk." + type, "")}), "") << type;
}

TEST(ProcessRecording, OtherTypesAreRefusedAsWritten) {
  TestJobs jobs;
  const auto refusal = [&](const std::string& name) {
    return jobs.refusal({.path = jobs.folder.write(name, "")});
  };
  EXPECT_EQ(refusal("notes.txt"), std::string(".txt") + kNotAnAudioType);
  EXPECT_EQ(refusal("Notes.TXT"), std::string(".TXT") + kNotAnAudioType);
  EXPECT_EQ(refusal("talk.mp3.gz"), std::string(".gz") + kNotAnAudioType);
}

TEST(ProcessRecording, FileWithoutAnExtensionIsRefusedWithNothingBeforeTheMessage) {
  TestJobs jobs;
  for (const std::string name : {"notes", ".mp3", "mp3.", "folder.mp3/talk"})
    EXPECT_EQ(jobs.refusal({.path = jobs.folder.write(name, "")}), kNotAnAudioType) << name;
}

TEST(ProcessRecording, OnlyChineseIsTakenExactlyAsWritten) {
  TestJobs jobs;
  for (const std::string language : {"", "zho", "zh", "zh-TW", "zh-tw"})
    EXPECT_EQ(jobs.refusal({.path = jobs.audio, .language = language}), "") << language;
  for (const std::string language : {"ZH", "zh-Tw", "en", " zh", "zh "})
    EXPECT_EQ(jobs.refusal({.path = jobs.audio, .language = language}),
              "language '" + language +
                  "' is not supported yet: the pipeline always transcribes as Chinese (zho) and "
                  "has no language flag");
}

// --- process_recording: checkout and interpreter
// ---------------------------------------------------

TEST(ProcessRecording, NamedCheckoutWithoutThePipelineIsNotReplacedByAnother) {
  TestJobs jobs;
  jobs.executable = jobs.folder.file("checkout/build/velta-mcp");
  jobs.config.env["VELTA_REPO"] = jobs.folder.makeFolder("empty");
  EXPECT_EQ(jobs.refusal(), kPipelineNotFound);
  EXPECT_THAT(jobs.started, IsEmpty());
}

TEST(ProcessRecording, NamedCheckoutMayLieInTheHome) {
  TestJobs jobs;
  jobs.folder.write("user/src/pipeline/process_meeting.py", "");
  jobs.config.env["VELTA_REPO"] = "~/src";
  EXPECT_EQ(jobs.refusal(), "");
  EXPECT_EQ(jobs.started.at(0).workingDirectory, jobs.folder.file("user/src"));
}

TEST(ProcessRecording, CheckoutIsFoundUpToFiveFoldersAboveTheExecutable) {
  TestJobs jobs;
  for (const bool isEmpty : {true, false}) {
    if (isEmpty) jobs.config.env["VELTA_REPO"] = "";
    if (!isEmpty) jobs.config.env.erase("VELTA_REPO");
    for (const std::string place : {"", "a/", "a/b/c/d/e/"}) {
      jobs.executable = jobs.folder.file("checkout/" + place + "velta-mcp");
      EXPECT_EQ(jobs.refusal(), "") << place;
      EXPECT_EQ(jobs.started.back().workingDirectory, jobs.checkout());
    }
    jobs.executable = jobs.folder.file("checkout/a/b/c/d/e/f/velta-mcp");
    EXPECT_EQ(jobs.refusal(), kPipelineNotFound);
  }
}

TEST(ProcessRecording, NearestCheckoutWins) {
  TestJobs jobs;
  jobs.config.env.erase("VELTA_REPO");
  jobs.folder.write("checkout/inner/pipeline/process_meeting.py", "");
  jobs.executable = jobs.folder.file("checkout/inner/bin/velta-mcp");
  EXPECT_EQ(jobs.refusal(), "");
  EXPECT_EQ(jobs.started.at(0).workingDirectory, jobs.folder.file("checkout/inner"));
}

TEST(ProcessRecording, ExecutableAtTheRootOrUnknownHasNoCheckout) {
  TestJobs jobs;
  jobs.config.env.erase("VELTA_REPO");
  // A pipeline in the folder where the client happens to start the server is nobody's choice.
  const fs::path before = fs::current_path();
  fs::current_path(jobs.checkout());
  for (const std::string executable : {"/velta-mcp", ""}) {
    jobs.executable = executable;
    EXPECT_EQ(jobs.refusal(), kPipelineNotFound) << executable;
  }
  fs::current_path(before);
}

TEST(ProcessRecording, NamedInterpreterIsTakenUntested) {
  TestJobs jobs;
  jobs.config.env["VELTA_PIPELINE_PYTHON"] = "~/no such python";
  EXPECT_EQ(jobs.refusal(), "");
  EXPECT_EQ(jobs.started.at(0).arguments.at(0), "~/no such python");
}

TEST(ProcessRecording, InterpreterOfTheCheckoutIsTheFirstChoice) {
  TestJobs jobs;
  jobs.config.env["VELTA_PIPELINE_PYTHON"] = "";
  const std::string python = jobs.folder.write("checkout/mcp/.venv/bin/python", "#!/bin/sh\n");
  fs::permissions(python, fs::perms::owner_all);
  EXPECT_EQ(jobs.refusal(), "");
  EXPECT_EQ(jobs.started.at(0).arguments.at(0), python);
}

TEST(ProcessRecording, WithoutAnExecutableInterpreterThereIsNone) {
  TestJobs jobs;
  jobs.config.env.erase("VELTA_PIPELINE_PYTHON");
  jobs.folder.write("checkout/mcp/.venv/bin/python", "not executable");
  const auto python = refusalOf([&] { findPipelinePython(jobs.config, jobs.checkout()); });
  if (python.empty()) GTEST_SKIP() << "this machine has a Python where the pipeline looks for one";
  EXPECT_EQ(jobs.refusal(), kNoPython);
  EXPECT_FALSE(jobs.folder.has("data"));
}

// --- process_recording: what is made
// ---------------------------------------------------------------

TEST(ProcessRecording, ResultSaysHowToGoOn) {
  TestJobs jobs;
  const JSONObject result = jobs.process({.path = jobs.audio});
  const std::string id(result.getString("job_id").value());
  EXPECT_TRUE(std::regex_match(id, std::regex("job-20261012-153000-[0-9a-f]{6}"))) << id;
  EXPECT_EQ(writeCompact(result),
            R"({"job_id":")" + id +
                R"(","state":"running","visibility":"private","next":"Call get_job with this )"
                R"(job_id every 30 to 60 seconds; a one hour meeting takes a few minutes"})");
}

TEST(ProcessRecording, IdsDifferWithinASecond) {
  TestJobs jobs;
  const auto id = [&] {
    return std::string(jobs.process({.path = jobs.audio}).getString("job_id").value());
  };
  EXPECT_NE(id(), id());
}

TEST(ProcessRecording, FolderIsNamedByDayAndTitle) {
  TestJobs jobs;
  const auto name = [&](const std::optional<std::string>& title) {
    return fs::path(jobs.folderOf({.path = jobs.audio, .title = title})).filename().string();
  };
  EXPECT_EQ(name("Budget Review"), "2026-10-12-budget-review");
  EXPECT_EQ(name("預算會議"), "2026-10-12-預算會議");
  EXPECT_EQ(name("!"), "2026-10-12-meeting");
  EXPECT_EQ(name("../../etc"), "2026-10-12-etc");
}

TEST(ProcessRecording, WithoutATitleTheFileNamesTheFolder) {
  TestJobs jobs;
  EXPECT_THAT(jobs.folderOf({.path = jobs.audio}), EndsWith("/data/recordings/2026-10-12-talk"));
  EXPECT_THAT(jobs.folderOf({.path = jobs.audio, .title = ""}),
              EndsWith("/data/recordings/2026-10-12-talk-2"));
}

TEST(ProcessRecording, DayIsThatOfTheTimeZone) {
  TestJobs jobs;
  const TimeZone kiritimati("Pacific/Kiritimati");
  EXPECT_THAT(jobs.folderOf({.path = jobs.audio}), EndsWith("/2026-10-12-talk"));
  const TimeZone honolulu("Pacific/Honolulu");
  EXPECT_THAT(jobs.folderOf({.path = jobs.audio}), EndsWith("/2026-10-11-talk"));
  EXPECT_THAT(jobs.folder.read("data/recordings/2026-10-11-talk/session.json"),
              HasSubstr("2026-10-11T21:30:00-1000"));
}

TEST(ProcessRecording, SameTitleOnOneDayIsNumberedFromTwo) {
  TestJobs jobs;
  const Jobs::ProcessArguments arguments = {.path = jobs.audio, .title = "Weekly"};
  EXPECT_EQ(jobs.folderOf(arguments), jobs.folder.file("data/recordings/2026-10-12-weekly"));
  EXPECT_EQ(jobs.folderOf(arguments), jobs.folder.file("data/recordings/2026-10-12-weekly-2"));
  EXPECT_EQ(jobs.folderOf(arguments), jobs.folder.file("data/recordings/2026-10-12-weekly-3"));
}

TEST(ProcessRecording, FileOrDanglingLinkTakesAFolderNameToo) {
  TestJobs jobs;
  jobs.folder.write("data/recordings/2026-10-12-talk", "");
  fs::create_symlink("/nowhere", jobs.folder.file("data/recordings/2026-10-12-talk-2"));
  EXPECT_THAT(jobs.folderOf({.path = jobs.audio}), EndsWith("/2026-10-12-talk-3"));
}

TEST(ProcessRecording, SessionFileIsTheStartRecord) {
  TestJobs jobs;
  const std::string folder = jobs.folderOf({.path = jobs.audio, .title = "週會 \"A\""});
  EXPECT_EQ(jobs.folder.read(folder.substr(jobs.folder.path().size() + 1) + "/session.json"),
            "{\n"
            "  \"started_at\": \"2026-10-12T15:30:00+0800\",\n"
            "  \"visibility\": \"private\",\n"
            "  \"source\": \"mcp:process_recording\",\n"
            "  \"title\": \"週會 \\\"A\\\"\"\n"
            "}");
}

TEST(ProcessRecording, SessionFileHasNoTitleWhenNoneWasGiven) {
  TestJobs jobs;
  jobs.process({.path = jobs.audio, .title = ""});
  EXPECT_EQ(jobs.folder.read("data/recordings/2026-10-12-talk/session.json"),
            "{\n"
            "  \"started_at\": \"2026-10-12T15:30:00+0800\",\n"
            "  \"visibility\": \"private\",\n"
            "  \"source\": \"mcp:process_recording\"\n"
            "}");
}

TEST(ProcessRecording, RecordHoldsWhatTheJobIs) {
  TestJobs jobs;
  const JSONObject result = jobs.process({.path = jobs.audio, .title = "Weekly"});
  const std::string id(result.getString("job_id").value());
  EXPECT_EQ(jobs.folder.read("data/jobs/" + id + ".json"),
            "{\n"
            "  \"id\": \"" +
                id +
                "\",\n"
                "  \"folder\": \"" +
                jobs.folder.file("data/recordings/2026-10-12-weekly") +
                "\",\n"
                "  \"pid\": 4242,\n"
                "  \"created_at\": \"2026-10-12T15:30:00+0800\",\n"
                "  \"client\": \"claude-code\",\n"
                "  \"meeting_id\": \"rec-2026-10-12-weekly\",\n"
                "  \"visibility\": \"private\"\n"
                "}");
}

TEST(ProcessRecording, RecordOfAClientWithoutANameHasNull) {
  TestJobs jobs;
  const JSONObject result = jobs.jobs().processRecording({.path = jobs.audio}, std::nullopt, kNow);
  EXPECT_THAT(
      jobs.folder.read("data/jobs/" + std::string(result.getString("job_id").value()) + ".json"),
      HasSubstr("\"client\": null,"));
}

TEST(ProcessRecording, ProcessRunsInTheCheckoutAndLogsIntoTheFolder) {
  TestJobs jobs;
  jobs.process({.path = jobs.audio});
  ASSERT_THAT(jobs.started, SizeIs(1));
  const std::string folder = jobs.folder.file("data/recordings/2026-10-12-talk");
  EXPECT_THAT(jobs.started[0].arguments,
              ElementsAre("/opt/python", jobs.folder.file("checkout/pipeline/process_meeting.py"),
                          folder, "--import-audio", jobs.audio, "--no-open"));
  EXPECT_EQ(jobs.started[0].workingDirectory, jobs.checkout());
  EXPECT_EQ(jobs.started[0].logFile, folder + "/job.log");
}

TEST(ProcessRecording, WithoutAKeyItRunsInALoginShell) {
  for (const bool isEmpty : {true, false}) {
    TestJobs jobs;
    if (isEmpty) jobs.config.env["ELEVENLABS_API_KEY"] = "";
    if (!isEmpty) jobs.config.env.erase("ELEVENLABS_API_KEY");
    jobs.process({.path = jobs.audio});
    EXPECT_THAT(jobs.started.at(0).arguments,
                ElementsAre("/bin/zsh", "-lic", "exec \"$@\"", "zsh", "/opt/python",
                            jobs.folder.file("checkout/pipeline/process_meeting.py"),
                            jobs.folder.file("data/recordings/2026-10-12-talk"), "--import-audio",
                            jobs.audio, "--no-open"));
  }
}

TEST(ProcessRecording, LanguageAndTitleAndKeyStayOffTheCommandLine) {
  TestJobs jobs;
  jobs.process({.path = jobs.audio, .title = "Weekly", .language = "zh-TW"});
  for (const std::string& argument : jobs.started.at(0).arguments) {
    EXPECT_THAT(argument, Not(HasSubstr("zh")));
    EXPECT_THAT(argument, Not(HasSubstr("Weekly")));
    EXPECT_THAT(argument, Not(HasSubstr("secret")));
  }
}

TEST(ProcessRecording, FolderThatCannotBeMadeFailsWithTheSystemsError) {
  TestJobs jobs;
  jobs.folder.write("data/recordings", "a file");
  try {
    jobs.process({.path = jobs.audio});
    FAIL() << "did not throw";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::not_a_directory);
    EXPECT_THAT(error.what(), HasSubstr(jobs.folder.file("data/recordings")));
  }
  EXPECT_THAT(jobs.started, IsEmpty());
}

TEST(ProcessRecording, RecordThatCannotBeWrittenFailsWithTheSystemsError) {
  TestJobs jobs;
  jobs.folder.write("data/jobs", "a file");
  EXPECT_THROW(jobs.process({.path = jobs.audio}), std::system_error);
  EXPECT_THAT(jobs.started, SizeIs(1));
}

TEST(ProcessRecording, FailureToStartLeavesFolderAndSessionButNoRecord) {
  TestJobs jobs;
  Jobs failing = jobs.jobs();
  failing.spawn = [](const auto&, const auto&, const auto&) -> pid_t {
    throw StoreError::value("could not start it");
  };
  EXPECT_EQ(refusalOf([&] { failing.processRecording({.path = jobs.audio}, {}, kNow); }),
            "could not start it");
  EXPECT_TRUE(jobs.folder.has("data/recordings/2026-10-12-talk/session.json"));
  EXPECT_FALSE(jobs.folder.has("data/jobs"));
}

TEST(ProcessRecording, ProgramThatIsMissingIsNamedWithTheCause) {
  TestJobs jobs;
  jobs.config.env["VELTA_PIPELINE_PYTHON"] = "/no/such/python";
  const Jobs real(jobs.config, jobs.executable);
  EXPECT_EQ(refusalOf([&] { real.processRecording({.path = jobs.audio}, {}, kNow); }),
            "could not start /no/such/python: No such file or directory");
}

// --- get_job: which job
// ----------------------------------------------------------------------------

TEST(GetJob, TextThatIsNoJobIdIsRefused) {
  TestJobs jobs;
  for (const std::string id :
       {"job-../x", "job-a/b", "run-1", "", "job", "JOB-1", "job-..", " job-1"})
    EXPECT_EQ(refusalOf([&] { jobs.get(kOwner, id); }),
              "'" + id + "' is not a job id. Job ids look like job-20261012-153000-ab12cd");
}

TEST(GetJob, UnknownJobIsNamed) {
  TestJobs jobs;
  jobs.setJob("{}");
  for (const std::string id : {"job-2", "job-", "job-1.json", "job-"})
    EXPECT_EQ(refusalOf([&] { jobs.get(kOwner, id); }),
              "No job " + id + ". Next step: start one with process_recording");
}

TEST(GetJob, IdWithANULByteNamesNoJob) {
  TestJobs jobs;
  jobs.setJob("{}");
  const std::string id = std::string("job-1.json") + '\0';
  EXPECT_THAT(refusalOf([&] { jobs.get(kOwner, id); }), StartsWith("No job job-1.json"));
}

TEST(GetJob, FolderInPlaceOfARecordIsNoJob) {
  TestJobs jobs;
  jobs.folder.makeFolder("data/jobs/job-2.json");
  EXPECT_THAT(refusalOf([&] { jobs.get(kOwner, "job-2"); }), StartsWith("No job job-2. "));
}

TEST(GetJob, RecordThatIsNoObjectCountsAsEmpty) {
  for (const std::string record : {"[]", "{", "", "\"x\""}) {
    TestJobs jobs;
    jobs.folder.write("data/jobs/job-1.json", record);
    EXPECT_EQ(jobs.get(),
              R"({"job_id":"job-1","state":"failed","step":"starting","updated_at":null,)"
              R"("created_at":null,"reason":"The pipeline process exited without a status. Most )"
              R"--(likely it could not start (python, ffmpeg or key missing)",)--"
              R"("next":"Fix the cause named in detail or log_tail, then call process_recording )"
              R"(again"})");
    EXPECT_THAT(jobs.asked, IsEmpty());
  }
}

// --- get_job: states
// -------------------------------------------------------------------------------

TEST(GetJob, JobWithoutAStatusIsStarting) {
  TestJobs jobs;
  jobs.setJob("{}");
  jobs.folder.remove("data/meeting");
  EXPECT_EQ(jobs.get(),
            R"({"job_id":"job-1","state":"running","step":"starting","updated_at":null,)"
            R"("created_at":"then"})");
  EXPECT_THAT(jobs.asked, ElementsAre(77));
  EXPECT_EQ(jobs.refreshes, 0);
}

TEST(GetJob, StatusThatIsNoObjectCountsAsEmpty) {
  for (const std::string status : {R"({"step":"tran)", "[1]", "", "null", R"("done")"}) {
    TestJobs jobs;
    jobs.setJob(status);
    EXPECT_EQ(jobs.get(),
              R"({"job_id":"job-1","state":"running","step":"starting","updated_at":null,)"
              R"("created_at":"then"})")
        << status;
  }
}

TEST(GetJob, StepThatIsNoTextCountsAsStarting) {
  TestJobs jobs;
  jobs.setJob(R"({"step":5,"at":[1]})");
  EXPECT_EQ(jobs.get(), R"({"job_id":"job-1","state":"running","step":"starting","updated_at":[1],)"
                        R"("created_at":"then"})");
}

TEST(GetJob, RunningJobTellsItsDetail) {
  TestJobs jobs;
  jobs.setJob(R"({"step":"transcribe","ok":true,"at":"now","detail":{"percent":40}})");
  EXPECT_EQ(jobs.get(),
            R"({"job_id":"job-1","state":"running","step":"transcribe","updated_at":"now",)"
            R"("created_at":"then","detail":{"percent":40}})");
}

TEST(GetJob, NumbersThatJSONCannotWriteAreNull) {
  TestJobs jobs;
  jobs.setJob(R"({"step":"transcribe","at":1e400,"detail":{"percent":[-1e400]}})");
  EXPECT_EQ(jobs.get(),
            R"({"job_id":"job-1","state":"running","step":"transcribe","updated_at":null,)"
            R"("created_at":"then","detail":{"percent":[null]}})");
}

TEST(GetJob, DetailThatSaysNothingIsLeftOut) {
  for (const std::string detail : {"false", "0", "0.0", "\"\"", "[]", "{}", "null"}) {
    TestJobs jobs;
    jobs.setJob(R"({"step":"transcribe","detail":)" + detail + "}");
    EXPECT_THAT(jobs.get(), Not(HasSubstr("detail"))) << detail;
  }
}

TEST(GetJob, DoneJobNamesItsMeeting) {
  TestJobs jobs;
  jobs.setJob(R"({"step":"done","ok":true,"at":"now"})");
  EXPECT_EQ(jobs.get(),
            R"({"job_id":"job-1","state":"done","step":"done","updated_at":"now",)"
            R"("created_at":"then","meeting_id":"rec-1","next":"Call get_meeting with meeting_id",)"
            R"("index_meetings":12})");
  EXPECT_EQ(jobs.refreshes, 1);
  EXPECT_THAT(jobs.lookedUp, ElementsAre("rec-1"));
}

TEST(GetJob, DoneJobIsDoneEvenWhenItsProcessIsGoneOrNotOk) {
  TestJobs jobs;
  jobs.isAlive = false;
  jobs.setJob(R"({"step":"done","ok":false})");
  EXPECT_THAT(jobs.get(), StartsWith(R"({"job_id":"job-1","state":"done",)"));
}

TEST(GetJob, DoneJobOutsideTheIndexWarns) {
  TestJobs jobs;
  jobs.isIndexed = false;
  jobs.setJob(R"({"step":"done"})");
  EXPECT_EQ(jobs.get(),
            R"({"job_id":"job-1","state":"done","step":"done","updated_at":null,)"
            R"("created_at":"then","meeting_id":"rec-1","warning":"Processing finished but the )"
            R"(meeting is not in the index. Most likely mcp-config.json has no recordings source; )"
            R"(add one (see mcp/config.example.json) and call again","index_meetings":12})");
}

TEST(GetJob, DoneJobWithoutAMeetingIdInItsRecordHasAnEmptyOne) {
  TestJobs jobs;
  jobs.isIndexed = false;
  jobs.setJob(R"({"step":"done"})", R"(,"meeting_id":5)");
  EXPECT_THAT(jobs.get(), HasSubstr(R"("meeting_id":"","warning":)"));
}

TEST(GetJob, FailedJobTellsDetailAndLog) {
  TestJobs jobs;
  jobs.isAlive = false;
  jobs.setJob(R"({"step":"failed","ok":false,"detail":"no speech","at":"now"})");
  jobs.folder.write("data/meeting/job.log", "one\ntwo");
  EXPECT_EQ(jobs.get(),
            R"({"job_id":"job-1","state":"failed","step":"failed","updated_at":"now",)"
            R"("created_at":"then","detail":"no speech","log_tail":["one","two"],)"
            R"("next":"Fix the cause named in detail or log_tail, then call process_recording )"
            R"(again"})");
}

TEST(GetJob, StatusThatIsNotOkIsAFailureWhileTheProcessStillRuns) {
  TestJobs jobs;
  jobs.setJob(R"({"step":"notes","ok":false})");
  EXPECT_EQ(jobs.get(),
            R"({"job_id":"job-1","state":"failed","step":"notes","updated_at":null,)"
            R"("created_at":"then","next":"Fix the cause named in detail or log_tail, then call )"
            R"(process_recording again"})");
}

TEST(GetJob, OnlyTheBooleanFalseIsNotOk) {
  for (const std::string ok : {"0", "null", "\"\"", "\"false\""}) {
    TestJobs jobs;
    jobs.setJob(R"({"step":"notes","ok":)" + ok + "}");
    EXPECT_THAT(jobs.get(), HasSubstr(R"("state":"running")")) << ok;
  }
}

TEST(GetJob, ProcessThatDiedBetweenStepsHasFailedForAReason) {
  TestJobs jobs;
  jobs.isAlive = false;
  jobs.setJob(R"({"step":"transcribe","ok":true,"at":"now"})");
  EXPECT_EQ(jobs.get(),
            R"({"job_id":"job-1","state":"failed","step":"transcribe","updated_at":"now",)"
            R"("created_at":"then","reason":"The pipeline process exited without a status. Most )"
            R"--(likely it could not start (python, ffmpeg or key missing)",)--"
            R"("next":"Fix the cause named in detail or log_tail, then call process_recording )"
            R"(again"})");
}

TEST(GetJob, ProcessThatFinishesWhileItIsAskedForIsDone) {
  TestJobs test;
  test.setJob(R"({"step":"transcribe"})");
  Jobs jobs = test.jobs();
  jobs.alive = [&](pid_t) {
    test.setJob(R"({"step":"done"})");
    return false;
  };
  const JSONObject answer = jobs.getJob(
      "job-1", kOwner, {[] { return std::size_t{1}; }, [](const std::string&) { return true; }});
  EXPECT_EQ(answer.getString("state"), "done");
}

TEST(GetJob, DetailTakesThePlaceOfTheReason) {
  TestJobs jobs;
  jobs.isAlive = false;
  jobs.setJob(R"({"step":"transcribe","detail":"upload"})");
  const std::string answer = jobs.get();
  EXPECT_THAT(answer, HasSubstr(R"("detail":"upload")"));
  EXPECT_THAT(answer, Not(HasSubstr("reason")));
}

TEST(GetJob, NumberThatIsNoProcessIdIsNotAlive) {
  for (const std::string pid :
       {"0", "-1", "2147483648", "9223372036854775807", "\"77\"", "1.5", "null", "true", "1e300"}) {
    TestJobs jobs;
    jobs.setJob(R"({"step":"transcribe"})", R"(,"pid":)" + pid);
    EXPECT_THAT(jobs.get(), HasSubstr(R"("state":"failed")")) << pid;
    EXPECT_THAT(jobs.asked, IsEmpty()) << pid;
  }
}

TEST(GetJob, LargestProcessIdIsAskedFor) {
  TestJobs jobs;
  jobs.setJob("{}", R"(,"pid":2147483647)");
  jobs.get();
  EXPECT_THAT(jobs.asked, ElementsAre(2147483647));
}

TEST(GetJob, RecordWithoutAFolderHasNoStatusAndNoLog) {
  for (const std::string folder : {"null", "5"}) {
    TestJobs jobs;
    jobs.isAlive = false;
    jobs.setJob(R"({"step":"done"})", R"(,"folder":)" + folder);
    jobs.folder.write("data/meeting/job.log", "x");
    const std::string answer = jobs.get();
    EXPECT_THAT(answer, HasSubstr(R"("state":"failed","step":"starting")"));
    EXPECT_THAT(answer, Not(HasSubstr(R"("log_tail":)")));
  }
}

// --- get_job: who may see what
// ---------------------------------------------------------------------

TEST(GetJob, RunningJobTellsAClientWithoutPrivateMeetingsItsStateOnly) {
  TestJobs jobs;
  jobs.setJob(R"({"step":"transcribe","at":"now","detail":"secret"})");
  EXPECT_EQ(jobs.get(kDashboard),
            R"({"job_id":"job-1","state":"running","step":"transcribe","updated_at":"now",)"
            R"("created_at":"then","note":"This meeting is private; this client sees job status )"
            R"(only, never its content"})");
}

TEST(GetJob, FailedJobTellsAClientWithoutPrivateMeetingsTheReasonButNoLog) {
  TestJobs jobs;
  jobs.isAlive = false;
  jobs.setJob(R"({"step":"transcribe"})");
  jobs.folder.write("data/meeting/job.log", "secret");
  EXPECT_EQ(
      jobs.get({}),
      R"({"job_id":"job-1","state":"failed","step":"transcribe","updated_at":null,)"
      R"("created_at":"then","reason":"The pipeline process exited without a status. Most )"
      R"--(likely it could not start (python, ffmpeg or key missing)","note":"This meeting is )--"
      R"(private; this client sees job status only, never its content"})");
}

TEST(GetJob, DoneJobTellsAClientWithoutPrivateMeetingsTheCountButNoMeeting) {
  TestJobs jobs;
  jobs.setJob(R"({"step":"done"})");
  EXPECT_EQ(jobs.get(kDashboard),
            R"({"job_id":"job-1","state":"done","step":"done","updated_at":null,)"
            R"("created_at":"then","note":"This meeting is private; this client sees job status )"
            R"(only, never its content","index_meetings":12})");
  EXPECT_EQ(jobs.refreshes, 1);
  EXPECT_THAT(jobs.lookedUp, IsEmpty());
}

TEST(GetJob, VisibilityOfTheRecordCounts) {
  TestJobs jobs;
  jobs.setJob(R"({"step":"done"})", R"(,"visibility":"work")");
  EXPECT_THAT(jobs.get({"work"}), HasSubstr("meeting_id"));
  EXPECT_THAT(jobs.get({"private"}), HasSubstr("note"));
  jobs.setJob(R"({"step":"done"})", R"(,"visibility":7)");
  EXPECT_THAT(jobs.get({"private"}), HasSubstr("meeting_id"));
}

// --- get_job: the log
// ------------------------------------------------------------------------------

// The "log_tail" of a failed job with this log, as compact JSON; empty when there is none.
std::string tailOf(TestJobs& jobs) {
  jobs.isAlive = false;
  jobs.setJob("{}");
  const JSON answer = parseJSON(jobs.get());
  const JSON* tail = answer.asObject()->get("log_tail");
  return tail ? writeCompact(*tail) : "";
}

std::string tailOf(const std::string& log) {
  TestJobs jobs;
  jobs.folder.write("data/meeting/job.log", log);
  return tailOf(jobs);
}

TEST(GetJob, LogOfTwentyLinesEndsInFourteenAndAnEmptyOne) {
  std::string log;
  for (int line = 1; line <= 20; ++line) log += std::to_string(line) + "\n";
  EXPECT_EQ(tailOf(log),
            R"(["7","8","9","10","11","12","13","14","15","16","17","18","19","20",""])");
}

TEST(GetJob, LogWithoutALineFeedAtItsEndEndsInFifteenLines) {
  std::string log = "1";
  for (int line = 2; line <= 20; ++line) log += "\n" + std::to_string(line);
  EXPECT_EQ(tailOf(log),
            R"(["6","7","8","9","10","11","12","13","14","15","16","17","18","19","20"])");
}

TEST(GetJob, ShortLogIsToldWhole) {
  EXPECT_EQ(tailOf("one line"), R"(["one line"])");
  EXPECT_EQ(tailOf(""), R"([""])");
  EXPECT_EQ(tailOf("\n\n"), R"(["","",""])");
  EXPECT_EQ(tailOf("a\r\nb"), R"(["a\r","b"])");
}

TEST(GetJob, LogThatIsNotUTF8IsLeftOut) {
  EXPECT_EQ(tailOf("fine\nnot \xff fine\n"), "");
  EXPECT_EQ(tailOf("cut \xe6\x9c"), "");
}

TEST(GetJob, LogThatIsNoTextAnywhereHasNoTail) {
  std::string log = "\xFF bad\n";
  for (int line = 1; line <= 20; ++line) log += std::to_string(line) + "\n";
  EXPECT_EQ(tailOf(log), "");
}

TEST(GetJob, OfAHugeLogOnlyTheEndIsRead) {
  TestJobs jobs;
  const std::string log = jobs.folder.write("data/meeting/job.log", "");
  // A hole: as long as a log that could not be read in time, without taking any room.
  fs::resize_file(log, std::uintmax_t{64} << 30U);
  std::ofstream(log, std::ios::app) << "\n1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n14\n15";
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(tailOf(jobs), R"(["1","2","3","4","5","6","7","8","9","10","11","12","13","14","15"])");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
}

// --- replaceable parts: the real ones
// --------------------------------------------------------------

TEST(Jobs, RealJobGoesFromRunningToDone) {
  TestJobs test;
  test.config.env["VELTA_PIPELINE_PYTHON"] = VELTA_SOURCE_DIR "/tests/support/stub-pipeline";
  test.config.env["PATH"] = "/usr/bin:/bin";
  const Jobs jobs(test.config, test.executable);
  const std::string id(
      jobs.processRecording({.path = test.audio}, {}, kNow).getString("job_id").value());
  const Jobs::IndexAccess index = {[] { return std::size_t{1}; },
                                   [](const std::string&) { return true; }};
  std::string state = "running";
  for (int poll = 0; state == "running" && poll < 1000; ++poll) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    state = jobs.getJob(id, kOwner, index).getString("state").value();
  }
  EXPECT_EQ(state, "done");
}

}  // namespace
}  // namespace velta
