#include "meetings/LegacyReader.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "json/JSONParser.h"
#include "meetings/ReaderSupport.h"
#include "meetings/TextNorm.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::string_view kIdPrefix = "legacy-";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool isPlainFileName(std::string_view name) {
  return !name.empty() && name != "." && name.find('/') == std::string_view::npos &&
         name.find("..") == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

// The lines of a markdown text, each without its line feed and one carriage return before it.
std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  while (!text.empty()) {
    const auto end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    lines.push_back(line);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

std::string readMarkdown(const std::string& path) {
  try {
    return readFile(path);
  } catch (const std::system_error&) {
    return {};  // it went away since it was listed
  }
}

// Members of a record; what the record itself lacks may stand in its "digest" object.
class Record {
 public:
  explicit Record(JSONObject members) : members_(std::move(members)) {}

  const JSONObject& own() const { return members_; }

  // The value under `key`, null pointer when absent or null.
  const JSON* get(std::string_view key) const {
    const JSON* value = members_.get(key);
    if (value != nullptr && !value->isNull()) return value;
    const JSONObject* digest = members_.getObject("digest");
    value = digest != nullptr ? digest->get(key) : nullptr;
    return value != nullptr && !value->isNull() ? value : nullptr;
  }

  std::optional<double> duration() const {
    const JSON* seconds = get("durationSec");
    const auto number = seconds != nullptr ? seconds->asNumber() : std::nullopt;
    return number && std::isfinite(*number) ? number : std::nullopt;
  }

  const JSON::Array* getArray(std::string_view key) const {
    const JSON* value = get(key);
    return value != nullptr ? value->asArray() : nullptr;
  }

 private:
  JSONObject members_;
};

Record parseRecord(const std::string& path) {
  const FileBytes file = readMainFile(path);
  JSON value;
  try {
    value = parseJSON(file.view());
  } catch (const JSONParseError& error) {
    throw Sources::ReadError(notAnObject(path, error.what()));
  }
  JSONObject* object = value.asObject();
  if (object == nullptr) throw Sources::ReadError(notAnObject(path, ""));
  return Record(std::move(*object));
}

// `items` in the form that newer notes have: string items as objects, and with `whoOwns` an item's
// "who" as its "owner".
JSON modernItems(const JSON& items, bool whoOwns) {
  const JSON::Array* array = items.asArray();
  if (array == nullptr) return items;
  JSON::Array modern;
  modern.reserve(array->size());
  for (const JSON& item : *array) {
    JSON element = item.asString() ? JSON(JSONObject{{"text", item}}) : item;
    JSONObject* object = element.asObject();
    const JSON* who = object != nullptr && whoOwns ? object->get("who") : nullptr;
    if (who != nullptr && !object->has("owner")) object->set("owner", JSON(*who));
    modern.push_back(std::move(element));
  }
  return modern;
}

JSONObject notesOf(const Record& record) {
  struct Section {
    std::string_view key;    // in the notes
    std::string_view first;  // in the record
    std::string_view second;
  };
  constexpr std::array<Section, 6> kSections = {{{"decisions", "decisions", {}},
                                                 {"open_questions", "openQuestions", {}},
                                                 {"chapters", "chapters", "segments"},
                                                 {"viewpoints", "viewpoints", {}},
                                                 {"topics", "topics", {}},
                                                 {"ideas", "ideas", {}}}};
  JSONObject notes;
  if (const JSON* verdict = record.get("verdict")) notes.set("verdict", *verdict);
  for (const auto& section : kSections) {
    const JSON* items = record.get(section.first);
    if (items == nullptr && !section.second.empty()) items = record.get(section.second);
    if (items != nullptr) notes.set(section.key, modernItems(*items, section.key == "decisions"));
  }
  return notes;
}

std::string joinedText(const Sources::Row& row) {
  std::string text;
  for (const auto& line : row.text) {
    const std::string_view trimmed = trimWhiteSpace(line);
    if (trimmed.empty()) continue;
    if (!text.empty()) text += '\n';
    text += trimmed;
  }
  return text;
}

Meeting::Transcript transcriptOf(std::string_view markdown) {
  Meeting::Transcript lines;
  for (const auto& row : Sources::parseTranscript(markdown)) {
    lines.append("", row.tStart, std::nullopt, row.speaker, joinedText(row));
  }
  lines.settleIds();
  return lines;
}

std::optional<double> firstClockTime(std::string_view line) {
  if (line.find(':') == std::string_view::npos) return std::nullopt;
  const auto match = inlineTimePattern().search(line);
  if (!match) return std::nullopt;
  return parseClock(match->group(1));
}

// Appends one item for every line under a heading that is not blank.
void appendDigestNote(std::vector<Meeting::Digest>& digest, std::string_view markdown) {
  for (const auto& section : Sources::parseDigest(markdown)) {
    for (const auto& line : section.text) {
      const std::string_view text = trimWhiteSpace(line);
      if (text.empty()) continue;
      digest.push_back(
          {digestId(digest.size() + 1), section.section, std::string(text), firstClockTime(text)});
    }
  }
}

// The transcript, and the digest items that follow those of the record.
void readMarkdownFiles(Meeting& meeting, std::vector<Meeting::Digest>& digest,
                       const Sources::FileSet& files) {
  bool hasTranscript = false;
  for (std::size_t i = 1; i < files.files.size(); ++i) {
    const std::string& path = files.files[i];
    if (!hasTranscript && lastComponent(path) == kLegacyTranscript) {
      meeting.lines = transcriptOf(readMarkdown(path));
      hasTranscript = true;
    } else {
      appendDigestNote(digest, readMarkdown(path));
    }
  }
}

std::string meetingId(const std::optional<std::string>& id, const std::string& folder) {
  if (!id) return std::string(kIdPrefix) + slugify(folder);
  return id->starts_with(kIdPrefix) ? *id : std::string(kIdPrefix) + *id;
}

std::optional<std::string> stringValue(const JSON* value) {
  const auto text = value != nullptr ? value->asString() : std::nullopt;
  if (!text || text->empty()) return std::nullopt;
  return std::string(*text);
}

}  // namespace

