#include "index/Index.h"

#include <algorithm>
#include <functional>
#include <tuple>
#include <utility>

#include "index/SearchTexts.h"

namespace velta {
namespace {

// Whether `a` comes before `b`, newest first. An absent date or start time is less than any text,
// and so comes last.
bool isNewer(const Index::Entry* a, const Index::Entry* b) {
  return std::tie(b->meeting->date, b->meeting->startedAt, a->order) <
         std::tie(a->meeting->date, a->meeting->startedAt, b->order);
}

std::size_t itemCount(const JSONObject& notes, std::string_view section) {
  const JSON::Array* items = notes.getArray(section);
  return items != nullptr ? items->size() : 0;
}

std::uint32_t saltOf(const Index::Entry& entry) {
  return static_cast<std::uint32_t>(std::hash<std::string>()(entry.meeting->id));
}

}  // namespace

Index::Index(const Config& config, Clock now, HTTPFetcher* fetcher)
    : config_(config), now_(std::move(now)), sources_(config.userHome()) {
  if (fetcher != nullptr) web_.emplace(Cloud(config, *fetcher));
}

void Index::insert(Meeting meeting, const std::string& key, std::string visibility,
                   std::vector<std::string> tags, double mtime) {
  Entry entry = composeEntry(std::make_shared<const Meeting>(std::move(meeting)));
  entry.key = key;
  entry.visibility = std::move(visibility);
  entry.tags = std::move(tags);
  entry.mtime = mtime;
  put(std::move(entry));
  isSettled_ = false;  // it is in no list of files
}

const Index::Entry* Index::find(const std::string& id) const {
  const auto found = entries_.find(id);
  return found == entries_.end() ? nullptr : &found->second;
}

std::vector<std::string> Index::peopleNames() const {
  std::vector<std::string> names;
  for (const auto& [id, entry] : entries_) {
    for (const JSONObject& person : entry.meeting->people.unpack()) {
      if (const auto name = person.getString("name")) names.emplace_back(*name);
    }
  }
  return names;
}

const std::vector<Index::Card>& Index::newestFirst() const {
  if (!newestFirstValid_) {
    std::vector<const Entry*> sorted;
    for (const auto& [id, entry] : entries_) sorted.push_back(&entry);
    std::ranges::sort(sorted, isNewer);
    newestFirst_.clear();
    std::uint32_t day = 0;
    for (const Entry* entry : sorted) {
      if (!newestFirst_.empty() && newestFirst_.back().entry->meeting->date != entry->meeting->date)
        ++day;
      newestFirst_.push_back(
          {entry, day, entry->lineSignature.view(), entry->bodySignature.view()});
    }
    newestFirstValid_ = true;
  }
  return newestFirst_;
}

Index::Entry Index::composeEntry(std::shared_ptr<const Meeting> meeting) {
  Entry entry;
  entry.meeting = std::move(meeting);
  entry.lineSignature = Signature({entry.meeting->lines.texts().bytes()}, saltOf(entry));
  composeBody(entry);
  return entry;
}

void Index::composeBody(Entry& entry) {
  const JSONObject notes = entry.meeting->notes.unpack();
  entry.decisionCount = itemCount(notes, "decisions");
  entry.openQuestionCount = itemCount(notes, "open_questions");
  const std::string body = bodyLowerOf(*entry.meeting, notes);
  const std::vector<NoteText> noteTexts = noteTextsOf(*entry.meeting, notes);
  std::vector<std::string_view> texts = {body};
  for (const NoteText& note : noteTexts) texts.emplace_back(note.text);
  entry.bodySignature = Signature(texts, saltOf(entry));
}

void Index::put(Entry entry) {
  const std::string id = entry.meeting->id;
  if (const auto old = entries_.find(id); old != entries_.end()) byKey_.erase(old->second.key);
  // The file at this key now holds another meeting than before.
  if (const auto other = byKey_.find(entry.key); other != byKey_.end()) {
    entries_.erase(other->second);
  }
  entry.order = ++nextOrder_;
  byKey_[entry.key] = id;
  entries_[id] = std::move(entry);
  newestFirstValid_ = false;
}

}  // namespace velta
