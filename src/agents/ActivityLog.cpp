#include "agents/ActivityLog.h"

#include <cstddef>
#include <system_error>
#include <utility>
#include <vector>

#include "config/Dates.h"
#include "json/JSONWalk.h"
#include "json/JSONWriter.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::size_t kMaxCharacters = 80;
constexpr std::size_t kMaxElements = 10;
constexpr mode_t kLogPermissions = 0600;  // queries are as private as the notes

std::string_view statusWord(ActivityLog::Outcome outcome) {
  switch (outcome) {
    case ActivityLog::Outcome::ok:
      return "ok";
    case ActivityLog::Outcome::denied:
      return "denied";
    case ActivityLog::Outcome::error:
      break;
  }
  return "error";
}

std::string couldNotWrite(const std::string& path, const std::error_code& error) {
  return "could not write the activity log " + path + " (" + error.message() +
         "); calls still run but the Velta activity list will miss them";
}

std::string shortenedText(std::string_view text) {
  const std::string_view head = firstCharacters(text, kMaxCharacters);
  return head.size() == text.size() ? std::string(text) : std::string(head) + "…";
}

void shortenScalarOrObject(JSON& value) {
  if (const auto text = value.asString()) {
    value = shortenedText(*text);
  } else if (const JSONObject* object = value.asObject()) {
    value = shortenedText(writeCompact(*object));
  }
}

// Arguments nest as deeply as a client likes, so arrays are walked with a stack of our own.
JSON shortened(JSON value) {
  std::vector<JSON*> pending = {&value};
  while (!pending.empty()) {
    JSON& item = *pending.back();
    pending.pop_back();
    if (JSON::Array* array = item.asArray()) {
      if (array->size() > kMaxElements) array->resize(kMaxElements);
      for (JSON& element : *array) pending.push_back(&element);
    } else {
      shortenScalarOrObject(item);
    }
  }
  return value;
}

JSONObject shortenedArguments(const JSONObject& arguments) {
  JSONObject writable = arguments;
  dropUnwritableNumbers(writable);
  JSONObject result;
  for (const auto& [key, value] : writable) {
    if (!value.isNull()) result.set(key, shortened(std::move(value)));
  }
  return result;
}

}  // namespace

ActivityLog::ActivityLog(const Config& config, Clock now, Warnings& warnings)
    : config_(config), now_(std::move(now)), warnings_(warnings) {}

void ActivityLog::record(const std::optional<std::string>& client, std::string_view tool,
                         const JSONObject& arguments, Outcome outcome,
                         const std::optional<std::string>& detail) {
  JSONObject entry = {{"time", utcStamp(now_())},
                      {"agent", client.value_or("unknown")},
                      {"tool", tool},
                      {"args", shortenedArguments(arguments)},
                      {"status", statusWord(outcome)}};
  if (detail) entry.set("detail", shortenedText(*detail));
  append(writeCompact(entry) + "\n");
}

void ActivityLog::append(const std::string& line) {
  const std::string directory = parentPath(config_.agentsFile());
  const std::string path = joinPath(directory, "activity.jsonl");
  try {
    createDirectories(directory);
    appendLineToFile(path, line, kLogPermissions);
  } catch (const std::system_error& error) {
    warnings_.warn(couldNotWrite(path, error.code()));
  }
}

}  // namespace velta
