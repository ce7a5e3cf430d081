#include "server/ToolSchemas.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <variant>

#include "config/BuildConstants.h"

namespace velta {
namespace {

// What a tool promises to a client.
struct Hints {
  bool destructive;
  bool idempotent;
  bool openWorld;
  bool readOnly;
};

enum class Form { string, optionalString, optionalNumber, optionalStrings, withDefault };
using Default = std::variant<std::int64_t, bool, std::string_view>;

struct Argument {
  std::string_view name;
  Form form;
  Default byDefault = std::int64_t{0};  // read only when the form is withDefault
};

struct SchemaRow {
  std::string_view name;
  Hints hints;
  std::span<const Argument> arguments;         // in ascending order of their names
  std::span<const std::string_view> required;  // in the order in which they are told
  std::string_view description;
};

constexpr Argument kListMeetings[] = {
    {"date_from", Form::optionalString},
    {"date_to", Form::optionalString},
    {"limit", Form::withDefault, std::int64_t{20}},
    {"person", Form::optionalString},
    {"query", Form::optionalString},
};
constexpr Argument kGetMeeting[] = {
    {"id", Form::string},
    {"sections", Form::optionalStrings},
};
constexpr Argument kSearchTranscripts[] = {
    {"date_from", Form::optionalString},
    {"date_to", Form::optionalString},
    {"include_digest", Form::withDefault, true},
    {"limit", Form::withDefault, std::int64_t{20}},
    {"query", Form::string},
    {"speaker", Form::optionalString},
};
constexpr Argument kGetTranscript[] = {
    {"from_sec", Form::optionalNumber},
    {"id", Form::string},
    {"limit", Form::withDefault, std::int64_t{400}},
    {"to_sec", Form::optionalNumber},
};
constexpr Argument kGetPerson[] = {
    {"date_from", Form::optionalString},
    {"date_to", Form::optionalString},
    {"name", Form::string},
};
constexpr Argument kProcessRecording[] = {
    {"language", Form::optionalString},
    {"path", Form::string},
    {"title", Form::optionalString},
};
constexpr Argument kGetJob[] = {
    {"id", Form::string},
};
constexpr Argument kAddTerm[] = {
    {"right", Form::string},
    {"tier", Form::withDefault, std::string_view("hint")},
    {"wrong", Form::string},
};
constexpr Argument kAdminStats[] = {
    {"days", Form::withDefault, std::int64_t{30}},
};

constexpr std::string_view kId[] = {"id"};
constexpr std::string_view kQuery[] = {"query"};
constexpr std::string_view kName[] = {"name"};
constexpr std::string_view kPath[] = {"path"};
constexpr std::string_view kWrongAndRight[] = {"wrong", "right"};

constexpr Hints kReads = {
    .destructive = false, .idempotent = true, .openWorld = false, .readOnly = true};
constexpr Hints kUploads = {
    .destructive = true, .idempotent = false, .openWorld = true, .readOnly = false};
constexpr Hints kChanges = {
    .destructive = true, .idempotent = false, .openWorld = false, .readOnly = false};
constexpr Hints kAsksService = {
    .destructive = false, .idempotent = true, .openWorld = true, .readOnly = true};

// Stands in a description where a masked mail address is shown as an example.
constexpr std::string_view kMaskedAddressMark = "{masked address}";

constexpr SchemaRow kRows[] = {
    {"list_meetings",
     kReads,
     kListMeetings,
     {},
     "List meetings, newest first, optionally filtered by words (title, verdict, decisions, "
     "digest), person and date range (YYYY-MM-DD). Returns id, date, title, one-line verdict, "
     "people. 列出會議場次，可依關鍵字、人名、日期篩選。"},
    {"get_meeting", kReads, kGetMeeting, kId,
     "Get one meeting's structured notes: verdict, summary, decisions, chapters, viewpoints per "
     "person, open questions, topics, key quotes, people with talk share, digest sections, and "
     "user_notes (the user's own notes written on the web). Items carry seconds (t), clock time "
     "and transcript line ids where known. sections picks a subset from verdict, summary, "
     "decisions, chapters, viewpoints, open_questions, topics, quotes, people, digest, "
     "user_notes. Action items are intentionally not included. "
     "取得單場結構化紀要，每項附時間與句子編號。"},
    {"search_transcripts", kReads, kSearchTranscripts, kQuery,
     "Search transcript lines (and digest sections, kind=digest) across all meetings. Space "
     "separated words must all match; Chinese words of two or more characters work, Simplified "
     "or Traditional. Filter by speaker and date range. Returns meeting id, line id, clock time, "
     "speaker and text. 跨場搜尋逐字稿，回傳場次、句子編號、時間、說話人。"},
    {"get_transcript", kReads, kGetTranscript, kId,
     "Get transcript lines of one meeting, optionally between from_sec and to_sec (seconds from "
     "the start). Each line has line id, start and end seconds, clock time, speaker, text. "
     "取一段逐字稿原文。"},
    {"get_person", kReads, kGetPerson, kName,
     "Everything about one person across meetings: which meetings, role, talk seconds and share "
     "per meeting (trend), their key viewpoints and decisions they own, with times and line ids. "
     "查一個人在多場會議的觀點與發言占比。"},
    {"process_recording", kUploads, kProcessRecording, kPath,
     "CHANGES LOCAL DATA AND UPLOADS AUDIO: ask the user to confirm first. Processes one local "
     "audio file into meeting notes in the background: uploads the audio to ElevenLabs for "
     "transcription, has Claude write the notes, and saves a new private meeting under "
     "~/Library/Application Support/MeetingNotes/recordings/. Returns a job_id at once; poll "
     "get_job. language: only zho (Chinese, mixed English ok) for now. "
     "會改本機資料並把音檔上傳轉錄，呼叫前必須先問使用者。"},
    {"get_job", kReads, kGetJob, kId,
     "Status of a process_recording job: running, done or failed, with the pipeline step. When "
     "done, the meeting is indexed and its meeting_id returned (only to clients allowed to see "
     "private meetings). 查處理進度。"},
    {"add_term", kChanges, kAddTerm, kWrongAndRight,
     "CHANGES LOCAL DATA: ask the user to confirm first. Adds a correction to the personal "
     "dictionary used for the next transcriptions: wrong is what the transcript heard, right is "
     "the correct term. tier auto replaces automatically, hint only suggests. Person names, "
     "single Chinese characters and English of two letters or fewer are refused as auto. "
     "會改本機詞典，呼叫前必須先問使用者；人名只能設為 hint。"},
    {"velta_admin_stats",
     kAsksService,
     kAdminStats,
     {},
     "READ ONLY. Velta's own business numbers from its server, for the owner: total users, "
     "sign-ups per day, daily, weekly and monthly active users, meetings and minutes per day, "
     "credits granted, spent and revoked, revenue after refunds (top ups and plans, all time and "
     "inside the window, in US cents), plan counts, and one row per user with a MASKED email only "
     "(like {masked address}), sign-up date, last activity, meetings, minutes, credit balance, "
     "plan and amount paid. Never full emails, never meeting titles, transcripts or notes. days: "
     "7 to 90, default 30; dates are Asia/Taipei. "
     "Velta 自己的用量與營收統計，唯讀；只有總數與遮罩過的 email。"},
};

static_assert(std::ranges::equal(kRows, kToolNames, {}, &SchemaRow::name),
              "every tool has its row, in catalogue order");

// "date_from" gives "Date From".
std::string titleOf(std::string_view name) {
  std::string title(name);
  bool wordBegins = true;
  for (char& c : title) {
    if (wordBegins && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    wordBegins = c == '_';
    if (wordBegins) c = ' ';
  }
  return title;
}

JSONObject typeNamed(std::string_view name) { return {{"type", name}}; }

JSONObject optionalOf(JSONObject type, const std::string& title) {
  JSON::Array either;
  either.emplace_back(std::move(type));
  either.emplace_back(typeNamed("null"));
  return {{"anyOf", std::move(either)}, {"default", nullptr}, {"title", title}};
}

JSONObject listOfStrings() { return {{"items", typeNamed("string")}, {"type", "array"}}; }

JSONObject withDefault(const Default& byDefault, const std::string& title) {
  static constexpr std::string_view kTypes[] = {"integer", "boolean", "string"};
  JSON value = std::visit([](auto plain) { return JSON(plain); }, byDefault);
  return {{"default", std::move(value)}, {"title", title}, {"type", kTypes[byDefault.index()]}};
}

JSONObject propertySchema(const Argument& argument) {
  const std::string title = titleOf(argument.name);
  switch (argument.form) {
    case Form::optionalString:
      return optionalOf(typeNamed("string"), title);
    case Form::optionalNumber:
      return optionalOf(typeNamed("number"), title);
    case Form::optionalStrings:
      return optionalOf(listOfStrings(), title);
    case Form::withDefault:
      return withDefault(argument.byDefault, title);
    case Form::string:
      break;
  }
  return {{"title", title}, {"type", "string"}};
}

JSONObject inputSchema(const SchemaRow& row) {
  JSONObject properties;
  for (const Argument& argument : row.arguments)
    properties.set(argument.name, propertySchema(argument));
  JSONObject schema = {{"properties", std::move(properties)}};
  if (!row.required.empty())
    schema.set("required", JSON::Array(row.required.begin(), row.required.end()));
  schema.set("title", std::string(row.name) + "Arguments");
  schema.set("type", "object");
  return schema;
}

JSONObject outputSchema(const SchemaRow& row) {
  return {{"additionalProperties", true},
          {"title", std::string(row.name) + "DictOutput"},
          {"type", "object"}};
}

JSONObject annotations(const Hints& hints) {
  return {{"destructiveHint", hints.destructive},
          {"idempotentHint", hints.idempotent},
          {"openWorldHint", hints.openWorld},
          {"readOnlyHint", hints.readOnly}};
}

std::string description(const SchemaRow& row) {
  std::string text(row.description);
  const std::size_t mark = text.find(kMaskedAddressMark);
  if (mark != std::string::npos) text.replace(mark, kMaskedAddressMark.size(), kMaskedAddress);
  return text;
}

JSONObject listed(const ToolSchemas::Def& tool) {
  return {{"annotations", tool.annotations},
          {"description", tool.description},
          {"inputSchema", tool.inputSchema},
          {"name", tool.name},
          {"outputSchema", tool.outputSchema}};
}

}  // namespace

ToolSchemas::ToolSchemas() {
  for (const SchemaRow& row : kRows)
    all_.push_back({.name = row.name,
                    .description = description(row),
                    .annotations = annotations(row.hints),
                    .inputSchema = inputSchema(row),
                    .outputSchema = outputSchema(row)});
}

ToolNames ToolSchemas::visible(const AgentPermissions& permissions, bool adminStats) {
  ToolNames names;
  for (const std::string_view name : kToolNames) {
    const Permission* needed = permissionForTool(name);
    const bool granted = needed && permissions.has(needed->name);
    if (granted || (adminStats && name == kAdminTool)) names.push_back(name);
  }
  return names;
}

JSON::Array ToolSchemas::list(const ToolNames& visible) const {
  JSON::Array tools;
  for (const Def& tool : all_)
    if (std::ranges::find(visible, tool.name) != visible.end()) tools.emplace_back(listed(tool));
  return tools;
}

}  // namespace velta
