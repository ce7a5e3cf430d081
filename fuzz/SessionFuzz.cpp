// A whole session fed with arbitrary bytes: the lines that come out are exactly the answers that
// the lines that went in call for, each well-formed, and nothing but the data home is touched.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "json/JSONParser.h"
#include "json/JSONWalk.h"
#include "json/JSONWriter.h"
#include "platform/Text.h"
#include "server/Server.h"
#include "support/FuzzHome.h"
#include "support/FuzzServer.h"
#include "support/Guard.h"
#include "support/Require.h"

namespace {

using velta::JSON;
using velta::JSONObject;
using velta::fuzz::FuzzHome;
using velta::fuzz::require;

// A file without a name, as one end of a session.
class Channel {
 public:
  Channel() { require(file_ != nullptr, "a temporary file can be made"); }

  int descriptor() const { return ::fileno(file_); }

  void fill(std::string_view bytes) const {
    const auto size = static_cast<ssize_t>(bytes.size());
    require(::ftruncate(descriptor(), 0) == 0 &&
                ::pwrite(descriptor(), bytes.data(), bytes.size(), 0) == size &&
                ::lseek(descriptor(), 0, SEEK_SET) == 0,
            "a temporary file can be written");
  }

  std::string content() const {
    std::string bytes(static_cast<std::size_t>(::lseek(descriptor(), 0, SEEK_END)), '\0');
    const auto size = static_cast<ssize_t>(bytes.size());
    require(::pread(descriptor(), bytes.data(), bytes.size(), 0) == size,
            "a temporary file can be read");
    return bytes;
  }

 private:
  std::FILE* file_ = std::tmpfile();
};

// What a line calls for.
struct Wanted {
  JSON id;
  std::optional<std::int64_t> fault;  // its code; absent: a request that is answered either way
  bool isToolCall = false;
};

std::optional<JSON> valueOf(std::string_view line) {
  try {
    return velta::parseJSON(line);
  } catch (const velta::JSONParseError&) {
    return std::nullopt;
  }
}

// The answer that a line calls for; absent when it calls for none.
std::optional<Wanted> wantedFor(std::string_view line) {
  constexpr std::int64_t kParseError = -32700;
  constexpr std::int64_t kInvalidRequest = -32600;
  line = velta::trimWhiteSpace(line);
  if (line.empty()) return std::nullopt;
  const std::optional<JSON> value = valueOf(line);
  const JSONObject* message = value ? value->asObject() : nullptr;
  if (message == nullptr) return Wanted{nullptr, kParseError};
  const JSON* id = message->get("id");
  const auto method = message->getString("method");
  if (method) {
    if (id == nullptr || id->isNull()) return std::nullopt;
    if (!velta::isWritable(*id)) return Wanted{nullptr, kInvalidRequest};
    return Wanted{*id, std::nullopt, *method == "tools/call"};
  }
  if (id == nullptr || message->has("result") || message->has("error")) return std::nullopt;
  return Wanted{velta::isWritable(*id) ? *id : JSON(), kInvalidRequest};
}

std::vector<std::string_view> linesOf(std::string_view bytes) {
  std::vector<std::string_view> lines;
  while (!bytes.empty()) {
    const std::size_t end = std::min(bytes.find('\n'), bytes.size());
    lines.push_back(bytes.substr(0, end));
    bytes.remove_prefix(std::min(end + 1, bytes.size()));
  }
  return lines;
}

void checkError(const JSONObject& error, const Wanted& wanted) {
  require(error.getInt("code").has_value() && error.getString("message").has_value(),
          "an error has a code and a message");
  if (wanted.fault) require(error.getInt("code") == wanted.fault, "an error has the right code");
}

// Returns whether it is the answer to a tool call that reached a tool.
bool checkAnswer(std::string_view line, const Wanted& wanted) {
  const JSON value = velta::fuzz::parsedLine(line);
  const JSONObject* answer = value.asObject();
  require(answer != nullptr, "an answer is an object", line);
  require(answer->getString("jsonrpc") == "2.0", "an answer says its version", line);
  require(answer->has("result") != answer->has("error"), "an answer is a result or an error", line);
  require(answer->size() == 3 && answer->has("id"), "an answer has nothing else", line);
  require(*answer->get("id") == wanted.id, "an answer has the request's id", line);
  if (const JSONObject* error = answer->getObject("error")) {
    checkError(*error, wanted);
    return false;
  }
  const JSONObject* result = answer->getObject("result");
  require(result != nullptr && !wanted.fault, "a result answers a request and is an object", line);
  if (wanted.isToolCall) velta::fuzz::checkEnvelope(*result);
  return wanted.isToolCall;
}

FuzzHome& home() {
  static FuzzHome theHome(velta::fuzz::usualFiles());
  return theHome;
}

std::string outputFor(std::string_view input) {
  static const Channel in;
  static const Channel out;
  in.fill(input);
  out.fill("");
  const velta::fuzz::Guard guard(home().path());
  velta::Server server(velta::fuzz::serverOptions(home(), {}));
  server.start(/*reindex=*/false);
  server.run(in.descriptor(), out.descriptor());
  return out.content();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  home().restore();
  const std::string output = outputFor(input);
  require(output.empty() || output.ends_with('\n'), "every line of output ends");

  const std::vector<std::string_view> answers = linesOf(output);
  std::size_t next = 0;
  std::size_t toolCalls = 0;
  for (const std::string_view line : linesOf(input)) {
    const auto wanted = wantedFor(line);
    if (!wanted) continue;
    require(next < answers.size(), "every request is answered", line);
    if (checkAnswer(answers[next++], *wanted)) ++toolCalls;
  }
  require(next == answers.size(), "nothing else is put out", output);
  velta::fuzz::checkActivityLog(home(), toolCalls);
  return 0;
}
