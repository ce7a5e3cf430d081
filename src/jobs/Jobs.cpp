#include "jobs/Jobs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <system_error>
#include <utility>

#include "config/Dates.h"
#include "config/StoreError.h"
#include "jobs/Pipeline.h"
#include "json/JSONParser.h"
#include "json/JSONWalk.h"
#include "json/JSONWriter.h"
#include "meetings/TextNorm.h"
#include "platform/Files.h"
#include "platform/Process.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::string_view kCallGetJob =
    "Call get_job with this job_id every 30 to 60 seconds; a one hour meeting takes a few minutes";
constexpr std::string_view kExitedWithoutStatus =
    "The pipeline process exited without a status. Most likely it could not start (python, ffmpeg "
    "or key missing)";
constexpr std::string_view kFixAndRetry =
    "Fix the cause named in detail or log_tail, then call process_recording again";
constexpr std::string_view kCallGetMeeting = "Call get_meeting with meeting_id";
constexpr std::string_view kNotInIndex =
    "Processing finished but the meeting is not in the index. Most likely mcp-config.json has no "
    "recordings source; add one (see mcp/config.example.json) and call again";

constexpr std::string_view kRunningWithoutRecord =
    "The pipeline is running, but its job record could not be saved, so get_job will not find it. "
    "Do not start it again; the meeting appears in list_meetings when it is done. Cause: ";

constexpr std::string_view kPrivate = "private";
constexpr int kIndent = 2;
constexpr std::size_t kRandomBytes = 3;
constexpr std::size_t kLogTailLines = 15;
constexpr std::size_t kLogTailBytes = std::size_t{1024} * 1024;  // of a longer tail only the end
constexpr std::size_t kLogCheckedBytes = std::size_t{8} << 20U;  // so much has to be UTF-8

// What the pipeline takes, sorted.
constexpr std::array<std::string_view, 13> kAudioTypes = {".aac",  ".aif", ".aiff", ".caf", ".flac",
                                                          ".m4a",  ".mov", ".mp3",  ".mp4", ".ogg",
                                                          ".opus", ".wav", ".webm"};
constexpr std::array<std::string_view, 5> kLanguages = {"", "zho", "zh", "zh-TW", "zh-tw"};

template <class List>
bool contains(const List& list, std::string_view wanted) {
  return std::find(list.begin(), list.end(), wanted) != list.end();
}

// A file's name in two: "talk.mp3" is "talk" and ".mp3". A dot that begins or ends the name
// separates nothing.
struct FileName {
  std::string stem;
  std::string extension;  // with its dot; empty when there is none
};

FileName splitName(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) return {name, ""};
  return {name.substr(0, dot), name.substr(dot)};
}

// process_recording

void checkIsFile(const std::string& path) {
  const auto status = fileStatus(path);
  if (status && !status->isDirectory) return;
  throw StoreError::value("No file at " + path + ". Pass an absolute path to an audio file");
}

void checkAudioType(const std::string& extension) {
  if (contains(kAudioTypes, lowerASCII(extension))) return;
  std::string message = extension + " is not an audio type the pipeline takes (";
  for (const std::string_view type : kAudioTypes) {
    if (type != kAudioTypes.front()) message += ", ";
    message += type;
  }
  throw StoreError::value(message + ")");
}

void checkLanguage(const std::string& language) {
  if (contains(kLanguages, language)) return;
  throw StoreError::value("language '" + language +
                          "' is not supported yet: the pipeline always transcribes as Chinese "
                          "(zho) and has no language flag");
}

// Makes the folder `name` in `parent`, or the first of `name`-2, `name`-3, … that is not there yet,
// also when several servers do so at once. Returns its path.
std::string makeNewFolder(const std::string& parent, const std::string& name) {
  createDirectories(parent);
  std::string path = joinPath(parent, name);
  for (std::size_t number = 2; !createNewDirectory(path); ++number) {
    path = joinPath(parent, name + "-" + std::to_string(number));
  }
  return path;
}

std::string makeJobId(Instant now) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  std::string id = "job-" + localFormatted(now, "yyyyMMdd-HHmmss") + "-";
  for (const std::uint8_t byte : randomBytes(kRandomBytes)) {
    id += kDigits[byte >> 4U];
    id += kDigits[byte & 15U];
  }
  return id;
}

// The name under which the index will hold the meeting: the readers' rule for recordings.
std::string meetingIdOf(const std::string& folder) {
  return "rec-" + slugify(lastComponent(folder));
}

