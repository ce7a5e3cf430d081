// CloudCache: the rows of web meetings as a file: one JSON object that maps each UUID to "rev",
// "meeting" (in the form of Meeting::toJSON) and, where there is one, "applied".
#pragma once

#include <string>

#include "cloud/WebMeetings.h"

namespace velta {

// The rows in the file at `path`; none when it cannot be read or holds no object. Entries that are
// no rows are left out.
WebMeetings::Rows readCloudCache(const std::string& path);

// Replaces the file atomically; only the user may read it. Throws std::system_error.
void writeCloudCache(const WebMeetings::Rows& rows, const std::string& path);

}  // namespace velta
