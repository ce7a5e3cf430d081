#include "index/SearchTexts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

#include "json/JSON.h"
#include "meetings/Sources.h"
#include "meetings/TextNorm.h"

namespace velta {
namespace {

constexpr std::array<std::string_view, 8> kBodySections = {
    "decisions", "open_questions", "summary", "user_notes",
    "chapters",  "viewpoints",     "topics",  "note"};

// Members that point at other things instead of saying something.
constexpr std::array<std::string_view, 3> kReferences = {"id", "line", "start_line"};

constexpr std::array<std::string_view, 4> kNoteSections = {"summary", "topics", "quotes",
                                                           "user_notes"};

bool isReference(std::string_view key) {
  return std::ranges::find(kReferences, key) != kReferences.end();
}

void appendLine(std::string& body, std::string_view text) {
  body += '\n';
  body += text;
}

// Puts the values inside `value` on the stack so that the first comes off first.
void pushInside(std::vector<const JSON*>& stack, const JSON& value) {
  const std::size_t bottom = stack.size();
  if (const JSON::Array* array = value.asArray()) {
    for (const JSON& element : *array) stack.push_back(&element);
  } else if (const JSONObject* object = value.asObject()) {
    for (const auto& [key, member] : *object) {
      if (!isReference(key)) stack.push_back(&member);
    }
  }
  std::reverse(stack.begin() + static_cast<std::ptrdiff_t>(bottom), stack.end());
}

// Appends every string of `value` in the order of the text. A stack of its own instead of
// recursion: notes may be nested deeper than the program's stack.
void appendLeaves(std::string& body, const JSON& value) {
  std::vector<const JSON*> stack = {&value};
  while (!stack.empty()) {
    const JSON* top = stack.back();
    stack.pop_back();
    if (const auto text = top->asString()) {
      appendLine(body, *text);
    } else {
      pushInside(stack, *top);
    }
  }
}

std::optional<std::string> speakerOf(const JSON& item) {
  const JSONObject* object = item.asObject();
  if (object == nullptr) return std::nullopt;
  const auto speaker = object->getString("speaker");
  return speaker ? std::optional<std::string>(*speaker) : std::nullopt;
}

void addNoteText(std::vector<NoteText>& texts, std::string lineId, std::string_view section,
                 const JSON& item) {
  std::string text = itemText(item);
  if (text.empty()) return;
  texts.push_back(
      {std::move(lineId), std::string(section), itemTime(item), speakerOf(item), std::move(text)});
}

// One text for a list item, numbered by its place in the list, or one for the whole section.
void addSection(std::vector<NoteText>& texts, std::string_view section, const JSON& value) {
  const JSON::Array* items = value.asArray();
  if (items == nullptr) return addNoteText(texts, std::string(section), section, value);
  std::size_t number = 0;
  for (const JSON& item : *items) {
    addNoteText(texts, std::string(section) + "-" + std::to_string(++number), section, item);
  }
}

void addVerdict(std::vector<NoteText>& texts, const Meeting& meeting, const JSONObject& notes) {
  if (!meeting.verdict.empty()) {
    addNoteText(texts, "verdict", "verdict", JSON(meeting.verdict));
  } else if (const JSON* verdict = notes.get("verdict")) {
    addSection(texts, "verdict", *verdict);
  }
}

}  // namespace

std::string bodyLowerOf(const Meeting& meeting, const JSONObject& notes) {
  std::string body = meeting.title;
  appendLine(body, meeting.verdict);
  for (const std::string_view section : kBodySections) {
    if (const JSON* value = notes.get(section)) appendLeaves(body, *value);
  }
  for (const Meeting::Digest& item : meeting.digestItems(notes)) appendLine(body, item.text);
  lowerASCIIInPlace(body);
  return body;
}

std::vector<NoteText> noteTextsOf(const Meeting& meeting, const JSONObject& notes) {
  std::vector<NoteText> texts;
  addVerdict(texts, meeting, notes);
  for (const std::string_view section : kNoteSections) {
    if (const JSON* value = notes.get(section)) addSection(texts, section, *value);
  }
  return texts;
}

// A word with a character that JSON escapes may stand there in another form, and an item of the
// digest joins a speaker and a point with a colon that stands in no note.
bool mayBePacked(const Meeting& meeting, const QueryToken& word) {
  return word.isEscapedInJSON() || word.holds(':') || word.isIn(meeting.notes.text()) ||
         word.isIn(meeting.digest.text());
}

}  // namespace velta
