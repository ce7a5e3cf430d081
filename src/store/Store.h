// Store: the read tools over the index. A handler gets typed arguments and the caller's Access and
// returns the result object, or throws StoreError; it knows nothing of the wire, the log or the
// permission gate. The index has been refreshed before it is called.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "index/Index.h"
#include "json/JSON.h"
#include "store/Access.h"

namespace velta {

class Store {
 public:
  // One thing that search found, in a meeting of the index.
  struct Hit {
    const Index::Entry* e;
    std::string_view kind;  // "line", "notes" or "digest"
    std::string lineId;
    std::optional<double> t;  // seconds from the start of the recording
    std::optional<std::string> speaker;
    std::optional<std::string> section;
    std::string text;  // whole
    std::size_t rid;   // running number within the meeting: lines, then notes, then digest
  };

  // Dates are texts "yyyy-MM-dd", both ends included. An empty text counts as absent.
  struct ListArguments {
    std::optional<std::string> query = {};
    std::optional<std::string> person = {};
    std::optional<std::string> dateFrom = {};
    std::optional<std::string> dateTo = {};
    std::int64_t limit = 20;
  };

  struct SearchArguments {
    std::string query = {};
    std::optional<std::string> speaker = {};
    std::optional<std::string> dateFrom = {};
    std::optional<std::string> dateTo = {};
    std::int64_t limit = 20;
    bool includeDigest = true;
    bool readTranscripts = false;  // the agent's permission: lines are searched only with it
  };

  struct TranscriptArguments {
    std::string id = {};
    std::optional<double> fromSec = {};  // seconds from the start of the meeting, both inclusive
    std::optional<double> toSec = {};
    std::int64_t limit = 400;
  };

  struct PersonArguments {
    std::string name = {};
    std::optional<std::string> dateFrom = {};
    std::optional<std::string> dateTo = {};
  };

  // `index` must outlive the store. `status` gives the index status object of a result, or throws
  // StoreError::index when there is nothing to answer from.
  Store(const Index& index, std::function<JSONObject()> status)
      : index_(index), status_(std::move(status)) {}

  // Meetings, newest first, as summaries.
  JSONObject listMeetings(const ListArguments& arguments, const Access& access) const;

  // Lines, notes and digest items that hold all words of the query, newest meeting first. Throws
  // StoreError::value for a query without words.
  JSONObject searchTranscripts(const SearchArguments& arguments, const Access& access) const;

  // The notes of one meeting: all sections, or those of the given names (unknown names are
  // ignored). Throws StoreError::lookup like every tool that takes a meeting id.
  JSONObject getMeeting(const std::string& id,
                        const std::optional<std::vector<std::string>>& sections,
                        const Access& access) const;

  // The transcript lines of one meeting that start in a range of time.
  JSONObject getTranscript(const TranscriptArguments& arguments, const Access& access) const;

  // One person across the meetings, oldest first. Throws StoreError::value for an empty name.
  JSONObject getPerson(const PersonArguments& arguments, const Access& access) const;

  // The entry of a meeting id. Throws StoreError::lookup when there is none or when `access` does
  // not let it through: the two are told alike, on purpose, so that nobody learns that a hidden
  // meeting exists.
  const Index::Entry& resolve(const std::string& id, const Access& access) const;

 private:
  const Index& index_;
  std::function<JSONObject()> status_;
};

}  // namespace velta