void writeSession(const std::string& folder, const std::string& startedAt,
                  const std::optional<std::string>& title) {
  JSONObject session{
      {"started_at", startedAt}, {"visibility", kPrivate}, {"source", "mcp:process_recording"}};
  if (title && !title->empty()) session.set("title", *title);
  // By way of the folder above, so that what a kill leaves is found without looking into them all.
  writeFileAtomicallyFrom(parentPath(folder), joinPath(folder, "session.json"),
                          writeIndented(session, kIndent));
}

pid_t start(const std::vector<std::string>& arguments, const Environment& environment,
            const std::string& workingDirectory, const std::string& logFile) {
  try {
    return spawnDetached(arguments, environment, workingDirectory, logFile);
  } catch (const std::system_error& error) {
    throw StoreError::value("could not start " + arguments.front() + ": " + error.code().message());
  }
}

// get_job

// Path of a job's record. The check keeps an id from naming a file anywhere else.
std::string recordPath(const Config& config, const std::string& id) {
  const bool isJobId = id.starts_with("job-") && id.find('/') == std::string::npos &&
                       id.find("..") == std::string::npos;
  if (!isJobId) {
    throw StoreError::value("'" + id +
                            "' is not a job id. Job ids look like job-20261012-153000-ab12cd");
  }
  return joinPath(joinPath(config.home, "jobs"), id + ".json");
}

// The object in `bytes`; anything else, like a file caught half-written, counts as an empty one.
JSONObject objectIn(const std::string& bytes) {
  try {
    JSON value = parseJSON(bytes);
    dropUnwritableNumbers(value);
    if (JSONObject* object = value.asObject()) return std::move(*object);
  } catch (const JSONParseError&) {
    return {};
  }
  return {};
}

void writeRecord(const JSONObject& record, const std::string& path) {
  try {
    writeJSONFile(record, path, kIndent);
  } catch (const std::system_error& error) {
    const std::string what = error.what();  // it ends in the system's text, which comes again
    const std::size_t end = what.rfind(": " + error.code().message());
    throw std::system_error(error.code(), std::string(kRunningWithoutRecord) + what.substr(0, end));
  }
}

// A file of a job; throws std::system_error also for a link to somewhere else.
std::string readJobFile(const std::string& path) {
  if (leadsElsewhere(path)) throw std::system_error(ELOOP, std::generic_category(), path);
  return readFile(path);
}

JSONObject readRecord(const Config& config, const std::string& id) {
  const std::string path = recordPath(config, id);
  try {
    return objectIn(readJobFile(path));
  } catch (const std::system_error&) {
    throw StoreError::value("No job " + id + ". Next step: start one with process_recording");
  }
}

// The pipeline's progress; empty when there is none yet.
JSONObject readStatus(const std::optional<std::string>& folder) {
  if (!folder) return {};
  try {
    return objectIn(readJobFile(joinPath(*folder, "status.json")));
  } catch (const std::system_error&) {
    return {};
  }
}

std::optional<std::string> textUnder(const JSONObject& object, std::string_view key) {
  const auto text = object.getString(key);
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

JSON valueOrNull(const JSONObject& object, std::string_view key) {
  const JSON* value = object.get(key);
  return value != nullptr ? *value : JSON();
}

// The recorded process id; absent when it names no process.
std::optional<pid_t> processId(const JSONObject& record) {
  const JSON* value = record.get("pid");
  const auto pid = value != nullptr ? value->integerValue() : std::nullopt;
  if (!pid || *pid <= 0 || *pid > std::numeric_limits<std::int32_t>::max()) return std::nullopt;
  return static_cast<pid_t>(*pid);
}

std::string_view stateOf(std::string_view step, const JSONObject& status, bool alive) {
  if (step == "done") return "done";
  if (step == "failed" || status.getBool("ok") == false) return "failed";
  return alive ? "running" : "failed";
}

// The last lines of the log; absent when it cannot be read as UTF-8. A line feed at the end makes
// an empty last line.
std::optional<JSON::Array> logTail(const std::string& path) {
  std::string tail;
  bool isText = false;
  if (leadsElsewhere(path)) return std::nullopt;
  try {
    tail = readFileEnd(path, kLogTailLines, kLogTailBytes);
    isText = isValidUTF8(readFileEnd(path, std::string::npos, kLogCheckedBytes));
  } catch (const std::system_error&) {
    return std::nullopt;
  }
  if (!isText) return std::nullopt;
  JSON::Array lines;
  std::string_view rest = tail;
  for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
    lines.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end + 1);
  }
  lines.emplace_back(rest);
  return lines;
}

