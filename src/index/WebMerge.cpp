// The web meetings in the index: a web meeting that is also here is merged into the local one,
// every other has an entry of its own, under the key "cloud:" + UUID.
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_set>
#include <utility>
#include <vector>

#include "index/Index.h"
#include "index/Overrides.h"

namespace velta {
namespace {

constexpr std::string_view kUserNotes = "user_notes";

std::string webKey(const std::string& uuid) { return std::string(Index::kWebKeyPrefix) + uuid; }

bool saysNothing(const std::optional<JSON>& notes) { return !notes || !notes->truthy(); }

std::optional<JSON> userNotesOf(const Meeting& meeting) {
  const JSONObject notes = meeting.notes.unpack();
  const JSON* own = notes.get(kUserNotes);
  return own != nullptr ? std::optional(*own) : std::nullopt;
}

std::string couldNotWrite(const std::string& cause) {
  return "web meetings: the cache could not be written (" + cause +
         "); they are downloaded again after a restart. Next step: free space on the disk, or make "
         "the data home writable";
}

}  // namespace

class Index::WebMerge {
 public:
  WebMerge(Index& index, const JSONObject& configFile)
      : index_(index), configFile_(configFile), overrides_(configFile) {}

  // The status of the merge.
  JSONObject run(const Progress& progress) {
    JSONObject status = index_.web_->sync(configFile_, index_.now_(), progress);
    findLocalTwins();
    dropEntriesWithoutRow();
    putEntries();
    mergeIntoTwins();
    noteWhatIsApplied();
    if (status.getBool("connected") == true) {
      status.set("indexed", index_.web_->rows().size() - merged_.size());
      status.set("merged_into_local", merged_.size());
    }
    save(status);
    return status;
  }

 private:
  // The local meetings that are web meetings as well, and those that were until now.
  void findLocalTwins() {
    for (auto& [id, entry] : index_.entries_) {
      if (isWebKey(entry.key)) continue;
      const WebMeetings::Row* row = nullptr;
      if (const auto& uuid = entry.meeting->cloudId) {
        const auto found = rows().find(*uuid);
        if (found != rows().end()) row = &found->second;
      }
      if (row != nullptr) merged_.insert(*entry.meeting->cloudId);
      if (row != nullptr || entry.mergedWith) twins_.emplace_back(&entry, row);
    }
  }

  void dropEntriesWithoutRow() {
    for (auto entry = index_.entries_.begin(); entry != index_.entries_.end();) {
      const std::string& key = entry->second.key;
      const std::string uuid = isWebKey(key) ? key.substr(kWebKeyPrefix.size()) : "";
      if (uuid.empty() || (rows().contains(uuid) && !merged_.contains(uuid))) {
        ++entry;
        continue;
      }
      index_.byKey_.erase(key);
      entry = index_.entries_.erase(entry);
      index_.newestFirstValid_ = false;
    }
  }

  void putEntries() {
    for (const auto& [uuid, row] : rows()) {
      if (merged_.contains(uuid)) continue;
      Entry* entry = entryOf(uuid);
      // Rows share their meetings with the entries: another meeting is another revision.
      if (entry != nullptr && entry->meeting == row.meeting) {
        grant(*entry);
      } else {
        Entry fresh = composeEntry(row.meeting);
        fresh.key = webKey(uuid);
        grant(fresh);
        index_.put(std::move(fresh));
      }
    }
  }

  Entry* entryOf(const std::string& uuid) {
    const auto id = index_.byKey_.find(webKey(uuid));
    return id == index_.byKey_.end() ? nullptr : &index_.entries_.at(id->second);
  }

  void grant(Entry& entry) const {
    const JSONObject* cloud = configFile_.getObject("cloud");
    const auto visibility = cloud != nullptr ? cloud->getString("visibility") : std::nullopt;
    entry.visibility = overrides_.visibility(*entry.meeting, visibility.value_or("private"));
    entry.tags = overrides_.tags(*entry.meeting);
  }

  // A local meeting without notes by the user gets those from the web, and loses them again when
  // the web meeting goes.
  void mergeIntoTwins() {
    for (const auto& [entry, row] : twins_) {
      const auto twin = row != nullptr ? row->meeting : nullptr;
      if (entry->mergedWith == twin) continue;  // another revision is another meeting
      const auto own = entry->webNotes ? entry->webNotes->own : userNotesOf(*entry->meeting);
      auto fromWeb = twin && saysNothing(own) ? userNotesOf(*twin) : std::nullopt;
      if (saysNothing(fromWeb)) fromWeb.reset();
      if (entry->webNotes || fromWeb) setUserNotes(*entry, fromWeb ? fromWeb : own);
      entry->webNotes = fromWeb ? std::optional(WebNotes{own}) : std::nullopt;
      entry->mergedWith = twin;
    }
  }

  void noteWhatIsApplied() {
    for (const auto& [uuid, row] : rows()) index_.web_->setApplied(uuid, merged_.contains(uuid));
  }

  void setUserNotes(Entry& entry, const std::optional<JSON>& userNotes) {
    JSONObject notes = entry.meeting->notes.unpack();
    if (userNotes) {
      notes.set(kUserNotes, *userNotes);
    } else {
      notes.erase(kUserNotes);
    }
    Meeting meeting = *entry.meeting;
    meeting.notes = std::move(notes);
    entry.meeting = std::make_shared<const Meeting>(std::move(meeting));
    composeBody(entry);
    index_.newestFirstValid_ = false;
  }

  void save(JSONObject& status) {
    try {
      index_.web_->save();
    } catch (const std::system_error& error) {
      if (!status.has("warning")) status.set("warning", couldNotWrite(error.code().message()));
    }
  }

  const WebMeetings::Rows& rows() const { return index_.web_->rows(); }

  Index& index_;
  const JSONObject& configFile_;
  const Overrides overrides_;
  std::vector<std::pair<Entry*, const WebMeetings::Row*>> twins_;  // null: no row any more
  std::unordered_set<std::string> merged_;                         // UUIDs
};

JSONObject Index::mergeWebMeetings(const JSONObject& configFile, const Progress& progress) {
  return WebMerge(*this, configFile).run(progress);
}

}  // namespace velta
