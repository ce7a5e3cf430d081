// Index: every meeting the server can show, held in memory with what the tools search.
//
// Invariants
//  - byKey()[e.key] == e.meeting->id for every entry e, and byKey() holds nothing else.
//  - order only grows: a meeting that is read again moves to the end.
//  - Of two file sets with one meeting id the later listed is served; the other waits, unread, and
//    comes back in the refresh in which the winner goes.
//  - An entry whose file stops parsing stays as it was last read, but its visibility and tags
//    always follow the configuration: nothing stays wider than configured.
// One thread at a time; a refresh reads files on a small pool of threads of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "cloud/HTTPFetcher.h"
#include "cloud/WebMeetings.h"
#include "config/Config.h"
#include "index/Signature.h"
#include "json/JSON.h"
#include "meetings/Meeting.h"
#include "meetings/Sources.h"
#include "platform/Time.h"

namespace velta {

class Index {
 public:
  // Of a local meeting whose user notes came from its twin in the web service.
  struct WebNotes {
    std::optional<JSON> own;  // what stood in their place, which says nothing; absent: nothing did
  };

  struct Entry {
    std::shared_ptr<const Meeting> meeting;  // shared with the row of a web meeting; never null
    std::string visibility;                  // effective: "private", "work" or "shared"
    std::vector<std::string> tags;           // effective
    std::string key;                         // key path under which it was listed
    double mtime = 0;                        // of its file set, seconds since the epoch
    std::uint64_t order = 0;                 // larger: inserted or read again later
    std::optional<WebNotes> webNotes;
    std::shared_ptr<const Meeting> mergedWith;  // the twin that was looked at last; null: none

    // How many items the notes have in these sections, for lists.
    std::size_t decisionCount = 0;
    std::size_t openQuestionCount = 0;

    // What rules out at a glance that a word is there. The texts themselves are searched in the
    // meeting, folded as they are compared (FoldedText.h).
    Signature lineSignature;  // of the texts of the lines
    Signature bodySignature;  // of all that is searched of the written notes
  };

  // What a search looks at first of a meeting. The cards lie one after another in memory, so that
  // walking past thousands of meetings that do not match touches little else.
  struct Card {
    const Entry* entry;
    std::uint32_t day;  // equal for meetings of one date, and greater for an earlier one
    SignatureView lines;
    SignatureView body;
  };

  // The outcome of one refresh.
  struct BuildResult {
    std::size_t meetings = 0;  // meetings in the index
    std::size_t lines = 0;     // transcript lines in the index
    std::size_t changed = 0;   // meetings read anew
    std::size_t removed = 0;   // entries dropped
    std::vector<std::pair<std::string, std::size_t>>
        perSource;                      // label and count, first seen first
    std::vector<std::string> errors;    // one a failed source or file set
    std::vector<std::string> warnings;  // of what is no failure; see Sources::takeWarnings
    JSONObject cloud;                   // status of the web meetings; empty when there is none
  };

  using Progress = Cloud::Progress;

  // Keys of web meetings begin with this; those of local ones are paths.
  static constexpr std::string_view kWebKeyPrefix = "cloud:";
  static bool isWebKey(std::string_view key) { return key.starts_with(kWebKeyPrefix); }

  // `config` and `fetcher` must outlive the index. Without a fetcher there are no web meetings.
  Index(const Config& config, Clock now, HTTPFetcher* fetcher = nullptr);

  // Brings the index up to date with sources and configuration. Reads again what changed, or all of
  // it when `force` or when the configuration changed in what shapes the index. Without `config`
  // the configuration file is loaded, a default written. Never throws for what files hold.
  // `progress` is told now and then how far it is, from any thread.
  BuildResult refresh(bool force, const JSONObject* config = nullptr,
                      const Progress& progress = {});

  // Adds the meeting or replaces the one with its id, under `key`.
  void insert(Meeting meeting, const std::string& key, std::string visibility,
              std::vector<std::string> tags, double mtime);

  const std::unordered_map<std::string, Entry>& entries() const { return entries_; }
  const std::unordered_map<std::string, std::string>& byKey() const { return byKey_; }
  // The entry of a meeting id, null when there is none.
  const Entry* find(const std::string& id) const;

  // The names of all people of all meetings, as written there, repeated as there.
  std::vector<std::string> peopleNames() const;

  // All meetings, newest first: by date descending, undated last; on one date by start time
  // descending, without one last; then by order. Valid until the next refresh or insert.
  const std::vector<Card>& newestFirst() const;

  // When the last refresh finished; absent before the first.
  const std::optional<Instant>& indexedAt() const { return indexedAt_; }
  // Status of the last merge of web meetings.
  const std::optional<JSONObject>& cloudStatus() const { return cloudStatus_; }

 private:
  class Refresh;   // one run of refresh()
  class WebMerge;  // the last step of a refresh

  // What is remembered of a listed file set, so that it is not read again while it is unchanged;
  // also of one that waits.
  struct Known {
    std::string id;  // of the meeting that it holds
    Sources::FileSet files;
  };

  // Composes what is searched of the entry's written notes.
  static void composeBody(Entry& entry);
  // The entry of a meeting with its search texts, not yet in the index.
  static Entry composeEntry(std::shared_ptr<const Meeting> meeting);
  // Adds the entry or replaces the one with its id, under its key.
  void put(Entry entry);
  // Fetches the web meetings and merges them; returns the status of that.
  JSONObject mergeWebMeetings(const JSONObject& configFile, const Progress& progress);

  const Config& config_;
  Clock now_;
  Sources sources_;
  std::optional<WebMeetings> web_;
  std::unordered_map<std::string, Entry> entries_;      // by meeting id
  std::unordered_map<std::string, std::string> byKey_;  // key path to meeting id
  std::unordered_map<std::string, Known> known_;        // by key path
  // Whether every file set of the last refresh could be read and serves its meeting, so that known_
  // names all local entries and nothing else.
  bool isSettled_ = false;
  std::optional<Instant> indexedAt_;
  std::optional<JSONObject> cloudStatus_;
  std::optional<std::string> configHash_;  // fingerprint of what shaped the index
  std::uint64_t nextOrder_ = 0;
  mutable std::vector<Card> newestFirst_;  // sorted on demand
  mutable bool newestFirstValid_ = false;
};

}  // namespace velta
