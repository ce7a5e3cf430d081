// CloudCommand: "connect", "status" and "disconnect", as a person runs them in a terminal and the
// desktop app from its settings.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "cloud/Cloud.h"

namespace velta {

// Removes the temporary files that killed programs left directly in the data home and beside the
// files to which links in it lead, unfinished keys too; not those of writes that are under way.
void removeStaleTemporariesOfHome(const Config& config);

// Does `action`, and hands each line of output, without line feed, to `print`. `askForKey` is asked
// for the key by "connect" only. Returns the exit status: 0 when it worked, 1 when it did not.
int cloudCommand(const std::string& action,
                 const std::function<std::optional<std::string>()>& askForKey, const Cloud& cloud,
                 const std::function<void(const std::string&)>& print);

}  // namespace velta
