#include "meetings/Meeting.h"

#include <utility>

#include "json/JSONParser.h"
#include "json/JSONWalk.h"
#include "json/JSONWriter.h"
#include "meetings/ReaderSupport.h"
#include "meetings/Sources.h"

namespace velta {
namespace {

std::optional<std::string> optionalText(const JSONObject& object, std::string_view key) {
  const auto text = object.getString(key);
  if (!text) return std::nullopt;
  return std::string(*text);
}

std::string textOr(const JSONObject& object, std::string_view key, std::string_view fallback) {
  return std::string(object.getString(key).value_or(fallback));
}

Meeting::Transcript readLines(const JSON::Array* elements) {
  Meeting::Transcript lines;
  if (elements == nullptr) return lines;
  for (const JSON& element : *elements) {
    const JSONObject* line = element.asObject();
    const auto id = line != nullptr ? line->getString("id") : std::nullopt;
    if (!id) continue;
    lines.append(*id, line->getNumber("t_start").value_or(0), line->getNumber("t_end"),
                 line->getString("speaker").value_or("?"), line->getString("text").value_or(""));
  }
  lines.keepIds();
  return lines;
}

std::vector<Meeting::Digest> readDigest(const JSON::Array* elements) {
  std::vector<Meeting::Digest> digest;
  if (elements == nullptr) return digest;
  for (const JSON& element : *elements) {
    const JSONObject* item = element.asObject();
    const auto id = item != nullptr ? item->getString("id") : std::nullopt;
    if (!id) continue;
    digest.push_back({std::string(*id), textOr(*item, "section", ""), textOr(*item, "text", ""),
                      finiteNumber(*item, "t")});
  }
  return digest;
}

JSON::Array linesToJSON(const Meeting::Transcript& lines) {
  JSON::Array elements;
  elements.reserve(lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    JSONObject line;
    line.set("id", lines.id(i));
    line.set("t_start", lines.tStart(i));
    if (const auto end = lines.tEnd(i)) line.set("t_end", *end);
    line.set("speaker", lines.speaker(i));
    line.set("text", lines.text(i));
    elements.emplace_back(std::move(line));
  }
  return elements;
}

JSON::Array digestToJSON(const std::vector<Meeting::Digest>& digest) {
  JSON::Array elements;
  elements.reserve(digest.size());
  for (const auto& item : digest) {
    JSONObject element;
    element.set("id", item.id);
    element.set("section", item.section);
    element.set("text", item.text);
    if (item.t) element.set("t", *item.t);
    elements.emplace_back(std::move(element));
  }
  return elements;
}

template <class Value>
void setWhenPresent(JSONObject& object, std::string_view key, const std::optional<Value>& value) {
  if (value) object.set(key, *value);
}

}  // namespace

std::string packed(JSONObject notes) {
  dropUnwritableNumbers(notes);
  return writeCompact(notes);
}

std::string packed(std::vector<JSONObject> people) {
  JSON::Array elements;
  for (JSONObject& person : people) {
    dropUnwritableNumbers(person);
    elements.emplace_back(std::move(person));
  }
  return writeCompact(JSON(std::move(elements)));
}

std::string packed(const std::vector<MeetingDigest>& digest) {
  return writeCompact(JSON(digestToJSON(digest)));
}

void unpackInto(std::string_view text, JSONObject& notes) {
  notes = std::move(*parseJSON(text).asObject());
}

void unpackInto(std::string_view text, std::vector<JSONObject>& people) {
  people = objectElements(parseJSON(text).asArray());
}

void unpackInto(std::string_view text, std::vector<MeetingDigest>& digest) {
  digest = readDigest(parseJSON(text).asArray());
}

std::vector<std::string> stringElements(const JSON::Array* array) {
  std::vector<std::string> strings;
  if (array == nullptr) return strings;
  for (const JSON& element : *array) {
    if (const auto text = element.asString()) strings.emplace_back(*text);
  }
  return strings;
}

std::vector<JSONObject> objectElements(const JSON::Array* array) {
  std::vector<JSONObject> objects;
  if (array == nullptr) return objects;
  for (const JSON& element : *array) {
    if (const JSONObject* object = element.asObject()) objects.push_back(*object);
  }
  return objects;
}

std::vector<Meeting::Digest> Meeting::digestItems() const {
  return digestFollowsNotes ? digestOfNotes(notes.unpack()) : digest.unpack();
}

std::vector<Meeting::Digest> Meeting::digestItems(const JSONObject& unpackedNotes) const {
  return digestFollowsNotes ? digestOfNotes(unpackedNotes) : digest.unpack();
}

void Meeting::setDigest(std::vector<Digest> items, const JSONObject& unpackedNotes) {
  digestFollowsNotes = items == digestOfNotes(unpackedNotes);
  digest = digestFollowsNotes ? std::vector<Digest>() : std::move(items);
}

std::optional<Meeting> Meeting::fromJSON(const JSON& value) {
  const JSONObject* object = value.asObject();
  if (object == nullptr) return std::nullopt;
  const auto id = object->getString("id");
  const auto source = object->getString("source");
  if (!id || !source) return std::nullopt;

  Meeting meeting;
  meeting.id = *id;
  meeting.source = *source;
  meeting.title = textOr(*object, "title", "");
  meeting.date = optionalText(*object, "date");
  meeting.startedAt = optionalText(*object, "started_at");
  meeting.durationSec = finiteNumber(*object, "duration_sec");
  meeting.verdict = textOr(*object, "verdict", "");
  meeting.people = objectElements(object->getArray("people"));
  const JSONObject* notes = object->getObject("notes");
  if (notes != nullptr) meeting.notes = *notes;
  meeting.lines = readLines(object->getArray("lines"));
  meeting.setDigest(readDigest(object->getArray("digest")),
                    notes != nullptr ? *notes : JSONObject());
  meeting.visibilityHint = optionalText(*object, "visibility_hint");
  meeting.tags = stringElements(object->getArray("tags"));
  meeting.files = stringElements(object->getArray("files"));
  meeting.cloudId = optionalText(*object, "cloud_id");
  meeting.status = optionalText(*object, "status");
  return meeting;
}

JSONObject Meeting::toJSON() const {
  JSONObject object;
  object.set("id", id);
  object.set("source", source);
  object.set("title", title);
  setWhenPresent(object, "date", date);
  setWhenPresent(object, "started_at", startedAt);
  setWhenPresent(object, "duration_sec", durationSec);
  object.set("verdict", verdict);
  object.set("people", parseJSON(people.text()));
  object.set("notes", notes.unpack());
  object.set("lines", linesToJSON(lines));
  object.set("digest", digestToJSON(digestItems()));
  setWhenPresent(object, "visibility_hint", visibilityHint);
  object.set("tags", JSON::Array(tags.begin(), tags.end()));
  object.set("files", JSON::Array(files.begin(), files.end()));
  setWhenPresent(object, "cloud_id", cloudId);
  setWhenPresent(object, "status", status);
  return object;
}

}  // namespace velta