std::vector<Sources::Row> Sources::parseTranscript(std::string_view markdown) {
  const std::string text = repairUTF8(markdown);
  std::vector<Row> rows;
  for (const std::string_view line : linesOf(text)) {
    // Only a line that begins so can match, and the pattern costs more than the look.
    const auto match = line.starts_with('@') ? speakerLinePattern().search(line) : std::nullopt;
    if (match) {
      rows.push_back({std::string(match->group(1)), parseClock(match->group(2)), {}});
    } else if (!rows.empty()) {
      rows.back().text.emplace_back(line);
    }
  }
  return rows;
}

std::vector<Sources::Sec> Sources::parseDigest(std::string_view markdown) {
  const std::string text = repairUTF8(markdown);
  std::vector<Sec> sections;
  for (const std::string_view line : linesOf(text)) {
    const auto match = line.starts_with('#') ? headingPattern().search(line) : std::nullopt;
    if (match) {
      sections.push_back({std::string(trimWhiteSpace(match->group(2))), {}});
    } else if (!sections.empty()) {
      sections.back().text.emplace_back(line);
    }
  }
  return sections;
}

std::optional<std::string> legacyDigestName(const JSONObject& record) {
  const auto named = record.getString("digestFile");
  if (named && isPlainFileName(*named)) return std::string(*named);
  const auto id = record.getString("id");
  if (!id) return std::nullopt;
  std::string name = std::string(*id) + "-digest.md";
  if (!isPlainFileName(name)) return std::nullopt;
  return name;
}

Meeting readLegacy(const Sources::FileSet& files, Instant now) {
  const std::string& mainPath = files.files.front();
  const Record record = parseRecord(mainPath);
  const std::string folder = folderName(std::string(parentPath(mainPath)));
  const auto id = nonEmptyString(record.own(), "id");

  Meeting meeting;
  meeting.id = meetingId(id, folder);
  meeting.source = "legacy";
  meeting.title = nonEmptyString(record.own(), "title").value_or(folder);
  meeting.date = nonEmptyString(record.own(), "date");
  if (!meeting.date) {
    meeting.date = deriveDate({id.value_or(""), folder, meeting.title}, modifiedOr(mainPath, now));
  }
  meeting.durationSec = record.duration();
  meeting.people = objectElements(record.getArray("people"));
  JSONObject notes = notesOf(record);
  meeting.verdict = notes.getString("verdict").value_or("");
  meeting.tags = stringElements(record.own().getArray("tags"));
  meeting.files = pathTexts(files.files);
  meeting.status = stringValue(record.get("status"));
  std::vector<Meeting::Digest> digest = digestOfNotes(notes);
  readMarkdownFiles(meeting, digest, files);
  meeting.setDigest(std::move(digest), notes);
  meeting.notes = std::move(notes);
  return meeting;
}

}  // namespace velta
