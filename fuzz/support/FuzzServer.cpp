#include "support/FuzzServer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "meetings/TextNorm.h"
#include "platform/Text.h"
#include "support/Require.h"

namespace velta::fuzz {
namespace {

constexpr std::string_view kToolsChanged =
    R"({"jsonrpc":"2.0","method":"notifications/tools/list_changed"})";
constexpr std::size_t kMostHits = 200;
constexpr std::size_t kMostLines = 2000;

std::string_view textOf(const JSONObject& envelope) {
  const JSON::Array* content = envelope.getArray("content");
  require(content != nullptr && content->size() == 1, "a result has one item");
  const JSONObject* item = content->front().asObject();
  require(item != nullptr && item->getString("type") == "text", "the item is a text");
  const auto text = item->getString("text");
  require(text.has_value(), "the text is there");
  return *text;
}

// The whole result, with the member that was written ahead as a value again.
JSONObject envelopeOf(Result result) {
  if (result.content.empty()) return std::move(result.members);
  JSONObject envelope;
  envelope.set("content", parsedLine(result.content));
  for (auto&& [key, value] : result.members) envelope.set(key, std::move(value));
  return envelope;
}

// A word of a text that a search takes as one.
std::string_view firstWord(std::string_view text) {
  constexpr std::string_view kSeparators = " \t\n\r";
  const std::size_t begin = text.find_first_not_of(kSeparators);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_first_of(kSeparators, begin) - begin);
}

// In how many lines of all meetings the word stands, by the slowest way.
std::size_t linesWith(const Index& index, std::string_view word) {
  const std::string lowered = lowerASCII(word);
  std::size_t count = 0;
  for (const auto& [id, entry] : index.entries()) {
    const Meeting::Transcript& lines = entry.meeting->lines;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      if (lowerASCII(lines.text(i)).find(lowered) != std::string::npos) ++count;
    }
  }
  return count;
}

void checkSearch(FuzzServer& server, std::string_view word) {
  const JSONObject found = server.success(
      "search_transcripts", {{"query", word}, {"limit", kMostHits}, {"include_digest", false}});
  const auto hits = static_cast<std::size_t>(found.getInt("count").value_or(-1));
  // Other script variants of the word may be found besides.
  require(hits >= std::min(linesWith(server.state.index, word), kMostHits),
          "a search finds every line that holds the word", word);
}

void checkTranscript(FuzzServer& server, const Meeting& meeting) {
  const Meeting::Transcript& lines = meeting.lines;
  const JSONObject all =
      server.success("get_transcript", {{"id", meeting.id}, {"limit", kMostLines}});
  const JSON::Array& shown = *all.getArray("lines");
  require(shown.size() == std::min(lines.size(), kMostLines), "a transcript is whole", meeting.id);
  std::set<std::string> ids;
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const JSONObject& line = *shown[i].asObject();
    require(line.getString("text") == lines.text(i), "lines come in order", meeting.id);
    ids.emplace(line.getString("line_id").value());
  }
  require(ids.size() == shown.size(), "every line has an id of its own", meeting.id);
  if (lines.empty()) return;

  const std::size_t middle = lines.size() / 2;
  const double start = lines.tStart(middle);
  const JSONObject one = server.success(
      "get_transcript",
      {{"id", meeting.id}, {"from_sec", start}, {"to_sec", start}, {"limit", kMostLines}});
  require(one.getInt("count").value_or(0) > 0, "a line is found by its time", meeting.id);
  const std::string_view word = firstWord(lines.text(middle));
  if (!word.empty()) checkSearch(server, word);
}

// What a meeting says of itself as JSON makes the same meeting again.
void checkCanonicalForm(const Meeting& meeting) {
  const JSON form = meeting.toJSON();
  const auto again = Meeting::fromJSON(parseJSON(writeCompact(form)));
  require(again.has_value(), "a meeting comes back from its own form", meeting.id);
  require(JSON(again->toJSON()) == form, "a meeting comes back as it was",
          writeCompact(form) + "\n  now " + writeCompact(again->toJSON()));
}

