#include "store/Search.h"

#include <algorithm>
#include <string_view>
#include <tuple>
#include <utility>

namespace velta {
namespace {

// A place where something was found, before it is known whether the place is needed. Its number
// runs through the meeting's lines, then its notes, then its digest.
struct Found {
  const Index::Entry* entry;
  std::optional<double> t;  // seconds
  std::size_t rid;
};

// The order on one day; no time is less than any time.
bool isBefore(const Found& a, const Found& b) {
  return std::tie(a.t, a.entry->order, a.rid) < std::tie(b.t, b.entry->order, b.rid);
}

Store::Hit lineHit(const Index::Entry& entry, std::size_t index) {
  const Meeting::Transcript& lines = entry.meeting->lines;
  return {&entry,
          "line",
          lines.id(index),
          lines.tStart(index),
          lines.speaker(index),
          std::nullopt,
          lines.text(index),
          index};
}

Store::Hit noteHit(const Index::Entry& entry, std::size_t index, std::size_t rid) {
  const Index::NoteText& note = entry.noteTexts[index];
  return {&entry, "notes", note.lineId, note.t, note.speaker, note.section, note.text, rid};
}

Store::Hit digestHit(const Index::Entry& entry, std::size_t index, std::size_t rid) {
  const Meeting::Digest& item = entry.meeting->digest[index];
  return {&entry, "digest", item.id, item.t, std::nullopt, item.section, item.text, rid};
}

Store::Hit hitAt(const Found& found) {
  const Index::Entry& entry = *found.entry;
  const std::size_t firstNote = entry.meeting->lines.size();
  const std::size_t firstDigest = firstNote + entry.noteTexts.size();
  if (found.rid < firstNote) return lineHit(entry, found.rid);
  if (found.rid < firstDigest) return noteHit(entry, found.rid - firstNote, found.rid);
  return digestHit(entry, found.rid - firstDigest, found.rid);
}

}  // namespace

// The best of the places found on one day, at most `room` of them: a heap with the worst on top.
class Search::Best {
 public:
  explicit Best(std::size_t room) : room_(room) {}

  void add(const Found& found) {
    if (heap_.size() == room_) {
      if (!isBefore(found, heap_.front())) return;
      std::ranges::pop_heap(heap_, isBefore);
      heap_.pop_back();
    }
    heap_.push_back(found);
    std::ranges::push_heap(heap_, isBefore);
  }

  // Moves the hits to the end of `hits`, best first.
  void appendTo(std::vector<Store::Hit>& hits) {
    std::ranges::sort_heap(heap_, isBefore);
    for (const Found& found : heap_) hits.push_back(hitAt(found));
  }

 private:
  std::size_t room_;
  std::vector<Found> heap_;
};

std::vector<Store::Hit> Search::run(const Index& index,
                                    const std::function<bool(const Index::Entry&)>& wanted) const {
  std::vector<Store::Hit> hits;
  const std::vector<const Index::Entry*>& entries = index.newestFirst();
  for (auto next = entries.begin(); next != entries.end() && hits.size() < request_.limit;) {
    const std::optional<std::string>& day = (*next)->meeting->date;
    Best best(request_.limit - hits.size());
    for (; next != entries.end() && (*next)->meeting->date == day; ++next) {
      if (wanted(**next)) searchMeeting(**next, best);
    }
    best.appendTo(hits);
  }
  return hits;
}

void Search::searchMeeting(const Index::Entry& entry, Best& best) const {
  if (request_.lines) searchLines(entry, best);
  if (request_.notes) searchNotes(entry, best);
  if (request_.digest) searchDigest(entry, best);
}

// Jumps through all texts at once from one match of the first token to the next. A token holds no
// line feed but every text ends with one, so no match spans two texts.
void Search::searchLines(const Index::Entry& entry, Best& best) const {
  const Meeting::Transcript& lines = entry.meeting->lines;
  const TextBlock& texts = lines.texts();
  const std::vector<bool> speakers = wantedSpeakers(lines);
  if (std::ranges::find(speakers, true) == speakers.end()) return;
  const QueryToken& first = request_.tokens.front();
  std::size_t place = first.find(texts.bytes());
  while (place != FoldedNeedle::npos) {
    const std::size_t line = texts.textAt(place);
    if (speakers[lines.speakerIndex(line)] && matches(texts[line])) {
      best.add({&entry, lines.tStart(line), line});
    }
    place = first.find(texts.bytes(), texts.begin(line + 1));
  }
}

// By speaker number: whether what that speaker said is wanted.
std::vector<bool> Search::wantedSpeakers(const Meeting::Transcript& lines) const {
  std::vector<bool> wanted;
  for (const std::string& name : lines.speakers()) {
    wanted.push_back(!request_.speaker || request_.speaker->isIn(name));
  }
  return wanted;
}

void Search::searchNotes(const Index::Entry& entry, Best& best) const {
  std::size_t rid = entry.meeting->lines.size();
  for (const Index::NoteText& note : entry.noteTexts) {
    if (matches(note.text)) best.add({&entry, note.t, rid});
    ++rid;
  }
}

void Search::searchDigest(const Index::Entry& entry, Best& best) const {
  std::size_t rid = entry.meeting->lines.size() + entry.noteTexts.size();
  for (const Meeting::Digest& item : entry.meeting->digest) {
    if (matches(item.text)) best.add({&entry, item.t, rid});
    ++rid;
  }
}

bool Search::matches(std::string_view text) const {
  return std::ranges::all_of(request_.tokens,
                             [text](const QueryToken& token) { return token.isIn(text); });
}

}  // namespace velta
