// Tool calls with arguments of every kind: whoever asks and whatever an argument is, a call gives
// one result or one error, a tool that was not granted is refused, and nothing but the data home is
// touched.
//
// An input is a letter for the caller, and calls one after another: a letter for the tool, then for
// each argument of its schema a letter for the kind of value and, where the kind wants one, a text
// up to the end of the line. Any byte stands for some letter.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "json/JSONWriter.h"
#include "platform/Text.h"
#include "support/CannedFetcher.h"
#include "support/FuzzHome.h"
#include "support/FuzzServer.h"
#include "support/Guard.h"
#include "support/Require.h"

namespace {

using velta::JSON;
using velta::JSONObject;
using velta::fuzz::FuzzServer;
using velta::fuzz::require;

constexpr std::size_t kMostCalls = 8;

// The bytes of an input, taken from the front.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return rest_.empty(); }

  // One of `letters`; the first when there is no byte left.
  char letter(std::string_view letters) {
    if (rest_.empty()) return letters.front();
    const char byte = rest_.front();
    rest_.remove_prefix(1);
    if (letters.find(byte) != std::string_view::npos) return byte;
    return letters[static_cast<unsigned char>(byte) % letters.size()];
  }

  // The bytes up to the end of the line.
  std::string_view line() {
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    const std::string_view text = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    return text;
  }

 private:
  std::string_view rest_;
};

std::int64_t integerFrom(std::string_view text) {
  return std::strtoll(std::string(text).c_str(), nullptr, 10);
}

double numberFrom(std::string_view text) { return std::strtod(std::string(text).c_str(), nullptr); }

JSON::Array wordsOf(std::string_view text, JSON last) {
  JSON::Array words;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(','), text.size());
    words.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  if (!last.isNull()) words.push_back(std::move(last));
  return words;
}

JSON nested(std::size_t depth) {
  JSON value = "底";
  for (std::size_t level = 0; level < depth; ++level) {
    JSON around = level % 2 == 0 ? JSON(JSON::Array(1)) : JSON(JSONObject{{"t", nullptr}});
    if (JSON::Array* array = around.asArray()) array->front() = std::move(value);
    if (JSONObject* object = around.asObject()) object->set("t", std::move(value));
    value = std::move(around);
  }
  return value;
}

// An argument; absent when there is to be none.
std::optional<JSON> argumentFrom(Bytes& bytes) {
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  switch (bytes.letter("-sidaAolLtfnNOmMIE")) {
    case 's':
      return velta::repairUTF8(bytes.line());
    case 'i':
      return integerFrom(bytes.line());
    case 'd':
      return numberFrom(bytes.line());
    case 'a':
      return wordsOf(velta::repairUTF8(bytes.line()), nullptr);
    case 'A':
      return wordsOf(velta::repairUTF8(bytes.line()), 5);
    case 'o':
      return JSONObject{{velta::repairUTF8(bytes.line()), 1.5}};
    case 'l':
      return std::string(300, 'e') + velta::repairUTF8(bytes.line());
    case 'L': {
      std::string text;
      for (int i = 0; i < 100; ++i) text += "押金\u0301 ";
      return text;
    }
    case 't':
      return true;
    case 'f':
      return false;
    case 'n':
      return nullptr;
    case 'N':
      return nested(static_cast<std::size_t>(integerFrom(bytes.line())) % 2000);
    case 'O':
      return JSONObject();
    case 'm':
      return kLeast;
    case 'M':
      return std::numeric_limits<std::int64_t>::max();
    case 'I':
      return std::numeric_limits<double>::infinity();  // as a client writes 1e999
    case 'E':
      return "";
    default:
      return std::nullopt;
  }
}

velta::fuzz::FuzzHome& home() {
  static velta::fuzz::FuzzHome theHome(velta::fuzz::usualFiles());
  return theHome;
}

velta::fuzz::CannedFetcher& fetcher() {
  static velta::fuzz::CannedFetcher service;
  service.listing = {200, R"({"meetings": [{"id": "00000000-0000-4000-8000-000000000001",
      "rev": "1", "status": "done"}]})"};
  service.download = {200, R"({"meetings": [{"id": "00000000-0000-4000-8000-000000000001",
      "title": "網路會議", "date": "2026-10-01", "speakers": [{"name": "Arlo"}],
      "decisions": [{"text": "續約一年"}], "user_notes": "自己的筆記",
      "transcript": [{"t_start": 1, "speaker": "Arlo", "text": "押金照舊"}]}]})"};
  return service;
}

velta::fuzz::ServerChoices choicesFrom(Bytes& bytes) {
  velta::fuzz::ServerChoices choices;
  switch (bytes.letter("crtdnua")) {
    case 'r':
      choices.client = "reader";
      break;
    case 't':
      choices.client = "tagged";
      break;
    case 'd':
      choices.client = "dashboard";
      break;
    case 'n':
      choices.client = std::nullopt;
      break;
    case 'u':
      choices.client = "不明";
      break;
    case 'a':
      choices.adminStats = true;
      break;
    default:
      break;
  }
  choices.fetcher = &fetcher();
  return choices;
}

// A tool's letter is its number in the catalogue; one more is no tool.
std::string_view toolFrom(Bytes& bytes) {
  const auto number = static_cast<std::size_t>(bytes.letter("0123456789") - '0');
  return number < velta::kToolNames.size() ? velta::kToolNames[number] : "no_such_tool";
}

JSONObject argumentsFrom(Bytes& bytes, const velta::ToolSchemas& schemas, std::string_view tool) {
  JSONObject arguments;
  const auto def = std::ranges::find(schemas.all(), tool, &velta::ToolSchemas::Def::name);
  if (def == schemas.all().end()) return arguments;
  for (const auto& [name, schema] : *def->inputSchema.getObject("properties")) {
    if (auto value = argumentFrom(bytes)) arguments.set(name, *std::move(value));
  }
  return arguments;
}

void callOnce(Bytes& bytes, FuzzServer& server) {
  const std::string_view tool = toolFrom(bytes);
  JSONObject arguments = argumentsFrom(bytes, server.state.schemas, tool);
  const auto permissions = server.state.agents.lookUp(server.state.client);
  const velta::Permission* needed = velta::permissionForTool(tool);
  const JSONObject envelope = server.call(tool, std::move(arguments));
  if (needed != nullptr && !permissions.has(needed->name))
    require(envelope.getBool("isError") == true, "a tool that was not granted is refused", tool);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  home().restore();
  Bytes bytes(data, size);
  const velta::fuzz::ServerChoices choices = choicesFrom(bytes);
  const velta::fuzz::Guard guard(home().path());
  FuzzServer server(home(), choices);
  for (std::size_t i = 0; i < kMostCalls && !bytes.empty(); ++i) callOnce(bytes, server);
  velta::fuzz::checkActivityLog(home(), server.calls());
  return 0;
}