void askForMeeting(FuzzServer& server, const Meeting& meeting) {
  checkCanonicalForm(meeting);
  const JSONObject whole = server.success("get_meeting", {{"id", meeting.id}});
  require(whole.getString("id") == meeting.id, "the meeting that was asked for comes", meeting.id);
  require(whole.getInt("transcript_lines") == static_cast<std::int64_t>(meeting.lines.size()),
          "the number of lines is told", meeting.id);
  server.success("get_meeting",
                 {{"id", meeting.id}, {"sections", JSON::Array{"digest", "people"}}});
  checkTranscript(server, meeting);
  for (const JSONObject& person : meeting.people.unpack()) {
    if (const auto name = person.getString("name")) server.call("get_person", {{"name", *name}});
  }
  const std::string_view word = firstWord(meeting.title);
  if (word.empty()) return;
  const JSONObject found = server.success("list_meetings", {{"query", word}, {"limit", kMostHits}});
  require(found.getInt("count").value_or(0) > 0, "a meeting is found by its title", meeting.title);
}

}  // namespace

ServerOptions serverOptions(const FuzzHome& home, const ServerChoices& choices) {
  return {.config = home.config(),
          .client = choices.client,
          .adminStats = choices.adminStats,
          .executable = home.file("velta-mcp"),
          .diagnose =
              [](std::string_view line) {
                require(line.ends_with('\n') && line.find('\n') == line.size() - 1,
                        "a diagnostic is one line", line);
              },
          .now = fixedNow,
          .fetcher = choices.fetcher,
          .keychain = [] { return std::optional<std::string>(); }};
}

JSON parsedLine(std::string_view text) {
  require(text.find('\n') == std::string_view::npos, "a line holds no line feed", text);
  require(isValidUTF8(text), "a line is UTF-8", text);
  try {
    JSON value = parseJSON(text);
    require(writeCompact(value) == text, "a line is written compactly", text);
    return value;
  } catch (const JSONParseError& error) {
    violated("a line is JSON", std::string(error.what()) + " in " + std::string(text));
  }
}

void checkEnvelope(const JSONObject& envelope) {
  const std::string_view text = textOf(envelope);
  const auto isError = envelope.getBool("isError");
  require(isError.has_value(), "a result says whether it is an error");
  const JSONObject* structure = envelope.getObject("structuredContent");
  require(envelope.has("structuredContent") == !*isError, "a success has a structure, no other");
  if (*isError) {
    require(!text.empty(), "an error says something");
  } else {
    require(structure != nullptr && text == writeIndented(*structure, 2),
            "the text is the structure", text);
  }
}

void checkActivityLog(const FuzzHome& home, std::size_t count) {
  const std::string log = home.read("activity.jsonl");
  std::size_t records = 0;
  for (std::size_t at = 0; at < log.size(); ++records) {
    const std::size_t end = log.find('\n', at);
    require(end != std::string::npos, "a record ends with a line feed", log.substr(at));
    const JSON record = parsedLine(std::string_view(log).substr(at, end - at));
    const JSONObject* members = record.asObject();
    require(members != nullptr && members->has("status") && members->getObject("args") != nullptr,
            "a record of the activity log is an object", log.substr(at, end - at));
    at = end + 1;
  }
  require(records == count, "every call has one record", std::to_string(records));
}

JSONObject FuzzServer::call(const JSONObject& params) {
  std::vector<std::string> queue;
  JSONObject envelope = envelopeOf(dispatch_.call(params, queue));
  ++calls_;
  for (const std::string& line : queue)
    require(line == kToolsChanged, "only the notice of changed tools goes before an answer", line);
  require(queue.size() <= 1, "the notice of changed tools comes once");
  checkEnvelope(envelope);
  parsedLine(writeCompact(envelope));
  return envelope;
}

JSONObject FuzzServer::call(std::string_view tool, JSONObject arguments) {
  JSONObject params{{"name", tool}};
  params.set("arguments", std::move(arguments));
  return call(params);
}

JSONObject FuzzServer::success(std::string_view tool, JSONObject arguments) {
  const JSONObject envelope = call(tool, std::move(arguments));
  require(envelope.getBool("isError") == false, "the call succeeds",
          std::string(tool) + ": " + std::string(textOf(envelope)));
  return *envelope.getObject("structuredContent");
}

void askForEverything(FuzzServer& server) {
  server.call("list_meetings", {{"limit", kMostHits}});  // brings the index up to date
  const Index& index = server.state.index;
  if (index.entries().empty()) return;
  const JSONObject listed = server.success("list_meetings", {{"limit", kMostHits}});
  require(static_cast<std::size_t>(listed.getInt("count").value_or(-1)) == index.entries().size(),
          "every meeting is listed");
  std::vector<std::string> ids;
  for (const auto& [id, entry] : index.entries()) ids.push_back(id);
  for (const std::string& id : ids) askForMeeting(server, *index.find(id)->meeting);
}

}  // namespace velta::fuzz
