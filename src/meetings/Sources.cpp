#include "meetings/Sources.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "json/JSONParser.h"
#include "meetings/LegacyReader.h"
#include "meetings/RecordingReader.h"
#include "platform/Files.h"

namespace velta {
namespace {

std::string missingGlob(const std::string& kind) { return "source " + kind + " has no glob"; }

constexpr const char* kMissingPath = "source legacy has no path";

std::string unknownKind(const std::string& kind) {
  return "unknown source type '" + kind + "'; use recordings, imported or legacy";
}

// Only what the configuration names is named: the folder itself may be one that a "*" stands for.
std::string notListed(std::string_view named, const std::error_code& reason) {
  constexpr const char* kNextStep =
      "let your user read the folder; on a Mac, allow it for the app that starts this server, in "
      "System Settings > Privacy & Security > Files and Folders";
  return "a folder of the source " + std::string(named) + " cannot be listed (" + reason.message() +
         "), so meetings may be missing. Next step: " + kNextStep;
}

std::string kindOf(const JSONObject& source) {
  return std::string(source.getString("type").value_or(""));
}

bool isRecordingKind(std::string_view kind) { return kind == "recordings" || kind == "imported"; }

// A file set with its main file. That glob found it says that it belongs in the list, readable or
// not: what is wrong with it comes out when it is read.
Sources::FileSet startFileSet(const std::string& mainPath) {
  Sources::FileSet set;
  set.keyPath = mainPath;
  set.files = {mainPath};
  if (const auto status = fileStatus(mainPath)) set.modified = status->modified;
  return set;
}

// Adds the file at `path` when there is one. Nobody has named this file, unlike the main file, so
// it has to be where it stands.
void addFile(Sources::FileSet& set, std::string path) {
  const auto status = fileStatus(path);
  if (!status || status->isDirectory || (status->isLink && leadsElsewhere(path))) return;
  set.files.push_back(std::move(path));
  set.modified = std::max(set.modified, status->modified);
}

std::string beside(const std::string& path, std::string_view name) {
  return joinPath(parentPath(path), name);
}

Sources::FileSet listRecording(const std::string& mainPath) {
  Sources::FileSet set = startFileSet(mainPath);
  addFile(set, beside(mainPath, "session.json"));
  if (const auto upload = fileStatus(uploadFile(mainPath))) set.uploadModified = upload->modified;
  return set;
}

}  // namespace

std::vector<std::string> Sources::globFiles(std::string_view pattern) const {
  return globPaths(expandTilde(pattern, escapeForGlob(userHome_)));
}

std::vector<std::string> Sources::glob(const std::string& pattern, std::string_view named) {
  std::error_code obstacle;
  std::vector<std::string> paths = globPaths(pattern, &obstacle);
  if (obstacle) warnings_.push_back(notListed(named, obstacle));
  return paths;
}

std::vector<Sources::FileSet> Sources::listSource(const JSONObject& source) {
  const std::string kind = kindOf(source);
  if (isRecordingKind(kind)) return listRecordings(source, kind);
  if (kind == "legacy") return listLegacy(source);
  throw ReadError(unknownKind(kind));
}

std::vector<Sources::FileSet> Sources::listRecordings(const JSONObject& source,
                                                      const std::string& kind) {
  const auto pattern = source.getString("glob");
  if (!pattern) throw ReadError(missingGlob(kind));
  std::vector<FileSet> sets;
  const std::string expanded = expandTilde(*pattern, escapeForGlob(userHome_));
  for (const auto& path : glob(expanded, *pattern)) sets.push_back(listRecording(path));
  return sets;
}

std::vector<Sources::FileSet> Sources::listLegacy(const JSONObject& source) {
  const auto path = source.getString("path");
  if (!path) throw ReadError(kMissingPath);
  const std::string root = escapeForGlob(expandTilde(*path, userHome_));
  std::vector<FileSet> sets;
  for (const auto& record : glob(joinPath(root, "records/*/meeting.json"), *path)) {
    FileSet set = startFileSet(record);
    const auto digest = digestName(record, set.modified);
    addFile(set, beside(record, kLegacyTranscript));
    if (digest) addFile(set, beside(record, *digest));
    sets.push_back(std::move(set));
  }
  return sets;
}

// The name of the digest note of a record. Parsing the record for it on every listing would be most
// of the listing's work, so it is remembered until the record changes.
std::optional<std::string> Sources::digestName(const std::string& record, double modified) {
  const auto known = digestNames_.find(record);
  if (known != digestNames_.end() && known->second.modified == modified) return known->second.name;
  std::optional<std::string> name;
  try {
    const JSON value = parseJSON(readFileBytes(record).view());
    if (const JSONObject* object = value.asObject()) name = legacyDigestName(*object);
  } catch (const JSONParseError&) {
    // Remembered like any other outcome: the same bytes will not parse next time either.
  } catch (const std::system_error&) {
    return std::nullopt;
  }
  digestNames_[record] = {modified, name};
  return name;
}

Meeting Sources::readMeeting(const JSONObject& source, const FileSet& files, Instant now) {
  const std::string kind = kindOf(source);
  if (isRecordingKind(kind)) return readRecording(kind, files, now);
  if (kind == "legacy") return readLegacy(files, now);
  throw ReadError(unknownKind(kind));
}

}  // namespace velta
