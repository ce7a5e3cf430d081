#include "config/Warnings.h"

#include "platform/Text.h"

namespace velta {

void Warnings::warn(const std::string& text) {
  if (!warned_.insert(text).second) return;
  // Paths come from the system as they are, so a text may hold bytes that are not UTF-8.
  write_("meeting-notes MCP: " + visibleOnOneLine(repairUTF8(text)) + "\n");
}

}  // namespace velta
