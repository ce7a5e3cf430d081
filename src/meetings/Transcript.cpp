// The transcript of a meeting in columns.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "meetings/Meeting.h"

namespace velta {
namespace {

constexpr std::size_t kFewSpeakers = 8;
constexpr std::size_t kBytesPerLine = 128;  // of JSON, at least, as recorders write it

std::string numberedId(std::size_t index) { return std::string("L") + std::to_string(index + 1); }

// Whether `id` is numberedId(index), without making that string.
bool isNumberedId(std::string_view id, std::size_t index) {
  constexpr std::size_t kMostDigits = 19;  // so many fit 64 bits
  if (id.size() < 2 || id.size() > 1 + kMostDigits || id[0] != 'L' || id[1] == '0') return false;
  std::uint64_t number = 0;
  for (const char digit : id.substr(1)) {
    if (digit < '0' || digit > '9') return false;
    number = 10 * number + static_cast<std::uint64_t>(digit - '0');
  }
  return number == index + 1;
}

// Hands out ids of one meeting, every one once.
class IdRegister {
 public:
  // Whether `id` was free; it is taken now.
  bool claim(const std::string& id) { return taken_.insert(id).second; }

  // `wanted` when free, else the first free one of `wanted`-2, `wanted`-3, …
  std::string claimSuffixed(const std::string& wanted) {
    if (claim(wanted)) return wanted;
    // Remembered, so that many lines with one id cost linear time.
    std::size_t& suffix = suffixes_.try_emplace(wanted, 2).first->second;
    for (;;) {
      std::string id = wanted + "-" + std::to_string(suffix++);
      if (claim(id)) return id;
    }
  }

 private:
  std::unordered_set<std::string> taken_;
  std::unordered_map<std::string, std::size_t> suffixes_;  // the next to try, by id
};

// `given` with every id unique and none empty: the first line with an id keeps it, then the later
// ones with the same id and last the lines without any get one that is free.
std::vector<std::string> uniqueIds(const TextBlock& given) {
  IdRegister ids;
  std::vector<std::string> result(given.size());
  for (std::size_t i = 0; i < given.size(); ++i) {
    const std::string id(given[i]);
    if (!id.empty() && ids.claim(id)) result[i] = id;
  }
  for (std::size_t i = 0; i < given.size(); ++i) {
    if (result[i].empty() && !given[i].empty())
      result[i] = ids.claimSuffixed(std::string(given[i]));
  }
  for (std::size_t i = 0; i < given.size(); ++i) {
    if (result[i].empty()) result[i] = ids.claimSuffixed(numberedId(i));
  }
  return result;
}

// A total order in which counters ascend even without leading zeros ("s9" before "s10").
bool comesBefore(std::string_view a, std::string_view b) {
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

}  // namespace

void Meeting::Transcript::reserveForDocument(std::size_t bytes) {
  const std::size_t count = bytes / kBytesPerLine;
  texts_.reserve(count, bytes / 2);
  times_.reserve(count);
  speakerOf_.reserve(count);
}

void Meeting::Transcript::append(std::string_view id, double tStart, std::optional<double> tEnd,
                                 std::string_view speaker, std::string_view text) {
  appendId(id);
  texts_.append(text);
  const double start = std::isfinite(tStart) ? tStart : 0;
  inTimeOrder_ = inTimeOrder_ && latestStart_ <= start;
  latestStart_ = start;
  times_.append(start, tEnd && std::isfinite(*tEnd) ? tEnd : std::nullopt);
  speakerOf_.append(speakerNumber(speaker));
}

// While every id is the number of its line none is kept.
void Meeting::Transcript::appendId(std::string_view id) {
  if (ids_.empty() && isNumberedId(id, size())) return;
  for (std::size_t before = ids_.size(); before < size(); ++before) ids_.append(numberedId(before));
  ids_.append(id);
}

std::uint32_t Meeting::Transcript::speakerNumber(std::string_view speaker) {
  // Few speak in most meetings: a look at each is quicker than hashing the name.
  const std::size_t few = std::min(speakers_.size(), kFewSpeakers);
  for (std::uint32_t number = 0; number < few; ++number) {
    if (speakers_[number] == speaker) return number;
  }
  const auto known = speakerNumbers_.find(speaker);
  if (known != speakerNumbers_.end()) return known->second;
  const auto number = static_cast<std::uint32_t>(speakers_.size());
  speakers_.emplace_back(speaker);
  speakerNumbers_.emplace(speaker, number);
  return number;
}

void Meeting::Transcript::clear() { *this = Transcript(); }

// Whether every id is "L" + its number, in which case none is stored; with `emptyCounts` a line
// without an id counts as having that one.
bool Meeting::Transcript::idsAreNumbers(bool emptyCounts) const {
  for (std::size_t i = 0; i < ids_.size(); ++i) {
    if (ids_[i].empty() ? !emptyCounts : !isNumberedId(ids_[i], i)) return false;
  }
  return true;
}

// Whether the ids are all there and ascend, as counters do: then they are unique, and the far more
// costly look at a set of them is spared.
bool Meeting::Transcript::idsAscend() const {
  if (ids_.empty() || ids_[0].empty()) return false;
  for (std::size_t i = 1; i < ids_.size(); ++i) {
    if (!comesBefore(ids_[i - 1], ids_[i])) return false;
  }
  return true;
}

void Meeting::Transcript::settleIds() {
  if (idsAreNumbers(true)) {
    ids_ = TextBlock();
  } else if (!idsAscend()) {
    const std::vector<std::string> unique = uniqueIds(ids_);
    ids_.clear();
    for (const auto& id : unique) ids_.append(id);
  }
  finish();
}

void Meeting::Transcript::keepIds() {
  if (idsAreNumbers(false)) ids_ = TextBlock();
  finish();
}

void Meeting::Transcript::finish() {
  speakerNumbers_ = {};
  texts_.shrinkToFit();
  ids_.shrinkToFit();
  times_.shrinkToFit();
  speakerOf_.shrinkToFit();
  speakers_.shrink_to_fit();
}

std::string Meeting::Transcript::id(std::size_t index) const {
  return ids_.empty() ? numberedId(index) : std::string(ids_[index]);
}

std::size_t Meeting::Transcript::firstFrom(double seconds) const {
  if (!inTimeOrder_) return 0;
  std::size_t first = 0;
  for (std::size_t left = size(); left > 0;) {
    const std::size_t half = left / 2;
    if (tStart(first + half) < seconds) {
      first += half + 1;
      left -= half + 1;
    } else {
      left = half;
    }
  }
  return first;
}

Meeting::Line Meeting::Transcript::line(std::size_t index) const {
  return {id(index), tStart(index), tEnd(index), std::string(speaker(index)),
          std::string(text(index))};
}

}  // namespace velta
