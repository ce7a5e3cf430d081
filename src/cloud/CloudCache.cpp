#include "cloud/CloudCache.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "meetings/TextNorm.h"
#include "platform/Files.h"

namespace velta {
namespace {

constexpr int kIndentation = 1;
constexpr mode_t kCachePermissions = 0600;

// Whether the meeting is the one that the service calls `uuid`. The file can be edited; a row may
// not stand in for another meeting.
bool isMeetingOf(const std::string& uuid, const Meeting& meeting) {
  return uuidPattern().matches(uuid) && meeting.id == "cloud-" + uuid && meeting.source == "cloud";
}

std::optional<WebMeetings::Row> rowOf(const std::string& uuid, const JSON& value) {
  const JSONObject* object = value.asObject();
  if (object == nullptr) return std::nullopt;
  const auto rev = object->getString("rev");
  const JSON* stored = object->get("meeting");
  auto meeting = stored != nullptr ? Meeting::fromJSON(*stored) : std::nullopt;
  if (!rev || !meeting || !isMeetingOf(uuid, *meeting)) return std::nullopt;
  meeting->cloudId = uuid;
  meeting->visibilityHint.reset();  // who may see it is the user's business alone
  std::optional<std::string> applied;
  if (const auto text = object->getString("applied")) applied = *text;
  return WebMeetings::Row{std::string(*rev), std::make_shared<const Meeting>(*std::move(meeting)),
                          std::move(applied)};
}

// Makes rows of the members of the top-level object one by one: the value of the whole file would
// take several times the memory of the file.
class RowHandler {
 public:
  explicit RowHandler(WebMeetings::Rows& rows) : rows_(rows) {}

  void onNull() {
    value([](JSONBuilder& to) { to.onNull(); });
  }
  void onBool(bool v) {
    value([v](JSONBuilder& to) { to.onBool(v); });
  }
  void onInt(std::int64_t v) {
    value([v](JSONBuilder& to) { to.onInt(v); });
  }
  void onDouble(double v) {
    value([v](JSONBuilder& to) { to.onDouble(v); });
  }
  void onString(std::string_view v) {
    value([v](JSONBuilder& to) { to.onString(v); });
  }
  void onKey(std::string_view key) {
    if (depth_ == 1) {
      uuid_ = key;
    } else {
      builder_.onKey(key);
    }
  }
  void onObjectBegin() {
    if (depth_++ == 0) {
      isObject_ = true;
    } else {
      builder_.onObjectBegin();
    }
  }
  void onObjectEnd() {
    end([](JSONBuilder& to) { to.onObjectEnd(); });
  }
  void onArrayBegin() {
    if (depth_++ > 0) builder_.onArrayBegin();
  }
  void onArrayEnd() {
    end([](JSONBuilder& to) { to.onArrayEnd(); });
  }

 private:
  template <class Event>
  void value(Event event) {
    if (depth_ == 0) return;
    event(builder_);
    finishMember();
  }

  template <class Event>
  void end(Event event) {
    if (--depth_ == 0) return;
    event(builder_);
    finishMember();
  }

  // At depth 1 a whole member has come.
  void finishMember() {
    if (depth_ != 1) return;
    const JSON member = builder_.take();
    if (!isObject_) return;
    rows_.erase(uuid_);  // of a repeated member the last counts
    if (auto row = rowOf(uuid_, member)) rows_.emplace(uuid_, *std::move(row));
  }

  WebMeetings::Rows& rows_;
  JSONBuilder builder_;
  std::size_t depth_ = 0;
  bool isObject_ = false;  // whether the top-level value is an object
  std::string uuid_;
};

// A row as text, indented unless that would be next to nothing but blanks.
std::string textOf(const JSONObject& row) {
  constexpr std::size_t kLarge = std::size_t{1} << 20U;  // bytes
  constexpr std::size_t kMostBlanks = 8;                 // times the text without any
  std::string compact;
  try {
    std::string indented = writeIndented(row, kIndentation);
    if (indented.size() < kLarge) return indented;
    compact = writeCompact(row);
    if (indented.size() < kMostBlanks * compact.size()) return indented;
  } catch (const std::length_error&) {
    compact = writeCompact(row);
  }
  return compact;
}

// A row as a member, one level deep.
void appendRow(std::string& out, const std::string& uuid, const WebMeetings::Row& row) {
  JSONObject object;
  object.set("rev", row.rev);
  object.set("meeting", row.meeting->toJSON());
  if (row.applied) object.set("applied", *row.applied);
  appendQuoted(out.append(1, ' '), uuid);
  out += ": ";
  for (const char c : textOf(object)) {  // a line feed is never part of a string
    out += c;
    if (c == '\n') out.append(kIndentation, ' ');
  }
}

}  // namespace

WebMeetings::Rows readCloudCache(const std::string& path) {
  WebMeetings::Rows rows;
  try {
    RowHandler handler(rows);
    parseJSONEvents(readFileBytes(path).view(), handler);
    return rows;
  } catch (const std::system_error&) {
    return {};
  } catch (const JSONParseError&) {
    return {};
  }
}

void writeCloudCache(const WebMeetings::Rows& rows, const std::string& path) {
  std::string text = "{";
  for (const auto& [uuid, row] : rows) {
    text += text.size() == 1 ? "\n" : ",\n";
    appendRow(text, uuid, row);
  }
  text += rows.empty() ? "}" : "\n}";
  writeFileAtomically(path, text, kCachePermissions);
}

}  // namespace velta
