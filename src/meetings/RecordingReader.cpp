#include "meetings/RecordingReader.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "json/JSONParser.h"
#include "meetings/ReaderSupport.h"
#include "meetings/RecordingFile.h"
#include "meetings/TextNorm.h"
#include "platform/Files.h"

namespace velta {
namespace {

// What the main file holds besides the notes. Action items are never shown, so they are not kept.
constexpr std::array<std::string_view, 10> kNotNotes = {
    "lines",      "speakers", "title",     "started_at",   "duration_sec",
    "visibility", "tags",     "app-notes", "action_items", "actions"};

bool isNote(std::string_view key) { return std::ranges::find(kNotNotes, key) == kNotNotes.end(); }

// The notes are the members of the main file, overlaid by those that the app wrote.
JSONObject notesOf(JSONObject main) {
  const JSON* appNotes = main.get("app-notes");
  const JSON overlay = appNotes != nullptr ? *appNotes : JSON();
  for (const std::string_view key : kNotNotes) main.erase(key);
  if (const JSONObject* members = overlay.asObject()) {
    for (const auto& [key, value] : *members) {
      if (isNote(key)) main.set(key, value);
    }
  }
  return main;
}

std::vector<JSONObject> peopleOf(const JSONObject& main) {
  const JSON::Array* speakers = main.getArray("speakers");
  return objectElements(speakers != nullptr ? speakers : main.getArray("people"));
}

std::vector<std::string> tagsOf(const JSONObject& main, const std::optional<JSONObject>& session) {
  const JSON::Array* own = session ? session->getArray("tags") : nullptr;
  return stringElements(own != nullptr ? own : main.getArray("tags"));
}

// A text that the session settles when it has it, and the main file otherwise.
std::optional<std::string> settled(std::string_view key, const JSONObject& main,
                                   const std::optional<JSONObject>& session) {
  auto text = session ? nonEmptyString(*session, key) : std::nullopt;
  return text ? text : nonEmptyString(main, key);
}

// Only when it was listed: one that came since makes the next refresh read the meeting again.
void readUpload(Meeting& meeting, const Sources::FileSet& files) {
  if (!files.uploadModified) return;
  const std::string path = uploadFile(files.files.front());
  const auto upload = leadsElsewhere(path) ? std::nullopt : readOptionalObject(path);
  if (!upload) return;
  const auto id = upload->getString("meeting_id");
  if (id && uuidPattern().matches(*id)) meeting.cloudId = lowerASCII(*id);
  const auto state = nonEmptyString(*upload, "state");
  if (state && *state != "done") meeting.status = state;
}

JSONObject restObject(RecordingFile& file, const std::string& mainPath) {
  JSONObject* object = file.rest.asObject();
  if (object == nullptr) throw Sources::ReadError(notAnObject(mainPath, ""));
  return std::move(*object);
}

RecordingFile parsed(const std::string& mainPath) {
  const FileBytes file = readMainFile(mainPath);
  try {
    return parseRecordingFile(file.view());
  } catch (const JSONParseError& error) {
    throw Sources::ReadError(notAnObject(mainPath, error.what()));
  }
}

}  // namespace

std::string recordingFolder(const std::string& mainPath) {
  std::string folder(parentPath(mainPath));
  return lastComponent(folder) == "app-notes" ? std::string(parentPath(folder)) : folder;
}

std::string uploadFile(const std::string& mainPath) {
  return joinPath(recordingFolder(mainPath), "upload.json");
}

Meeting readRecording(std::string_view kind, const Sources::FileSet& files, Instant now) {
  const std::string& mainPath = files.files.front();
  RecordingFile file = parsed(mainPath);
  JSONObject main = restObject(file, mainPath);
  const auto session = files.files.size() > 1 ? readOptionalObject(files.files[1]) : std::nullopt;
  const std::string folder = folderName(recordingFolder(mainPath));

  Meeting meeting;
  meeting.id = (kind == "imported" ? "imp-" : "rec-") + slugify(folder);
  meeting.source = kind;
  meeting.title = settled("title", main, session).value_or(folder);
  meeting.startedAt = settled("started_at", main, session);
  meeting.date = deriveDate(
      {meeting.startedAt.value_or(""), folderName(std::string(parentPath(mainPath))), folder},
      modifiedOr(mainPath, now));
  meeting.durationSec = finiteNumber(main, "duration_sec");
  meeting.people = peopleOf(main);
  // A session decides alone: without a word of it the main file's is not consulted, on purpose.
  meeting.visibilityHint = nonEmptyString(session ? *session : main, "visibility");
  meeting.tags = tagsOf(main, session);
  meeting.files = pathTexts(files.files);
  JSONObject notes = notesOf(std::move(main));  // the last to want it
  meeting.verdict = notes.getString("verdict").value_or("");
  meeting.digestFollowsNotes = true;
  meeting.notes = std::move(notes);
  meeting.lines = std::move(file.lines);
  readUpload(meeting, files);
  return meeting;
}

}  // namespace velta
