#include "index/Overrides.h"

#include "config/Config.h"

namespace velta {

std::string Overrides::visibility(const Meeting& meeting, std::string_view ofSource) const {
  std::string_view visibility = ofSource;
  if (meeting.visibilityHint) visibility = *meeting.visibilityHint;
  if (visibilities_ != nullptr) {
    const auto word = visibilities_->getString(meeting.id);
    if (word && !word->empty()) visibility = *word;
  }
  return std::string(isKnownVisibility(visibility) ? visibility : "private");
}

std::vector<std::string> Overrides::tags(const Meeting& meeting) const {
  const JSON::Array* tags = tags_ != nullptr ? tags_->getArray(meeting.id) : nullptr;
  return tags != nullptr ? stringElements(tags) : meeting.tags;
}

}  // namespace velta
