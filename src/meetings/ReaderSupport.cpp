#include "meetings/ReaderSupport.h"

#include <cmath>
#include <system_error>
#include <utility>

#include "json/JSONParser.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace velta {

std::string notAnObject(const std::string& path, const std::string& cause) {
  std::string message = repairUTF8(path) + " is not a JSON object";
  if (!cause.empty()) message += " (" + cause + ")";
  return message;
}

FileBytes readMainFile(const std::string& path) {
  try {
    return readFileBytes(path);
  } catch (const std::system_error& error) {
    throw Sources::ReadError(notAnObject(path, error.code().message()));
  }
}

std::optional<JSONObject> readOptionalObject(const std::string& path) {
  try {
    JSON value = parseJSON(readFileBytes(path).view());
    if (JSONObject* object = value.asObject()) return std::move(*object);
  } catch (const std::system_error&) {
    return std::nullopt;
  } catch (const JSONParseError&) {
    return std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::string> nonEmptyString(const JSONObject& object, std::string_view key) {
  const auto text = object.getString(key);
  if (!text || text->empty()) return std::nullopt;
  return std::string(*text);
}

std::optional<double> finiteNumber(const JSONObject& object, std::string_view key) {
  const auto number = object.getNumber(key);
  return number && std::isfinite(*number) ? number : std::nullopt;
}

std::string digestId(std::size_t number) { return std::string("D") + std::to_string(number); }

std::string folderName(const std::string& path) { return repairUTF8(lastComponent(path)); }

std::vector<std::string> pathTexts(const std::vector<std::string>& paths) {
  std::vector<std::string> texts;
  texts.reserve(paths.size());
  for (const auto& path : paths) texts.push_back(repairUTF8(path));
  return texts;
}

Instant modifiedOr(const std::string& path, Instant now) {
  const auto status = fileStatus(path);
  return status ? instantFromSeconds(status->modified) : now;
}

}  // namespace velta
