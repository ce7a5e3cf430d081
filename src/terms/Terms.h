// Terms: the user's personal dictionary of corrections ("dictionary.json" in the data home), which
// the transcription pipeline reads before the next recording.
//
// The file belongs to the user: what this program does not know in it is kept, it is replaced
// atomically, and read, change and write happen under a lock that all servers over one data home
// share, so that none loses another's term.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/Config.h"
#include "json/JSON.h"
#include "platform/Time.h"

namespace velta {

class Terms {
 public:
  struct AddArguments {
    std::string wrong;                // what the transcript heard
    std::string right;                // the correct term
    std::optional<std::string> tier;  // "auto" or "hint"; "hint" when absent or empty
  };

  // Names of the people in the indexed meetings, as written there.
  using PeopleNames = std::function<std::vector<std::string>()>;

  // `config` must outlive this object.
  Terms(const Config& config, PeopleNames peopleNames)
      : config_(config), peopleNames_(std::move(peopleNames)) {}

  // Adds a correction or replaces the one for the same wrong text. Returns the tool's result;
  // throws StoreError::value when the correction is refused or the file cannot be written, in both
  // cases without having changed anything.
  JSONObject addTerm(const AddArguments& arguments, const std::optional<std::string>& client,
                     Instant now) const;

 private:
  std::string dictionaryFile() const;
  JSONObject loadDictionary() const;
  bool isPersonName(std::string_view term, const JSONObject& dictionary) const;
  std::optional<std::string> refusalAsAuto(std::string_view term,
                                           const JSONObject& dictionary) const;

  const Config& config_;
  PeopleNames peopleNames_;
};

}  // namespace velta
