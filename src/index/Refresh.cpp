// One refresh of the index: list every source, read what changed, settle which file set serves each
// meeting, put the meetings in and drop what is gone.
#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <exception>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "index/Index.h"
#include "index/Overrides.h"
#include "index/ParallelFor.h"
#include "json/JSONWriter.h"
#include "platform/Files.h"

namespace velta {
namespace {

constexpr std::string_view kKeyMark = "|local:";
constexpr double kSameTime = 1e-6;  // seconds; modification times closer than this are one

// Whether nothing stands at `path`, not even a link that leads nowhere.
bool isGone(const std::string& path) { return !fileStatus(path) && !leadsElsewhere(path); }

std::string duplicateMessage(const std::string& id, const std::string& waiting,
                             const std::string& served) {
  return "two meetings have the id " + id + ": " + served + " is served and " + waiting +
         " is left out. Next step: rename or remove one of the two";
}

// What of the configuration shapes the index, as text: a change of it means that all is read again.
// The settings of the web meetings count only where they differ from the usual ones.
std::string fingerprintOf(const JSONObject& config) {
  JSONObject shape;
  for (const char* key : {"sources", "visibility_overrides", "tag_overrides"}) {
    const JSON* value = config.get(key);
    shape.set(key, value != nullptr ? *value : JSON());
  }
  if (const JSONObject* cloud = config.getObject("cloud")) {
    const JSON* visibility = cloud->get("visibility");
    const JSON* enabled = cloud->get("enabled");
    const bool otherVisibility =
        visibility != nullptr && !visibility->isNull() && *visibility != JSON("private");
    if (otherVisibility || cloud->getBool("enabled") == false) {
      shape.set("cloud", JSONObject{{"visibility", visibility != nullptr ? *visibility : JSON()},
                                    {"enabled", enabled != nullptr ? *enabled : JSON()}});
    }
  }
  return writeCompact(shape);
}

// The name by which a source is counted.
std::string labelOf(const JSONObject& source) {
  const auto name = source.getString("name");
  if (name && !name->empty()) return std::string(*name);
  return std::string(source.getString("type").value_or("?"));
}

std::string keyOf(const std::string& path, std::size_t sourceNumber) {
  return path + std::string(kKeyMark) + std::to_string(sourceNumber);
}

std::string_view mainPathOf(std::string_view key) { return key.substr(0, key.rfind(kKeyMark)); }

bool isSameTime(double a, double b) { return std::abs(a - b) < kSameTime; }

bool isSameTime(const std::optional<double>& a, const std::optional<double>& b) {
  return a && b ? isSameTime(*a, *b) : !a && !b;
}

bool isUnchanged(const Sources::FileSet& before, const Sources::FileSet& now) {
  return isSameTime(before.modified, now.modified) && before.files == now.files &&
         isSameTime(before.uploadModified, now.uploadModified);
}

}  // namespace

class Index::Refresh {
 public:
  Refresh(Index& index, const JSONObject& config, bool force, const Progress& progress);

  BuildResult run();

 private:
  // A file set that was listed.
  struct Listed {
    std::string key;
    const JSONObject* source;
    Sources::FileSet files;
    std::optional<std::string> id;  // of the meeting that it holds, as far as that is known
    std::optional<Entry> read;      // the meeting, when it was read and is not yet in the index
    std::string fault;              // why it could not be read; empty when it could
  };

  bool isAllAsItWas() const;
  void readAndSettle();
  void listSources();
  void listSource(const JSONObject& source, std::size_t number);
  void recallUnchanged();
  void readUnknown();
  std::vector<Listed*> winnersWithoutEntry();
  void read(const std::vector<Listed*>& listed);
  void readOne(Listed& listed) const;
  void tellProgress(std::size_t done, std::size_t all) const;
  void keepLastEntry(Listed& listed);
  Entry* lastEntryOf(const Listed& listed);
  void chooseWinners();
  bool isWinner(const Listed& listed) const { return winners_.at(*listed.id) == &listed; }
  void insertWinners();
  void nameWaiting();
  void dropEntriesWithoutWinner();
  void remember();
  void mergeWebMeetings();
  void count();

  void applyOverrides(Entry& entry, const JSONObject& source) const;

