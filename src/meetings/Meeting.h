// Meeting: one meeting as every source gives it: a plain value; nothing in it refers to anything
// else. Times are seconds from the start of the meeting; dates and timestamps stay text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "json/JSON.h"
#include "meetings/LineTimes.h"
#include "meetings/NumberColumn.h"
#include "meetings/Packed.h"
#include "meetings/TextBlock.h"

namespace velta {

// One item of the written digest of a meeting.
struct MeetingDigest {
  std::string id;
  std::string section;  // "decisions", a heading, …; empty when unknown
  std::string text;
  std::optional<double> t;  // seconds, when the item refers to a moment

  friend bool operator==(const MeetingDigest&, const MeetingDigest&) = default;
};

// How the parts of a meeting are packed (Packed.h). Numbers that are not finite become null: JSON
// could not write them.
std::string packed(JSONObject notes);
std::string packed(std::vector<JSONObject> people);
std::string packed(const std::vector<MeetingDigest>& digest);
void unpackInto(std::string_view text, JSONObject& notes);
void unpackInto(std::string_view text, std::vector<JSONObject>& people);
void unpackInto(std::string_view text, std::vector<MeetingDigest>& digest);

struct Meeting {
  // One line of the transcript, as a value.
  struct Line {
    std::string id;  // what tools cite; see Transcript for lines that come without one
    double tStart = 0;
    std::optional<double> tEnd;
    std::string speaker = "?";
    std::string text;
  };

  // The transcript in columns: all texts in one block, and beside it the times and the speakers'
  // numbers. A line costs eleven bytes besides its text, as a rule.
  class Transcript {
   public:
    // Makes room for what a JSON document of so many bytes holds as a rule.
    void reserveForDocument(std::size_t bytes);
    // Adds a line at the end. An empty id stands for "none given"; `settleIds` makes one then. A
    // time that is not finite counts as absent: JSON could not write it.
    void append(std::string_view id, double tStart, std::optional<double> tEnd,
                std::string_view speaker, std::string_view text);
    // Drops all lines.
    void clear();
    // Makes every id unique and gives unused room back; call it once, after the last line. A line
    // without an id gets "L" + its 1-based number; an id that is taken gets "-2", "-3", …; ids that
    // were given win over made ones.
    void settleIds();
    // The other way to finish: ids stay as they were given, repeated and empty ones included.
    void keepIds();

    std::size_t size() const { return texts_.size(); }
    bool empty() const { return texts_.empty(); }

    std::string id(std::size_t index) const;
    double tStart(std::size_t index) const { return times_.start(index); }
    std::optional<double> tEnd(std::size_t index) const { return times_.end(index); }
    std::string_view speaker(std::size_t index) const { return speakers_[speakerOf_[index]]; }
    std::string_view text(std::size_t index) const { return texts_[index]; }
    Line line(std::size_t index) const;

    // Whether no line starts before the one before it.
    bool isInTimeOrder() const { return inTimeOrder_; }
    // The first line that may start at or after `seconds`: found by halving when the lines are in
    // time order, else line 0.
    std::size_t firstFrom(double seconds) const;

    // The texts as one block to search in.
    const TextBlock& texts() const { return texts_; }
    // The distinct speakers in order of appearance, and which of them speaks a line.
    const std::vector<std::string>& speakers() const { return speakers_; }
    std::size_t speakerIndex(std::size_t index) const { return speakerOf_[index]; }

   private:
    // Lets a name be looked up without a string being made of it.
    struct NameHash : std::hash<std::string_view> {
      using is_transparent = void;
    };

    void appendId(std::string_view id);
    std::uint32_t speakerNumber(std::string_view speaker);
    bool idsAreNumbers(bool emptyCounts) const;
    bool idsAscend() const;
    void finish();

    TextBlock texts_;
    LineTimes times_;
    bool inTimeOrder_ = true;
    double latestStart_ = std::numeric_limits<double>::lowest();  // of the last line
    NumberColumn speakerOf_;
    std::vector<std::string> speakers_;
    // By name; empty once finished.
    std::unordered_map<std::string, std::uint32_t, NameHash, std::equal_to<>> speakerNumbers_;
    TextBlock ids_;  // empty while every id is "L" + number
  };

  using Digest = MeetingDigest;

  std::string id;                        // unique within its source
  std::string source;                    // "recordings", "imported", "legacy" or "cloud"
  std::string title;                     // empty when unknown
  std::optional<std::string> date;       // "yyyy-MM-dd"
  std::optional<std::string> startedAt;  // ISO 8601, as written
  std::optional<double> durationSec;
  std::string verdict;                     // one-line conclusion; empty when none
  Packed<std::vector<JSONObject>> people;  // one a participant, as the source gives them
  Packed<JSONObject> notes;                // structured notes, as the source gives them
  Transcript lines;
  // The items of the written digest, unless they are those that follow from the notes, which are
  // then not kept a second time.
  Packed<std::vector<Digest>> digest;
  bool digestFollowsNotes = false;
  std::optional<std::string> visibilityHint;  // suggestion of the source; the index decides
  std::vector<std::string> tags;
  std::vector<std::string> files;      // paths of the files that the meeting was read from
  std::optional<std::string> cloudId;  // UUID in the web service, lower case
  std::optional<std::string> status;   // processing status, when not finished

  // The items of the written digest; with the notes where they are unpacked already.
  std::vector<Digest> digestItems() const;
  std::vector<Digest> digestItems(const JSONObject& unpackedNotes) const;
  // Makes these the items.
  void setDigest(std::vector<Digest> items, const JSONObject& unpackedNotes);

  // The meeting of a canonical JSON object; absent when `value` is not an object or has no string
  // "id" and "source". Malformed lines and digest items are dropped one by one.
  static std::optional<Meeting> fromJSON(const JSON& value);

  // The canonical form: the keys that fromJSON reads, absent optionals left out.
  JSONObject toJSON() const;
};

// The elements of an array that are strings, or objects, in order; none for a null pointer.
std::vector<std::string> stringElements(const JSON::Array* array);
std::vector<JSONObject> objectElements(const JSON::Array* array);

}  // namespace velta
