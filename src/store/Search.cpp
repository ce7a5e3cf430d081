#include "store/Search.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "index/SearchTexts.h"

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
          std::string(lines.speaker(index)),
          std::nullopt,
          std::string(lines.text(index)),
          index};
}

// What is written of a meeting, unpacked as far as it is searched.
struct Written {
  Written(const Meeting& meeting, const Search::Request& request) {
    const JSONObject unpacked = meeting.notes.unpack();
    if (request.notes) notes = noteTextsOf(meeting, unpacked);
    if (request.digest) digest = meeting.digestItems(unpacked);
  }

  Store::Hit hit(const Index::Entry& entry, std::size_t rid) const {
    const std::size_t index = rid - entry.meeting->lines.size();
    if (index < notes.size()) {
      const NoteText& note = notes[index];
      return {&entry, "notes", note.lineId, note.t, note.speaker, note.section, note.text, rid};
    }
    const Meeting::Digest& item = digest[index - notes.size()];
    return {&entry, "digest", item.id, item.t, std::nullopt, item.section, item.text, rid};
  }

  std::vector<NoteText> notes;
  std::vector<Meeting::Digest> digest;
};

Store::Hit hitAt(const Found& found, const Search::Request& request) {
  const Index::Entry& entry = *found.entry;
  if (found.rid < entry.meeting->lines.size()) return lineHit(entry, found.rid);
  return Written(*entry.meeting, request).hit(entry, found.rid);
}

// The lines that hold all of some words, one after another: the word that comes last says which
// line can be the next at all, and the others are looked for from its beginning. A token holds no
// line feed but every text ends with one, so no match spans two texts. Only for a match is the
// number of its line looked up.
class MatchingLines {
 public:
  MatchingLines(const std::vector<QueryToken>& tokens, const TextBlock& texts)
      : tokens_(tokens), texts_(texts) {
    for (const QueryToken& token : tokens_) places_.push_back(token.find(texts_.bytes()));
  }

  // The next matching line; absent when there is no more.
  std::optional<std::size_t> next() {
    while (true) {
      const std::size_t last = std::ranges::max(places_);
      if (last == FoldedNeedle::npos) return std::nullopt;
      const std::size_t begin = texts_.beginOfTextAround(last);
      if (std::ranges::min(places_) >= begin) {
        const std::size_t line = texts_.textAt(last);
        lookFrom(texts_.begin(line + 1));
        return line;
      }
      lookFrom(begin);
    }
  }

 private:
  // Moves every word that comes before `begin` on to its next place from there on.
  void lookFrom(std::size_t begin) {
    for (std::size_t i = 0; i < tokens_.size(); ++i) {
      if (places_[i] < begin) places_[i] = tokens_[i].find(texts_.bytes(), begin);
    }
  }

  const std::vector<QueryToken>& tokens_;
  const TextBlock& texts_;
  std::vector<std::size_t> places_;  // where each word comes next
};

}  // namespace

// The best of the places found on one day, at most `room` of them: a heap with the worst on top.
class Search::Best {
 public:
  explicit Best(std::size_t room) : room_(room) {}

  // Tells whether `found` is one of the best so far.
  bool add(const Found& found) {
    if (heap_.size() == room_) {
      if (!isBefore(found, heap_.front())) return false;
      std::ranges::pop_heap(heap_, isBefore);
      heap_.pop_back();
    }
    heap_.push_back(found);
    std::ranges::push_heap(heap_, isBefore);
    return true;
  }

  // Moves the hits of `request` to the end of `hits`, best first.
  void appendTo(std::vector<Store::Hit>& hits, const Request& request) {
    std::ranges::sort_heap(heap_, isBefore);
    for (const Found& found : heap_) hits.push_back(hitAt(found, request));
  }

 private:
  std::size_t room_;
  std::vector<Found> heap_;
};

// The words are looked for beginning with the one that is probably rarest.
Search::Search(Request request) : request_(std::move(request)) {
  std::ranges::stable_sort(request_.tokens, {}, &QueryToken::commonness);
}

std::vector<Store::Hit> Search::run(const Index& index,
                                    const std::function<bool(const Index::Entry&)>& wanted) const {
  std::vector<Store::Hit> hits;
  const std::vector<Index::Card>& cards = index.newestFirst();
  for (auto card = cards.begin(); card != cards.end() && hits.size() < request_.limit;) {
    const std::uint32_t day = card->day;
    Best best(request_.limit - hits.size());
    for (; card != cards.end() && card->day == day; ++card) {
      const Areas areas = areasOf(*card);
      if (areas && wanted(*card->entry)) searchMeeting(*card->entry, areas, best);
    }
    best.appendTo(hits, request_);
  }
  return hits;
}

Search::Areas Search::areasOf(const Index::Card& card) const {
  const auto mayHoldAll = [this](const SignatureView& signature) {
    return std::ranges::all_of(request_.tokens,
                               [&](const QueryToken& token) { return token.mayBeIn(signature); });
  };
  return {.lines = request_.lines && mayHoldAll(card.lines),
          .written = (request_.notes || request_.digest) && mayHoldAll(card.body)};
}

void Search::searchMeeting(const Index::Entry& entry, Areas areas, Best& best) const {
  if (areas.lines) searchLines(entry, best);
  if (areas.written && mayBeWritten(entry)) searchWritten(entry, best);
}

void Search::searchLines(const Index::Entry& entry, Best& best) const {
  const Meeting::Transcript& lines = entry.meeting->lines;
  const std::vector<bool> speakers = wantedSpeakers(lines);
  if (std::ranges::find(speakers, true) == speakers.end()) return;
  MatchingLines matching(request_.tokens, lines.texts());
  for (auto line = matching.next(); line; line = matching.next()) {
    if (!speakers[lines.speakerIndex(*line)]) continue;
    const bool isWanted = best.add({&entry, lines.tStart(*line), *line});
    if (!isWanted && lines.isInTimeOrder()) return;  // those behind it come later still
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

// The packed texts are searched before any is unpacked.
bool Search::mayBeWritten(const Index::Entry& entry) const {
  const Meeting& meeting = *entry.meeting;
  return std::ranges::all_of(request_.tokens, [&](const QueryToken& token) {
    return mayBePacked(meeting, token) || (request_.notes && token.isIn(meeting.verdict));
  });
}

void Search::searchWritten(const Index::Entry& entry, Best& best) const {
  const Written written(*entry.meeting, request_);
  std::size_t rid = entry.meeting->lines.size();
  for (const NoteText& note : written.notes) {
    if (matches(note.text)) best.add({&entry, note.t, rid});
    ++rid;
  }
  for (const Meeting::Digest& item : written.digest) {
    if (matches(item.text)) best.add({&entry, item.t, rid});
    ++rid;
  }
}

bool Search::matches(std::string_view text) const {
  return std::ranges::all_of(request_.tokens,
                             [text](const QueryToken& token) { return token.isIn(text); });
}

}  // namespace velta