void addFailure(JSONObject& result, const std::optional<std::string>& folder) {
  if (folder) {
    if (auto tail = logTail(joinPath(*folder, "job.log"))) {
      result.set("log_tail", std::move(*tail));
    }
  }
  result.set("next", kFixAndRetry);
}

void addMeeting(JSONObject& result, const JSONObject& record, const Jobs::IndexAccess& index) {
  const std::string meetingId = textUnder(record, "meeting_id").value_or("");
  result.set("meeting_id", meetingId);
  if (index.hasMeeting(meetingId)) {
    result.set("next", kCallGetMeeting);
  } else {
    result.set("warning", kNotInIndex);
  }
}

}  // namespace

Jobs::Jobs(const Config& configuration, std::string executablePath)
    : config(configuration),
      executable(std::move(executablePath)),
      spawn([&configuration](const std::vector<std::string>& arguments,
                             const std::string& workingDirectory, const std::string& logFile) {
        return start(arguments, configuration.env, workingDirectory, logFile);
      }),
      alive(isProcessAlive) {}

JSONObject Jobs::processRecording(const ProcessArguments& arguments,
                                  const std::optional<std::string>& client, Instant now) const {
  const std::string path = expandTilde(arguments.path, config.userHome());
  checkIsFile(path);
  const FileName name = splitName(lastComponent(path));
  checkAudioType(name.extension);
  checkLanguage(arguments.language.value_or(""));
  const std::string checkout = findPipelineCheckout(config, executable);
  const std::string python = findPipelinePython(config, checkout);

  const std::string startedAt = localStamp(now);
  const bool isTitled = arguments.title && !arguments.title->empty();
  const std::string folder =
      makeNewFolder(joinPath(config.home, "recordings"),
                    localDay(now) + "-" + slugify(isTitled ? *arguments.title : name.stem));
  writeSession(folder, startedAt, arguments.title);

  const std::string id = makeJobId(now);
  const std::vector<std::string> command =
      pipelineCommand(config, checkout, python, folder, absolutePath(path));
  const pid_t pid = spawn(command, checkout, joinPath(folder, "job.log"));
  writeRecord({{"id", id},
               {"folder", folder},
               {"pid", pid},
               {"created_at", startedAt},
               {"client", client},
               {"meeting_id", meetingIdOf(folder)},
               {"visibility", kPrivate}},
              recordPath(config, id));
  return {{"job_id", id}, {"state", "running"}, {"visibility", kPrivate}, {"next", kCallGetJob}};
}

void Jobs::removeStaleTemporaries() const {
  for (const char* folder : {"recordings", "jobs"}) {
    velta::removeStaleTemporaries(joinPath(config.home, folder));
  }
}

JSONObject Jobs::getJob(const std::string& id, const std::vector<std::string>& allowed,
                        const IndexAccess& index) const {
  const JSONObject record = readRecord(config, id);
  const auto folder = textUnder(record, "folder");
  const auto pid = processId(record);
  // Before the status is read, so that what a process reported just before its end is not missed.
  const bool isAlive = pid && alive(*pid);
  const JSONObject status = readStatus(folder);
  const std::string step = textUnder(status, "step").value_or("starting");
  const std::string_view state = stateOf(step, status, isAlive);
  const JSON detail = valueOrNull(status, "detail");

  JSONObject result{{"job_id", id},
                    {"state", state},
                    {"step", step},
                    {"updated_at", valueOrNull(status, "at")},
                    {"created_at", valueOrNull(record, "created_at")}};
  if (state == "failed" && !isAlive && !detail.truthy()) result.set("reason", kExitedWithoutStatus);
  const bool isDone = state == "done";
  const std::size_t meetings = isDone ? index.refresh() : 0;
  if (!contains(allowed, textUnder(record, "visibility").value_or(std::string(kPrivate)))) {
    result.set("note", kStatusOnly);
  } else {
    if (detail.truthy()) result.set("detail", detail);
    if (state == "failed") addFailure(result, folder);
    if (isDone) addMeeting(result, record, index);
  }
  if (isDone) result.set("index_meetings", meetings);
  return result;
}

}  // namespace velta
