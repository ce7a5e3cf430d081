// WebMeeting: one meeting as the web service sends it, turned into a Meeting.
#pragma once

#include <string>

#include "json/JSON.h"
#include "meetings/Meeting.h"

namespace velta {

// The meeting with the id "cloud-" + `uuid`. Members of the wrong kind count as absent. A
// visibility is never taken from the service: who may see the meeting is the user's business.
Meeting webMeeting(const std::string& uuid, JSONObject object);

}  // namespace velta
