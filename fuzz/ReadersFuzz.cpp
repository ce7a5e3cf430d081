// The readers of meetings: whatever stands in the files of a recorded, an imported and a legacy
// meeting, the server tells what it makes of them in well-formed answers that agree with the index,
// and the two ways to read a transcript give the same.
//
// An input is one text for each file (support/Sections.h).
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "meetings/RecordingFile.h"
#include "meetings/Sources.h"
#include "platform/Text.h"
#include "support/FuzzHome.h"
#include "support/FuzzServer.h"
#include "support/Guard.h"
#include "support/Require.h"
#include "support/Sections.h"

namespace {

using velta::JSON;
using velta::Meeting;
using velta::Sources;
using velta::fuzz::require;

struct Place {
  std::string_view section;
  std::string_view path;
};
constexpr Place kPlaces[] = {
    {"notes.json", "recordings/2026-10-12-會議/notes.json"},
    {"session.json", "recordings/2026-10-12-會議/session.json"},
    {"upload.json", "recordings/2026-10-12-會議/upload.json"},
    {"imported.json", "imported/10-05-import/app-notes/notes.json"},
    {"meeting.json", "legacy/records/2026-08-05-budget/meeting.json"},
    {"transcript.md", "legacy/records/2026-08-05-budget/transcript.md"},
    {"digest.md", "legacy/records/2026-08-05-budget/digest.md"},
};

velta::fuzz::FuzzHome& home() {
  const auto onlySettings = [] {
    velta::fuzz::Files files = velta::fuzz::usualFiles();
    std::erase_if(files,
                  [](const auto& file) { return file.first.find('/') != std::string::npos; });
    return files;
  };
  static velta::fuzz::FuzzHome theHome(onlySettings());
  return theHome;
}

std::string shown(const Meeting::Transcript& lines) {
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const Meeting::Line line = lines.line(i);
    text +=
        velta::writeCompact(JSON::Array{line.id, line.tStart, line.tEnd, line.speaker, line.text});
    text += '\n';
  }
  return text;
}

// What the file holds: its value without the lines, and the lines; or why it is none.
std::string inOnePass(std::string_view bytes) {
  try {
    const velta::RecordingFile file = velta::parseRecordingFile(bytes);
    return velta::writeCompact(file.rest) + "\n" + shown(file.lines);
  } catch (const velta::JSONParseError& error) {
    return error.what();
  }
}

// The same by way of the value of the whole file.
std::string byValue(std::string_view bytes) {
  try {
    JSON value = velta::parseJSON(bytes);
    Meeting::Transcript lines;
    if (velta::JSONObject* object = value.asObject()) {
      if (const JSON::Array* elements = object->getArray("lines"))
        lines = velta::transcriptOfElements(*elements);
      object->erase("lines");
    }
    return velta::writeCompact(value) + "\n" + shown(lines);
  } catch (const velta::JSONParseError& error) {
    return error.what();
  }
}

void checkTexts(const std::vector<std::string>& texts) {
  for (const std::string& text : texts)
    require(velta::isValidUTF8(text) && text.find('\n') == std::string::npos,
            "a line of markdown is one line of UTF-8", text);
}

void checkMarkdown(std::string_view bytes) {
  for (const Sources::Row& row : Sources::parseTranscript(bytes)) {
    require(velta::isValidUTF8(row.speaker), "a speaker is UTF-8", row.speaker);
    require(row.tStart >= 0, "a clock time is not negative", row.speaker);
    checkTexts(row.text);
  }
  for (const Sources::Sec& section : Sources::parseDigest(bytes)) {
    require(velta::isValidUTF8(section.section), "a heading is UTF-8", section.section);
    checkTexts(section.text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto sections = velta::fuzz::sectionsOf({reinterpret_cast<const char*>(data), size});
  home().restore();
  for (const Place& place : kPlaces) {
    const auto section = sections.find(std::string(place.section));
    if (section == sections.end()) continue;
    if (place.section.ends_with(".md")) {
      checkMarkdown(section->second);
    } else {
      require(inOnePass(section->second) == byValue(section->second),
              "a file read in one pass is what its value says");
    }
    home().write(place.path, section->second);
  }
  const velta::fuzz::Guard guard(home().path());
  velta::fuzz::FuzzServer server(home(), {});
  velta::fuzz::askForEverything(server);
  velta::fuzz::checkActivityLog(home(), server.calls());
  return 0;
}
