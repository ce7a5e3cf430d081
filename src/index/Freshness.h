// Freshness: how old the index is, as tools tell it to their callers.
#pragma once

#include "config/Config.h"
#include "index/Index.h"
#include "json/JSON.h"
#include "platform/Time.h"

namespace velta {

// The status object "indexed_at", "age_hours", and where there is cause "warning" and
// "web_meetings". `configFile` is the loaded configuration; null loads it. Throws StoreError::index
// when the index was never built or is empty.
JSONObject freshness(const Index& index, const Config& config, Instant now,
                     const JSONObject* configFile = nullptr);

// Adds "web_meetings" to a status object: what `cloudStatus` says of the last merge. Its warning
// joins the one that is there already.
void addWebMeetings(JSONObject& status, const JSONObject& cloudStatus);

}  // namespace velta