  Index& index_;
  const JSONObject& config_;
  const Progress& progress_;
  const Overrides overrides_;
  const Instant now_;
  bool readAll_;
  std::vector<Listed> listed_;  // in listing order; complete before anything points into it
  std::unordered_map<std::string_view, Listed*>
      winners_;  // by meeting id: which file set serves it
  BuildResult result_;
};

Index::Refresh::Refresh(Index& index, const JSONObject& config, bool force,
                        const Progress& progress)
    : index_(index), config_(config), progress_(progress), overrides_(config), now_(index.now_()) {
  std::string fingerprint = fingerprintOf(config);
  readAll_ = force || index_.configHash_ != fingerprint;
  index_.configHash_ = std::move(fingerprint);
}

Index::BuildResult Index::Refresh::run() {
  listSources();
  recallUnchanged();
  if (!isAllAsItWas()) readAndSettle();
  mergeWebMeetings();
  count();
  return std::move(result_);
}

// Whether the very file sets were listed that were there before, unchanged, each with its meeting
// served. This is what nearly every refresh finds; nothing of what follows would do anything then.
bool Index::Refresh::isAllAsItWas() const {
  return index_.isSettled_ && !readAll_ && listed_.size() == index_.known_.size() &&
         std::ranges::all_of(listed_, [](const Listed& listed) { return listed.id.has_value(); });
}

void Index::Refresh::readAndSettle() {
  readUnknown();
  chooseWinners();
  // A file set that waited until now has to be read when the one before it is gone.
  for (auto unread = winnersWithoutEntry(); !unread.empty(); unread = winnersWithoutEntry()) {
    read(unread);
    chooseWinners();
  }
  insertWinners();
  nameWaiting();
  dropEntriesWithoutWinner();
  index_.isSettled_ = std::ranges::all_of(listed_, [this](const Listed& listed) {
    return listed.fault.empty() && listed.id && isWinner(listed);
  });
  remember();
}

void Index::Refresh::listSources() {
  const JSON::Array* sources = config_.getArray("sources");
  if (sources == nullptr) return;
  for (std::size_t number = 0; number < sources->size(); ++number) {
    if (const JSONObject* source = (*sources)[number].asObject()) listSource(*source, number);
  }
  result_.warnings = index_.sources_.takeWarnings();
}

void Index::Refresh::listSource(const JSONObject& source, std::size_t number) {
  const std::string label = labelOf(source);
  auto row =
      std::ranges::find(result_.perSource, label, &std::pair<std::string, std::size_t>::first);
  if (row == result_.perSource.end()) row = result_.perSource.insert(row, {label, 0});
  try {
    std::vector<Sources::FileSet> fileSets = index_.sources_.listSource(source);
    row->second += fileSets.size();
    for (Sources::FileSet& files : fileSets) {
      std::string key = keyOf(files.keyPath, number);
      listed_.push_back({std::move(key), &source, std::move(files), {}, {}, {}});
    }
  } catch (const Sources::ReadError& error) {
    result_.errors.emplace_back(error.what());
  }
}

void Index::Refresh::recallUnchanged() {
  if (readAll_) return;
  for (Listed& listed : listed_) {
    const auto known = index_.known_.find(listed.key);
    if (known != index_.known_.end() && isUnchanged(known->second.files, listed.files)) {
      listed.id = known->second.id;
    }
  }
}

void Index::Refresh::readUnknown() {
  std::vector<Listed*> unknown;
  for (Listed& listed : listed_) {
    if (!listed.id) unknown.push_back(&listed);
  }
  read(unknown);
}

std::vector<Index::Refresh::Listed*> Index::Refresh::winnersWithoutEntry() {
  std::vector<Listed*> missing;
  for (Listed& listed : listed_) {
    if (!listed.id || listed.read || !isWinner(listed)) continue;
    const Entry* entry = index_.find(*listed.id);
    if (entry == nullptr || entry->key != listed.key) missing.push_back(&listed);
  }
  return missing;
}

// Reads on several threads that share nothing but the list; what follows from the outcome happens
// here, in listing order, as it would with one thread.
void Index::Refresh::read(const std::vector<Listed*>& listed) {
  std::atomic<std::size_t> done = 0;
  // From the end of the list, where the newest meetings stand as a rule: what is searched first so
  // comes to lie together in memory.
  parallelFor(listed.size(), [&](std::size_t number) {
    readOne(*listed[listed.size() - 1 - number]);
    tellProgress(++done, listed.size());
  });
  for (Listed* one : listed) {
    if (one->read) {
      one->id = one->read->meeting->id;
    } else if (isGone(one->files.keyPath)) {
      one->id.reset();  // since it was listed: as if it had not been there any more
    } else {
      result_.errors.push_back(one->fault);
      keepLastEntry(*one);
    }
  }
}

void Index::Refresh::readOne(Listed& listed) const {
  try {
    Entry entry = composeEntry(
        std::make_shared<const Meeting>(Sources::readMeeting(*listed.source, listed.files, now_)));
    entry.key = listed.key;
    entry.mtime = listed.files.modified;
    applyOverrides(entry, *listed.source);
    listed.read = std::move(entry);
  } catch (const Sources::ReadError& error) {
    listed.fault = error.what();
  } catch (const std::exception& error) {  // a thread must not end by what one file holds
    listed.fault = listed.files.keyPath + ": " + error.what();
  }
}

void Index::Refresh::tellProgress(std::size_t done, std::size_t all) const {
  if (progress_)
    progress_("reading meetings: " + std::to_string(done) + " of " + std::to_string(all));
}

// A file set that cannot be read goes on with the entry it had, which follows the configuration.
void Index::Refresh::keepLastEntry(Listed& listed) {
  listed.id.reset();
  Entry* entry = lastEntryOf(listed);
  if (entry == nullptr) return;
  listed.id = entry->meeting->id;
  applyOverrides(*entry, *listed.source);
}

// The entry that was last read from these files. When its source took another place in the
// configuration it stands under a key that is listed no more, and moves to the new one.
Index::Entry* Index::Refresh::lastEntryOf(const Listed& listed) {
  auto& byKey = index_.byKey_;
  if (const auto own = byKey.find(listed.key); own != byKey.end()) {
    return &index_.entries_.at(own->second);
  }
  const auto moved = std::ranges::find_if(byKey, [&](const auto& keyAndId) {
    return mainPathOf(keyAndId.first) == listed.files.keyPath &&
           std::ranges::find(listed_, keyAndId.first, &Listed::key) == listed_.end();
  });
  if (moved == byKey.end()) return nullptr;
  Entry& entry = index_.entries_.at(moved->second);
  byKey.erase(moved);
  byKey[listed.key] = entry.meeting->id;
  entry.key = listed.key;
  return &entry;
}

// Of several file sets with one meeting id the last listed one serves it.
void Index::Refresh::chooseWinners() {
  winners_.clear();
  for (Listed& listed : listed_) {
    if (listed.id) winners_[*listed.id] = &listed;
  }
}

void Index::Refresh::insertWinners() {
  for (Listed& listed : listed_) {
    if (!listed.read || !isWinner(listed)) continue;
    index_.put(*std::move(listed.read));
    ++result_.changed;
  }
}

// One folder that two sources find is no fault; two folders with one id are.
void Index::Refresh::nameWaiting() {
  std::unordered_set<std::string> named;
  for (const Listed& listed : listed_) {
    if (!listed.id || isWinner(listed)) continue;
    const std::string& served = winners_.at(*listed.id)->files.keyPath;
    if (served == listed.files.keyPath) continue;
    std::string message = duplicateMessage(*listed.id, listed.files.keyPath, served);
    if (named.insert(message).second) result_.errors.push_back(std::move(message));
  }
}

void Index::Refresh::dropEntriesWithoutWinner() {
  for (auto entry = index_.entries_.begin(); entry != index_.entries_.end();) {
    if (winners_.contains(entry->first) || isWebKey(entry->second.key)) {
      ++entry;
      continue;
    }
    index_.byKey_.erase(entry->second.key);
    entry = index_.entries_.erase(entry);
    index_.newestFirstValid_ = false;
    ++result_.removed;
  }
}

// What could not be read is not remembered, and so is tried again by the next refresh.
void Index::Refresh::remember() {
  winners_.clear();  // it refers to the ids that move away here
  index_.known_.clear();
  for (Listed& listed : listed_) {
    if (!listed.id || !listed.fault.empty()) continue;
    index_.known_.insert_or_assign(std::move(listed.key),
                                   Known{*std::move(listed.id), std::move(listed.files)});
  }
}

void Index::Refresh::mergeWebMeetings() {
  if (!index_.web_) return;
  result_.cloud = index_.mergeWebMeetings(config_, progress_);
  index_.cloudStatus_ = result_.cloud;
  result_.perSource.emplace_back("web", result_.cloud.getInt("indexed").value_or(0));
}

void Index::Refresh::count() {
  result_.meetings = index_.entries_.size();
  for (const auto& [id, entry] : index_.entries_) result_.lines += entry.meeting->lines.size();
}

void Index::Refresh::applyOverrides(Entry& entry, const JSONObject& source) const {
  entry.visibility =
      overrides_.visibility(*entry.meeting, source.getString("visibility").value_or("private"));
  entry.tags = overrides_.tags(*entry.meeting);
}

Index::BuildResult Index::refresh(bool force, const JSONObject* config, const Progress& progress) {
  const JSONObject loaded = config != nullptr ? JSONObject() : config_.loadConfigFile(true);
  BuildResult result = Refresh(*this, config != nullptr ? *config : loaded, force, progress).run();
  indexedAt_ = now_();
  return result;
}

}  // namespace velta
