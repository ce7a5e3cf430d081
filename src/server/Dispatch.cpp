#include "server/Dispatch.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <optional>
#include <utility>

#include "config/StoreError.h"
#include "json/JSONWriter.h"
#include "platform/Text.h"
#include "server/Arguments.h"
#include "store/Access.h"

namespace velta {
namespace {

constexpr double kRefreshSeconds = 120;  // between two refreshes, where the user says nothing else

constexpr int kIndentation = 2;  // of the text of an answer

constexpr std::string_view kToolsChanged =
    R"({"jsonrpc":"2.0","method":"notifications/tools/list_changed"})";

// What a handler gets.
struct Call {
  std::string_view tool;
  Arguments arguments;
  const AgentPermissions& permissions;
};

// Seconds that must pass between two refreshes; below 0 every call refreshes.
double refreshInterval(const Config& config) {
  const JSONObject file = config.loadConfigFile(/*writeDefault=*/false);
  const JSONObject* cloud = file.getObject("cloud");
  const double seconds = cloud ? cloud->getNumber("refresh_seconds").value_or(0) : 0;
  return seconds == 0 ? kRefreshSeconds : seconds;
}

// Whether the index is younger than the interval. A clock that was set back makes it due.
bool isFresh(const ServerState& state) {
  if (!state.lastSynced) return false;
  const double age = secondsSinceEpoch(state.now()) - secondsSinceEpoch(*state.lastSynced);
  return age >= 0 && age < refreshInterval(state.config);
}

void warnOf(ServerState& state, const Index::BuildResult& result) {
  for (const std::string& error : result.errors) state.warnings.warn("could not index " + error);
  for (const std::string& warning : result.warnings) state.warnings.warn(warning);
}

void refreshWhenDue(ServerState& state) {
  if (!isFresh(state)) warnOf(state, state.refreshIndex());
}

// The access of a call that reads; the index is up to date afterwards.
Access accessForReading(ServerState& state, const Call& call) {
  refreshWhenDue(state);
  return Access::forAgent(state.allowed, call.permissions, state.now());
}

JSONObject listMeetings(ServerState& state, const Call& call) {
  const Access access = accessForReading(state, call);
  const Arguments& arguments = call.arguments;
  return state.store.listMeetings({.query = arguments.optionalFilter("query"),
                                   .person = arguments.optionalFilter("person"),
                                   .dateFrom = arguments.optionalFilter("date_from"),
                                   .dateTo = arguments.optionalFilter("date_to"),
                                   .limit = arguments.integer("limit", 20)},
                                  access);
}

JSONObject searchTranscripts(ServerState& state, const Call& call) {
  const Access access = accessForReading(state, call);
  const Arguments& arguments = call.arguments;
  return state.store.searchTranscripts(
      {.query = arguments.requiredString("query"),
       .speaker = arguments.optionalFilter("speaker"),
       .dateFrom = arguments.optionalFilter("date_from"),
       .dateTo = arguments.optionalFilter("date_to"),
       .limit = arguments.integer("limit", 20),
       .includeDigest = arguments.boolean("include_digest", true),
       .readTranscripts = call.permissions.has("read_transcripts")},
      access);
}

JSONObject getMeeting(ServerState& state, const Call& call) {
  const Access access = accessForReading(state, call);
  const std::string id = call.arguments.requiredString("id");
  return state.store.getMeeting(id, call.arguments.optionalStrings("sections"), access);
}

JSONObject getTranscript(ServerState& state, const Call& call) {
  const Access access = accessForReading(state, call);
  const Arguments& arguments = call.arguments;
  return state.store.getTranscript({.id = arguments.requiredString("id"),
                                    .fromSec = arguments.optionalNumber("from_sec"),
                                    .toSec = arguments.optionalNumber("to_sec"),
                                    .limit = arguments.integer("limit", 400)},
                                   access);
}

JSONObject getPerson(ServerState& state, const Call& call) {
  const Access access = accessForReading(state, call);
  const Arguments& arguments = call.arguments;
  return state.store.getPerson({.name = arguments.requiredString("name"),
                                .dateFrom = arguments.optionalFilter("date_from"),
                                .dateTo = arguments.optionalFilter("date_to")},
                               access);
}

JSONObject addTerm(ServerState& state, const Call& call) {
  const Arguments& arguments = call.arguments;
  return state.terms.addTerm({.wrong = arguments.requiredString("wrong"),
                              .right = arguments.requiredString("right"),
                              .tier = arguments.optionalString("tier")},
                             state.client, state.now());
}

JSONObject processRecording(ServerState& state, const Call& call) {
  const Arguments& arguments = call.arguments;
  JSONObject started =
      state.jobs.processRecording({.path = arguments.requiredString("path"),
                                   .title = arguments.optionalString("title"),
                                   .language = arguments.optionalString("language")},
                                  state.client, state.now());
  if (std::ranges::find(state.allowed, "private") == state.allowed.end())
    started.set("note", kStatusOnly);
  return started;
}

JSONObject getJob(ServerState& state, const Call& call) {
  const Access access = accessForReading(state, call);
  const std::string id = call.arguments.requiredString("id");
  const auto refresh = [&state] {
    warnOf(state, state.refreshIndex());
    return state.index.entries().size();
  };
  const auto hasMeeting = [&state](const std::string& meeting) {
    return state.index.find(meeting) != nullptr;
  };
  JSONObject job = state.jobs.getJob(id, access.allowed, {refresh, hasMeeting});
  // A meeting that this agent may not see fails the call; one that is not indexed has a warning.
  const std::string meeting(job.getString("meeting_id").value_or(""));
  if (hasMeeting(meeting)) state.store.resolve(meeting, access);
  return job;
}

JSONObject adminStats(ServerState& state, const Call& call) {
  if (!state.admin)
    throw StoreError::value(std::string(call.tool) +
                            " is not enabled on this server. It exists only when the server "
                            "starts with --admin-stats");
  return state.admin->stats(call.arguments.integer("days", 0));
}

struct HandlerRow {
  std::string_view tool;
  JSONObject (*handler)(ServerState&, const Call&);
};

constexpr HandlerRow kHandlers[] = {
    {"list_meetings", listMeetings},
    {"get_meeting", getMeeting},
    {"search_transcripts", searchTranscripts},
    {"get_transcript", getTranscript},
    {"get_person", getPerson},
    {"process_recording", processRecording},
    {"get_job", getJob},
    {"add_term", addTerm},
    {"velta_admin_stats", adminStats},
};

static_assert(std::ranges::equal(kHandlers, kToolNames, {}, &HandlerRow::tool),
              "every tool has its handler, in catalogue order");

const HandlerRow* handlerOf(std::string_view tool) {
  const auto* row = std::ranges::find(kHandlers, tool, &HandlerRow::tool);
  return row != std::end(kHandlers) ? row : nullptr;
}

// The "content" of a result that is one text stands around that text.
constexpr std::string_view kBeforeText = R"([{"text":)";
constexpr std::string_view kAfterText = R"(,"type":"text"}])";

std::string executionError(const std::string& tool, const std::string& cause) {
  return "Error executing tool " + tool + ": " + cause;
}

const JSONObject kNoArguments;

}  // namespace

Result Dispatch::call(const JSONObject& params, std::vector<std::string>& queue) {
  const std::string tool(params.getString("name").value_or(""));
  const JSONObject* given = params.getObject("arguments");
  const JSONObject& arguments = given ? *given : kNoArguments;

  const AgentPermissions permissions = state_.agents.lookUp(state_.client);
  const ToolNames visible = ToolSchemas::visible(permissions, state_.adminStats);
  noticeChangedTools(visible, queue);

  const Permission* needed = permissionForTool(tool);
  if (needed && std::ranges::find(visible, tool) == visible.end())
    return failed(tool, arguments, Agents::Outcome::denied, refusal(tool, *needed));

  const HandlerRow* row = handlerOf(tool);
  if (!row) return failed(tool, arguments, Agents::Outcome::error, "Unknown tool: " + tool);

  try {
    return succeeded(tool, arguments,
                     row->handler(state_, {row->tool, Arguments(arguments), permissions}));
  } catch (const StoreError& error) {
    return failed(tool, arguments, Agents::Outcome::error, executionError(tool, error.message()));
  } catch (const std::exception& error) {
    return failed(tool, arguments, Agents::Outcome::error, executionError(tool, error.what()));
  }
}

void Dispatch::noticeChangedTools(const ToolNames& visible, std::vector<std::string>& queue) {
  if (!state_.listed || *state_.listed == visible) return;
  state_.listed.reset();
  queue.emplace_back(kToolsChanged);
}

std::string Dispatch::refusal(std::string_view tool, const Permission& needed) const {
  std::string message(tool);
  message.append(" is turned off for agent '").append(state_.clientName());
  message.append("': it needs the permission ").append(needed.name);
  message.append(" (").append(needed.label);
  message.append("). Next step: ask the user to turn it on for this agent in Velta settings ");
  message.append("(agents.json at ").append(state_.config.agentsFile());
  message.append("); do not retry until they do");
  return message;
}

Result Dispatch::succeeded(const std::string& tool, const JSONObject& arguments,
                           JSONObject answer) {
  std::string content(kBeforeText);
  appendIndentedQuoted(content, answer, kIndentation);  // may throw: then nothing was ok
  content += kAfterText;
  state_.agents.record(state_.client, tool, arguments, Agents::Outcome::ok);
  JSONObject members = {{"isError", false}};
  members.set("structuredContent", std::move(answer));  // a braced list would copy it
  return {std::move(members), std::move(content)};
}

Result Dispatch::failed(const std::string& tool, const JSONObject& arguments,
                        Agents::Outcome outcome, std::string_view message) {
  const std::string text = repairUTF8(message);  // paths in it may hold any bytes
  state_.agents.record(state_.client, tool, arguments, outcome, text);
  std::string content(kBeforeText);
  appendQuoted(content, text);
  content += kAfterText;
  return {JSONObject{{"isError", true}}, std::move(content)};
}

}  // namespace velta
