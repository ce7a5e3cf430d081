#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "config/StoreError.h"
#include "index/FoldedText.h"
#include "json/JSONWalk.h"
#include "meetings/ReaderSupport.h"
#include "store/Answer.h"
#include "store/DateFilter.h"
#include "store/Store.h"
#include "terms/ScriptVariants.h"

namespace velta {
namespace {

constexpr const char* kNameIsEmpty = "name is empty";
constexpr std::string_view kNobody =
    "Nobody by that name in the visible meetings. Names are as written in each meeting; try a "
    "shorter part of the name";

// Oldest first; meetings without a date before all others; equal dates by the index's order.
bool isEarlier(const Index::Entry* a, const Index::Entry* b) {
  if (a->meeting->date != b->meeting->date) return a->meeting->date < b->meeting->date;
  return a->order < b->order;
}

bool holdsName(const JSONObject& object, std::string_view key, const QueryToken& name) {
  const auto text = object.getString(key);
  return text && name.isIn(*text);
}

// The person in one meeting; null when the meeting was chosen for other words in its people list.
const JSONObject* personIn(const std::vector<JSONObject>& people, const QueryToken& name) {
  const auto person = std::find_if(people.begin(), people.end(), [&](const JSONObject& candidate) {
    return holdsName(candidate, "name", name);
  });
  return person == people.end() ? nullptr : &*person;
}

JSON memberOrNull(const JSONObject* object, std::string_view key) {
  const JSON* value = object != nullptr ? object->get(key) : nullptr;
  return value != nullptr ? *value : JSON();
}

// The points of every viewpoint that the person holds, in one list.
JSON::Array viewpointsOf(const JSONObject& notes, const QueryToken& name) {
  JSON::Array points;
  const JSON::Array* viewpoints = notes.getArray("viewpoints");
  if (viewpoints == nullptr) return points;
  for (const JSON& element : *viewpoints) {
    const JSONObject* viewpoint = element.asObject();
    if (viewpoint == nullptr || !holdsName(*viewpoint, "speaker", name)) continue;
    if (const JSON::Array* its = viewpoint->getArray("points")) {
      points.insert(points.end(), its->begin(), its->end());
    }
  }
  return points;
}

JSON::Array decisionsOwnedBy(const JSONObject& notes, const QueryToken& name) {
  JSON::Array owned;
  const JSON::Array* decisions = notes.getArray("decisions");
  if (decisions == nullptr) return owned;
  for (const JSON& decision : *decisions) {
    const JSONObject* object = decision.asObject();
    if (object != nullptr && holdsName(*object, "owner", name)) owned.push_back(decision);
  }
  return owned;
}

JSON withClocks(JSON value) {
  addClocks(value);
  return value;
}

// The notes are unpacked only where they name somebody of that name.
JSONObject notesNaming(const Meeting& meeting, const QueryToken& name) {
  const bool mayBeNamed = name.isEscapedInJSON() || name.isIn(meeting.notes.text());
  return mayBeNamed ? meeting.notes.unpack() : JSONObject();
}

JSONObject partIn(const Meeting& meeting, const JSONObject* person, const QueryToken& name) {
  const JSONObject notes = notesNaming(meeting, name);
  return {{"meeting_id", meeting.id},
          {"title", meeting.title},
          {"date", meeting.date},
          {"name_in_meeting", memberOrNull(person, "name")},
          {"role", memberOrNull(person, "role")},
          {"talk_sec", memberOrNull(person, "talk_sec")},
          {"talk_share", memberOrNull(person, "talk_share")},
          {"viewpoints", withClocks(viewpointsOf(notes, name))},
          {"decisions_owned", withClocks(decisionsOwnedBy(notes, name))}};
}

}  // namespace

JSONObject Store::getPerson(const PersonArguments& arguments, const Access& access) const {
  if (arguments.name.empty()) throw StoreError::value(kNameIsEmpty);
  JSONObject status = status_();
  const QueryToken name(scriptVariants(arguments.name));
  const DateFilter dates(arguments.dateFrom, arguments.dateTo);
  std::vector<const Index::Entry*> kept;
  for (const Index::Card& card : index_.newestFirst()) {
    const Index::Entry* entry = card.entry;
    // On purpose the whole list as JSON text, keys and roles included, not the names alone.
    if (access.sees(*entry) && dates.passes(entry->meeting->date) &&
        name.isIn(entry->meeting->people.text())) {
      kept.push_back(entry);
    }
  }
  std::sort(kept.begin(), kept.end(), isEarlier);

  JSON::Array meetings;
  JSON::Array trend;
  double totalTalk = 0;
  for (const Index::Entry* entry : kept) {
    const Meeting& meeting = *entry->meeting;
    const std::vector<JSONObject> people = meeting.people.unpack();
    const JSONObject* person = personIn(people, name);
    if (person != nullptr) totalTalk += finiteNumber(*person, "talk_sec").value_or(0);
    meetings.emplace_back(partIn(meeting, person, name));
    trend.emplace_back(JSONObject{{"date", meeting.date},
                                  {"meeting_id", meeting.id},
                                  {"talk_share", memberOrNull(person, "talk_share")}});
  }

  JSONObject result;
  result.set("name", arguments.name);
  result.set("meetings", std::move(meetings));
  result.set("meeting_count", kept.size());
  result.set("total_talk_sec", totalTalk);
  result.set("talk_share_trend", std::move(trend));
  result.set("index", std::move(status));
  if (kept.empty()) result.set("note", emptyNote(access, index_, kNobody));
  dropUnwritableNumbers(result);  // a sum may leave the range of a double
  return result;
}

}  // namespace velta
