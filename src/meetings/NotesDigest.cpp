// The digest items that all readers make of the written notes.
#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "meetings/ReaderSupport.h"
#include "meetings/Sources.h"

namespace velta {
namespace {

// The sections of the notes that become digest items, in their order.
constexpr std::array<std::string_view, 4> kSections = {"decisions", "open_questions", "chapters",
                                                       "viewpoints"};
// The members of an item that tell what it says, in reading order.
constexpr std::array<std::string_view, 15> kTextKeys = {
    "title",     "text", "topic", "question", "name",  "oneLine", "result", "outcome",
    "positions", "next", "note",  "points",   "owner", "who",     "speaker"};
constexpr std::array<std::string_view, 3> kTimeKeys = {"t_start", "start", "t"};

void appendWord(std::string& text, std::string_view word) {
  if (word.empty()) return;
  if (!text.empty()) text += ' ';
  text += word;
}

// Appends the strings in `value`, at any depth, in order.
void appendStringLeaves(std::string& text, const JSON& value) {
  std::vector<const JSON*> pending = {&value};  // a stack of its own: nesting has no limit
  while (!pending.empty()) {
    const JSON& next = *pending.back();
    pending.pop_back();
    const auto mark = static_cast<std::ptrdiff_t>(pending.size());
    if (const auto leaf = next.asString()) {
      appendWord(text, *leaf);
    } else if (const JSON::Array* array = next.asArray()) {
      for (const JSON& element : *array) pending.push_back(&element);
    } else if (const JSONObject* object = next.asObject()) {
      for (const auto& [key, member] : *object) pending.push_back(&member);
    }
    std::reverse(pending.begin() + mark, pending.end());
  }
}

// Whether the member says again who owns the item: "who" is an older name of "owner", and readers
// give an item both.
bool repeatsOwner(const JSONObject& item, std::string_view key) {
  return key == "who" && item.has("owner") && item.getString("who") == item.getString("owner");
}

// Numbers the items as they come.
class DigestList {
 public:
  void add(std::string_view section, std::string text, std::optional<double> t) {
    if (text.empty()) return;
    items_.push_back({digestId(items_.size() + 1), std::string(section), std::move(text), t});
  }
  std::vector<Meeting::Digest> take() { return std::move(items_); }

 private:
  std::vector<Meeting::Digest> items_;
};

std::string_view viewpointSpeaker(const JSONObject& viewpoint) {
  for (const std::string_view key : {"speaker", "name", "who"}) {
    const auto speaker = viewpoint.getString(key);
    if (speaker && !speaker->empty()) return *speaker;
  }
  return {};
}

// One item a point. A viewpoint without a list of points is an item like any other.
void addViewpoint(DigestList& list, std::string_view section, const JSON& viewpoint) {
  const JSONObject* object = viewpoint.asObject();
  const JSON::Array* points = object != nullptr ? object->getArray("points") : nullptr;
  if (points == nullptr) {
    list.add(section, itemText(viewpoint), itemTime(viewpoint));
    return;
  }
  const std::string_view speaker = viewpointSpeaker(*object);
  for (const JSON& point : *points) {
    std::string text = itemText(point);
    if (text.empty()) continue;
    if (!speaker.empty()) text.insert(0, ": ").insert(0, speaker);
    const auto time = itemTime(point);
    list.add(section, std::move(text), time ? time : itemTime(viewpoint));
  }
}

}  // namespace

std::string itemText(const JSON& item) {
  std::string text;
  if (const auto whole = item.asString()) {
    text = *whole;
  } else if (const JSONObject* object = item.asObject()) {
    for (const std::string_view key : kTextKeys) {
      const JSON* member = object->get(key);
      if (member == nullptr || repeatsOwner(*object, key)) continue;
      appendStringLeaves(text, *member);
    }
  }
  return text;
}

std::optional<double> itemTime(const JSON& item) {
  const JSONObject* object = item.asObject();
  if (object == nullptr) return std::nullopt;
  for (const std::string_view key : kTimeKeys) {
    if (const auto time = finiteNumber(*object, key)) return time;
  }
  return std::nullopt;
}

std::vector<Meeting::Digest> digestOfNotes(const JSONObject& notes) {
  DigestList list;
  for (const std::string_view section : kSections) {
    const JSON::Array* items = notes.getArray(section);
    if (items == nullptr) continue;
    for (const JSON& item : *items) {
      if (section == "viewpoints") {
        addViewpoint(list, section, item);
      } else {
        list.add(section, itemText(item), itemTime(item));
      }
    }
  }
  return list.take();
}

}  // namespace velta
