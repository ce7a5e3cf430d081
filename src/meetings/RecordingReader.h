// RecordingReader: meetings in the layout of the recording pipeline, which imported notes share.
//
// A meeting is its main file, a session.json beside it when the set holds one, and an upload.json
// in the meeting's folder, which tells about its transfer to the web service.
#pragma once

#include <string>
#include <string_view>

#include "meetings/Meeting.h"
#include "meetings/Sources.h"
#include "platform/Time.h"

namespace velta {

// The folder of the meeting whose main file is at `mainPath`: the file's directory, or the one
// above when that is named "app-notes".
std::string recordingFolder(const std::string& mainPath);

// Path of the upload.json of the same meeting, which need not exist.
std::string uploadFile(const std::string& mainPath);

// The meeting of one file set of a source of kind "recordings" or "imported". Throws
// Sources::ReadError when the main file does not hold a JSON object.
Meeting readRecording(std::string_view kind, const Sources::FileSet& files, Instant now);

}  // namespace velta
