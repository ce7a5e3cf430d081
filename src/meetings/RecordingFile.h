// RecordingFile: the main JSON file of a recorded or imported meeting, parsed in one pass.
//
// The transcript is most of such a file. Its lines go straight into the columns of a
// Meeting::Transcript; no JSON value is ever made of one. The outcome is the same as if the whole
// value had been built and its "lines" read from that.
#pragma once

#include <string_view>

#include "json/JSON.h"
#include "meetings/Meeting.h"

namespace velta {

struct RecordingFile {
  JSON rest;                  // the file's value, without "lines" when it is an object
  Meeting::Transcript lines;  // of "lines", ids settled; empty unless that is an array
};

// Throws JSONParseError.
RecordingFile parseRecordingFile(std::string_view bytes);

}  // namespace velta
