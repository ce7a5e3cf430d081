#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "meetings/TextNorm.h"
#include "store/Answer.h"
#include "store/Store.h"

namespace velta {
namespace {

constexpr std::string_view kLegacyNote =
    "Legacy meeting: decisions and viewpoints come from the written digest and carry no timestamp. "
    "For evidence, use chapters (with times) or search_transcripts / get_transcript";

// All sections, in the order of the answer.
constexpr std::array<std::string_view, 11> kSections = {
    "verdict", "summary", "decisions", "chapters", "viewpoints", "open_questions",
    "topics",  "quotes",  "people",    "digest",   "user_notes"};

JSON peopleOf(const Meeting& meeting) {
  JSON::Array people;
  for (JSONObject& person : meeting.people.unpack()) people.emplace_back(std::move(person));
  return people;
}

JSON digestOf(const std::vector<Meeting::Digest>& items) {
  JSON::Array shown;
  for (const Meeting::Digest& item : items) {
    JSONObject object{{"section", item.section}};
    if (item.t) {
      object.set("t", *item.t);
      object.set("clock", formatClock(*item.t));
    }
    object.set("text", item.text);
    shown.emplace_back(std::move(object));
  }
  return shown;
}

// What the meeting has under the section's name, taken out of `notes`; absent when it has nothing.
std::optional<JSON> sectionOf(const Meeting& meeting, JSONObject& notes, std::string_view name) {
  if (name == "people" && !meeting.people.empty()) return peopleOf(meeting);
  if (name == "digest") {
    const std::vector<Meeting::Digest> items = meeting.digestItems();
    return items.empty() ? std::nullopt : std::optional<JSON>(digestOf(items));
  }
  if (name == "people") return std::nullopt;
  if (JSON* section = notes.get(name)) return std::move(*section);
  if (name == "verdict" && !meeting.verdict.empty()) return meeting.verdict;
  return std::nullopt;
}

bool isWanted(const std::optional<std::vector<std::string>>& sections, std::string_view name) {
  return !sections || std::find(sections->begin(), sections->end(), name) != sections->end();
}

}  // namespace

JSONObject Store::getMeeting(const std::string& id,
                             const std::optional<std::vector<std::string>>& sections,
                             const Access& access) const {
  JSONObject status = status_();
  const Index::Entry& entry = resolve(id, access);
  const Meeting& meeting = *entry.meeting;
  JSONObject result{{"id", meeting.id},
                    {"title", meeting.title},
                    {"date", meeting.date},
                    {"started_at", meeting.startedAt},
                    {"duration_sec", meeting.durationSec},
                    {"source", meeting.source},
                    {"visibility", entry.visibility},
                    {"tags", stringArray(entry.tags)},
                    {"index", std::move(status)}};
  JSONObject notes = meeting.notes.unpack();
  for (const std::string_view name : kSections) {
    if (!isWanted(sections, name)) continue;
    if (auto section = sectionOf(meeting, notes, name)) {
      addClocks(*section);
      result.set(name, std::move(*section));
    }
  }
  result.set("transcript_lines", meeting.lines.size());
  if (meeting.source == "legacy") result.set("note", kLegacyNote);
  return result;
}

}  // namespace velta
