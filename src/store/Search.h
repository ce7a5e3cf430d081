// Search: the hits of one search, best first, without looking at more meetings than it must.
//
// Hits come by the meeting's date, newest first, undated last; on one date those without a time
// first, then by time, then by the order of the index, then by their number in the meeting. So the
// meetings are walked newest first, day by day, and the walk stops with the day that fills the
// wanted number. On that day a meeting is left with the first line that comes too late.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "index/FoldedText.h"
#include "index/Index.h"
#include "store/Store.h"

namespace velta {

class Search {
 public:
  // What is looked for and where.
  struct Request {
    std::vector<QueryToken> tokens;       // at least one; a text must hold all of them
    std::optional<FoldedNeedle> speaker;  // for lines: what the speaker's name must hold
    bool lines = false;
    bool notes = false;
    bool digest = false;
    std::size_t limit = 0;  // hits wanted
  };

  explicit Search(Request request);

  // The best hits among the meetings that are `wanted`. The hits refer to entries of `index`.
  std::vector<Store::Hit> run(const Index& index,
                              const std::function<bool(const Index::Entry&)>& wanted) const;

 private:
  class Best;

  // Where in a meeting all the words may be; what the signatures rule out is not looked at.
  struct Areas {
    bool lines;
    bool written;  // notes and digest
    explicit operator bool() const { return lines || written; }
  };
  Areas areasOf(const Index::Card& card) const;

  void searchMeeting(const Index::Entry& entry, Areas areas, Best& best) const;
  void searchLines(const Index::Entry& entry, Best& best) const;
  std::vector<bool> wantedSpeakers(const Meeting::Transcript& lines) const;
  void searchWritten(const Index::Entry& entry, Best& best) const;
  bool mayBeWritten(const Index::Entry& entry) const;
  bool matches(std::string_view text) const;

  Request request_;
};

}  // namespace velta
