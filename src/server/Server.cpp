#include "server/Server.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <utility>

#include "json/JSONParser.h"
#include "json/JSONWalk.h"
#include "json/JSONWriter.h"
#include "platform/Stdio.h"
#include "platform/Text.h"
#include "server/Version.h"
#include "store/Access.h"

namespace velta {
namespace {

// Protocol versions, newest first. The first is spoken only by requests that name it themselves.
constexpr std::array<std::string_view, 5> kRequestVersions = {
    "2026-07-28", "2025-11-25", "2025-06-18", "2025-03-26", "2024-11-05"};
constexpr std::string_view kPerRequestOnly = kRequestVersions.front();
constexpr std::string_view kDefaultVersion = "2025-11-25";

constexpr std::string_view kVersionMember = "io.modelcontextprotocol/protocolVersion";
constexpr std::string_view kServerInfoMember = "io.modelcontextprotocol/serverInfo";

constexpr std::int64_t kCacheMilliseconds = 60000;

constexpr std::string_view kInstructions =
    "Meeting notes from Arlo's own recordings and past meetings (Chinese and English): this Mac's "
    "meetings and, with a\n"
    "connection key, the meetings recorded on the web (ids cloud-<uuid>, source cloud). user_notes "
    "are the user's own notes.\n"
    "Start with list_meetings or search_transcripts, then get_meeting or get_transcript for "
    "evidence.\n"
    "Every claim you make from a meeting should cite meeting id plus clock time or line id (for "
    "example legacy-2026-09-30-x L42 12:05).\n"
    "Write tools (process_recording, add_term) change local data: ask the user before calling "
    "them.\n"
    "會議記錄工具：先用 list_meetings 或 search_transcripts 找場次，再用 get_meeting、"
    "get_transcript 取證據；引用時附場次 id 與時間。";

struct Fault {
  int code;
  std::string_view message;
};
constexpr Fault kParseError = {-32700, "Parse error"};
constexpr Fault kInvalidRequest = {-32600, "Invalid Request"};
constexpr Fault kMethodNotFound = {-32601, "Method not found"};
constexpr Fault kUnsupportedVersion = {-32022, "Unsupported protocol version"};

std::string faultLine(const JSON& id, Fault fault, std::optional<JSON> data = std::nullopt) {
  JSONObject error = {{"code", fault.code}, {"message", fault.message}};
  if (data) error.set("data", *std::move(data));
  return writeCompact(JSONObject{{"jsonrpc", "2.0"}, {"id", id}, {"error", std::move(error)}});
}

// The line that answers with `result`.
std::string resultLine(const JSON& id, const Result& result) {
  std::string line;
  line.reserve(2 * result.content.size());  // most often enough for the same once more, compact
  line += R"({"jsonrpc":"2.0","id":)";
  appendCompact(line, id);
  line += R"(,"result":)";
  if (!result.content.empty()) line.append(R"({"content":)").append(result.content);
  const std::size_t brace = line.size();
  appendCompact(line, result.members);
  if (!result.content.empty()) line[brace] = ',';  // it goes on with the other members
  line += '}';
  return line;
}

JSONObject serverInfo() { return {{"name", "velta"}, {"version", kVersion}}; }

JSONObject capabilities() {
  return {{"prompts", JSONObject{{"listChanged", false}}},
          {"resources", JSONObject{{"listChanged", false}, {"subscribe", false}}},
          {"tools", JSONObject{{"listChanged", true}}}};
}

JSON::Array requestVersions() { return {kRequestVersions.begin(), kRequestVersions.end()}; }

bool isRequestVersion(std::string_view version) {
  return std::ranges::find(kRequestVersions, version) != kRequestVersions.end();
}

bool isSessionVersion(std::string_view version) {
  return version != kPerRequestOnly && isRequestVersion(version);
}

// The protocol version that a request names itself.
std::optional<std::string_view> versionOfRequest(const JSONObject& params) {
  const JSONObject* meta = params.getObject("_meta");
  return meta ? meta->getString(kVersionMember) : std::nullopt;
}

// The object that a line holds, absent when it holds anything else.
std::optional<JSON> messageOf(std::string_view line) {
  try {
    JSON message = parseJSON(line);
    if (message.asObject()) return message;
  } catch (const JSONParseError&) {
    // Told below like any other line that is no message.
  }
  return std::nullopt;
}

// The answer to a message that names no method, where it wants one.
std::vector<std::string> answerWithoutMethod(const JSONObject& message) {
  const JSON* id = message.get("id");
  if (!id || message.has("result") || message.has("error")) return {};
  return {faultLine(isWritable(*id) ? *id : JSON(), kInvalidRequest, "missing method")};
}

// The lines with their line feeds. The usual single one, which may be large, is not copied.
std::string joinedLines(std::vector<std::string> lines) {
  if (lines.empty()) return "";
  std::string joined = std::move(lines.front());
  joined += '\n';
  for (std::size_t i = 1; i < lines.size(); ++i) joined.append(lines[i]).push_back('\n');
  return joined;
}

const JSONObject kNoParams;

// Names, paths and errors as a diagnostic line shows them.
std::string shown(std::string_view text) { return visibleOnOneLine(repairUTF8(text)); }

std::string grantedNames(const AgentPermissions& permissions) {
  std::string names;
  for (const Permission& permission : kPermissions) {
    if (!permissions.has(permission.name)) continue;
    if (!names.empty()) names += ", ";
    names += permission.name;
  }
  return names.empty() ? "none" : names;
}

std::string webStatus(const JSONObject& cloud) {
  if (cloud.getBool("ok") == true) return std::to_string(cloud.getInt("indexed").value_or(0));
  return cloud.getBool("connected") == true ? "unreachable" : "off";
}

}  // namespace

const Server::Method Server::kMethods[] = {
    {"initialize", &Server::initialize, Decoration::none},
    {"server/discover", &Server::discover, Decoration::none},
    {"ping", &Server::ping, Decoration::plain},
    {"tools/list", &Server::listTools, Decoration::withCacheHint},
    {"tools/call", &Server::callTool, Decoration::plain},
    {"prompts/list", &Server::listPrompts, Decoration::withCacheHint},
    {"resources/list", &Server::listResources, Decoration::withCacheHint},
    {"resources/templates/list", &Server::listResourceTemplates, Decoration::withCacheHint},
};

void Server::start(bool reindex) {
  tellWhoIsServed();
  if (reindex) buildIndex();
}

void Server::tellWhoIsServed() const {
  // Looked up first: what is wrong with agents.json is told before the line that rests on it.
  const AgentPermissions permissions = state_.agents.lookUp(state_.client);
  std::string line = "meeting-notes MCP: client=" + shown(state_.clientName());
  line += " sees " + quotedListOrNone(state_.allowed);
  line += "; tools from " + permissions.source + " (" + shown(state_.config.agentsFile()) + "): ";
  line += grantedNames(permissions) + "; scope=" + permissions.scope;
  line += permissions.hidePrivate ? " hide_private=True\n" : " hide_private=False\n";
  state_.diagnose(line);
}

void Server::buildIndex() {
  const Index::BuildResult result = state_.refreshIndex();
  state_.diagnose("index refreshed: meetings=" + std::to_string(result.meetings) + " changed=" +
                  std::to_string(result.changed) + " web=" + webStatus(result.cloud) + "\n");
  for (const std::string& error : result.errors)
    state_.diagnose("WARN could not index " + shown(error) + "\n");
  for (const std::string& text : result.warnings) state_.warnings.warn(text);
  if (const auto warning = result.cloud.getString("warning"))
    state_.diagnose("WARN " + shown(*warning) + "\n");
}

void Server::run(int input, int output) {
  LineReader lines(input);
  std::string_view line;
  while (lines.next(line)) {
    if (!writeAll(output, joinedLines(handle(line)))) return;
  }
}

std::vector<std::string> Server::handle(std::string_view line) {
  const std::string_view text = trimWhiteSpace(line);
  if (text.empty()) return {};
  const std::optional<JSON> parsed = messageOf(text);
  if (!parsed) return {faultLine(nullptr, kParseError)};

  const JSONObject& message = *parsed->asObject();
  const auto method = message.getString("method");
  if (!method) return answerWithoutMethod(message);

  const JSON* id = message.get("id");
  if (!id || id->isNull()) return {};  // a notification
  if (!isWritable(*id)) return {faultLine(nullptr, kInvalidRequest, "id is out of range")};

  const JSONObject* params = message.getObject("params");
  std::vector<std::string> lines;
  std::string answer = respond(*method, params ? *params : kNoParams, *id, lines);
  lines.push_back(std::move(answer));
  return lines;
}

std::string Server::respond(std::string_view method, const JSONObject& params, const JSON& id,
                            std::vector<std::string>& queue) {
  const auto version = versionOfRequest(params);
  if (version && !isRequestVersion(*version))
    return faultLine(id, kUnsupportedVersion,
                     JSONObject{{"supported", requestVersions()}, {"requested", *version}});
  const Method* known = methodNamed(method);
  if (!known) return faultLine(id, kMethodNotFound, method);
  Result result = (this->*known->answer)(params, queue);
  if (version) decorate(result.members, known->decoration);
  return resultLine(id, result);
}

const Server::Method* Server::methodNamed(std::string_view name) {
  const auto* method = std::ranges::find(kMethods, name, &Method::name);
  return method != std::end(kMethods) ? method : nullptr;
}

void Server::decorate(JSONObject& result, Decoration decoration) {
  if (decoration == Decoration::none) return;
  result.set("resultType", "complete");
  if (decoration == Decoration::withCacheHint) {
    result.set("ttlMs", kCacheMilliseconds);
    result.set("cacheScope", "private");
  }
  result.set("_meta", JSONObject{{kServerInfoMember, serverInfo()}});
}

Result Server::initialize(const JSONObject& params, std::vector<std::string>&) {
  const auto requested = params.getString("protocolVersion").value_or("");
  negotiated_ = isSessionVersion(requested) ? requested : kDefaultVersion;
  return JSONObject{{"capabilities", capabilities()},
                    {"instructions", kInstructions},
                    {"protocolVersion", negotiated_},
                    {"serverInfo", serverInfo()}};
}

Result Server::discover(const JSONObject&, std::vector<std::string>&) {
  return JSONObject{{"resultType", "complete"},
                    {"supportedVersions", requestVersions()},
                    {"capabilities", capabilities()},
                    {"_meta", JSONObject{{kServerInfoMember, serverInfo()}}},
                    {"instructions", kInstructions}};
}

Result Server::ping(const JSONObject&, std::vector<std::string>&) { return JSONObject(); }

Result Server::listTools(const JSONObject&, std::vector<std::string>&) {
  const AgentPermissions permissions = state_.agents.lookUp(state_.client);
  state_.listed = ToolSchemas::visible(permissions, state_.adminStats);
  JSONObject result;
  result.set("tools", state_.schemas.list(*state_.listed));
  return result;
}

Result Server::callTool(const JSONObject& params, std::vector<std::string>& queue) {
  return dispatch_.call(params, queue);
}

Result Server::listPrompts(const JSONObject&, std::vector<std::string>&) {
  return JSONObject{{"prompts", JSON::Array()}};
}

Result Server::listResources(const JSONObject&, std::vector<std::string>&) {
  return JSONObject{{"resources", JSON::Array()}};
}

Result Server::listResourceTemplates(const JSONObject&, std::vector<std::string>&) {
  return JSONObject{{"resourceTemplates", JSON::Array()}};
}

}  // namespace velta
