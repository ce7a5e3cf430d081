// ReaderSupport: what the readers of all kinds of source do alike.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/JSON.h"
#include "meetings/Sources.h"
#include "platform/Files.h"
#include "platform/Time.h"

namespace velta {

// The message about a main file that is not what it should be; `cause` may be empty.
std::string notAnObject(const std::string& path, const std::string& cause);

// The bytes of a meeting's main file. Throws Sources::ReadError.
FileBytes readMainFile(const std::string& path);

// The object in the file at `path`; absent when there is none, for whatever reason.
std::optional<JSONObject> readOptionalObject(const std::string& path);

// The string under `key` when it is not empty.
std::optional<std::string> nonEmptyString(const JSONObject& object, std::string_view key);

// The number under `key` when it is finite. JSON cannot write any other, so a single one would
// spoil every answer that holds it.
std::optional<double> finiteNumber(const JSONObject& object, std::string_view key);

// The id of digest item number `number`, counted from 1.
std::string digestId(std::size_t number);

// The name of the folder at `path` as text: names are bytes, texts are well-formed UTF-8.
std::string folderName(const std::string& path);

// `paths` as texts.
std::vector<std::string> pathTexts(const std::vector<std::string>& paths);

// Modification time of the file at `path`; `now` when the file system gives none.
Instant modifiedOr(const std::string& path, Instant now);

}  // namespace velta
