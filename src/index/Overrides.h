// Overrides: what the configuration says about single meetings, and the visibility and tags that
// follow for each.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "json/JSON.h"
#include "meetings/Meeting.h"

namespace velta {

class Overrides {
 public:
  // `configFile` must outlive this.
  explicit Overrides(const JSONObject& configFile)
      : visibilities_(configFile.getObject("visibility_overrides")),
        tags_(configFile.getObject("tag_overrides")) {}

  // The user's override, else the meeting's own hint, else that of where it comes from. An unknown
  // word never widens access.
  std::string visibility(const Meeting& meeting, std::string_view ofSource) const;

  // The user's override, else the meeting's own.
  std::vector<std::string> tags(const Meeting& meeting) const;

 private:
  const JSONObject* visibilities_;  // by meeting id; null: none
  const JSONObject* tags_;          // by meeting id; null: none
};

}  // namespace velta
