// LegacyReader: meetings of the older notes tree, one folder each under "records": meeting.json,
// transcript.md and a digest note, both markdown.
#pragma once

#include <optional>
#include <string>

#include "json/JSON.h"
#include "meetings/Meeting.h"
#include "meetings/Sources.h"
#include "platform/Time.h"

namespace velta {

inline constexpr const char* kLegacyTranscript = "transcript.md";

// The file name of the digest note that the record of a meeting names: its "digestFile", else its
// "id" + "-digest.md". Always a plain name, so that no record reaches out of its folder.
std::optional<std::string> legacyDigestName(const JSONObject& record);

// The meeting of one file set of a legacy source. Throws Sources::ReadError when meeting.json does
// not hold a JSON object.
Meeting readLegacy(const Sources::FileSet& files, Instant now);

}  // namespace velta
