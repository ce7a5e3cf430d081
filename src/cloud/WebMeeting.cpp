#include "cloud/WebMeeting.h"

#include <array>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <utility>

#include "json/JSONWalk.h"
#include "meetings/ReaderSupport.h"
#include "meetings/Sources.h"
#include "meetings/TextNorm.h"

namespace velta {
namespace {

// What the service sends of the written notes.
constexpr std::array<std::string_view, 9> kNotes = {"verdict",  "summary",    "decisions",
                                                    "chapters", "viewpoints", "open_questions",
                                                    "topics",   "quotes",     "user_notes"};

JSONObject notesOf(JSONObject& object) {
  JSONObject notes;
  for (const std::string_view key : kNotes) {
    JSON* value = object.get(key);
    if (value != nullptr && !value->isNull()) notes.set(key, std::move(*value));
  }
  return notes;
}

// The first text that says anything.
std::optional<std::string> firstText(const JSONObject& object,
                                     std::initializer_list<std::string_view> keys) {
  for (const std::string_view key : keys) {
    if (auto text = nonEmptyString(object, key)) return text;
  }
  return std::nullopt;
}

std::optional<std::string> firstDate(const JSONObject& object) {
  for (const std::string_view key : {"date", "started_at", "created_at"}) {
    const std::string_view text = object.getString(key).value_or("");
    if (const auto match = isoDatePattern().search(text)) return std::string(match->group(0));
  }
  return std::nullopt;
}

// When the last line ends that says when it ends.
std::optional<double> endOfLines(const Meeting::Transcript& lines) {
  for (std::size_t index = lines.size(); index > 0; --index) {
    if (const auto end = lines.tEnd(index - 1)) return end;
  }
  return std::nullopt;
}

}  // namespace

Meeting webMeeting(const std::string& uuid, JSONObject object) {
  dropUnwritableNumbers(object);
  Meeting meeting;
  meeting.id = "cloud-" + uuid;
  meeting.source = "cloud";
  meeting.cloudId = uuid;
  meeting.title = firstText(object, {"title", "title_suggestion"}).value_or("");
  meeting.startedAt = firstText(object, {"started_at", "created_at"});
  meeting.date = firstDate(object);
  if (const JSON::Array* lines = object.getArray("transcript"))
    meeting.lines = transcriptOfElements(*lines);
  meeting.durationSec = finiteNumber(object, "duration_sec");
  if (!meeting.durationSec) meeting.durationSec = endOfLines(meeting.lines);
  meeting.people = objectElements(object.getArray("speakers"));
  meeting.tags = stringElements(object.getArray("tags"));
  JSONObject notes = notesOf(object);  // the last to want it
  meeting.verdict = notes.getString("verdict").value_or("");
  meeting.digestFollowsNotes = true;
  meeting.notes = std::move(notes);
  return meeting;
}

}  // namespace velta
