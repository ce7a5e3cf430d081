// Sources: the kinds of place that meetings come from, and how their files become meetings.
//
// Listing looks at directories and modification times only; reading parses. Both are separate so
// that a refresh reads nothing that did not change.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "json/JSON.h"
#include "meetings/Meeting.h"
#include "platform/Time.h"

namespace velta {

class Sources {
 public:
  // A source or a file set that cannot be read; what() is the whole message.
  class ReadError : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
  };

  // One listed meeting: its files, main file first, and what tells whether they changed.
  struct FileSet {
    std::string keyPath;             // path of the main file
    std::vector<std::string> files;  // at least the main file
    double modified =
        0;  // latest modification time of the files, seconds since the epoch; 0: unknown
    // Modification time of the upload.json in the meeting's folder, which is not one of the files
    // but decides the meeting's status; absent when there is none.
    std::optional<double> uploadModified;
  };

  // A section of a legacy digest note.
  struct Sec {
    std::string section;            // heading text
    std::vector<std::string> text;  // the lines under it
  };

  // A row of a legacy transcript.
  struct Row {
    std::string speaker;
    double tStart = 0;
    std::vector<std::string> text;  // the lines that follow the speaker line
  };

  // `userHome` stands for "~" in patterns and paths.
  explicit Sources(std::string userHome) : userHome_(std::move(userHome)) {}

  // The file sets of one source object of the configuration, in order. Throws ReadError for a
  // source that says nothing usable; missing folders are simply empty. (Not const: which digest
  // note a legacy record names is remembered while its meeting.json stays unchanged.)
  std::vector<FileSet> listSource(const JSONObject& source);

  // The meeting of one file set. Throws ReadError. Safe to call from several threads at once.
  static Meeting readMeeting(const JSONObject& source, const FileSet& files, Instant now);

  // What of the listings since the last call the user should know although it is no failure: each
  // pattern or path of the configuration with a folder that may not be listed.
  std::vector<std::string> takeWarnings() { return std::exchange(warnings_, {}); }

  // Paths that match a pattern, "~" expanded, in ascending byte order.
  std::vector<std::string> globFiles(std::string_view pattern) const;

  // The pieces of the legacy markdown formats.
  static std::vector<Row> parseTranscript(std::string_view markdown);
  static std::vector<Sec> parseDigest(std::string_view markdown);

 private:
  struct DigestName {
    double modified;
    std::optional<std::string> name;
  };

  std::vector<FileSet> listRecordings(const JSONObject& source, const std::string& kind);
  std::vector<FileSet> listLegacy(const JSONObject& source);
  // The paths of `pattern`, which comes from `named` of the configuration.
  std::vector<std::string> glob(const std::string& pattern, std::string_view named);
  std::optional<std::string> digestName(const std::string& record, double modified);

  std::string userHome_;
  std::unordered_map<std::string, DigestName> digestNames_;  // by path of meeting.json
  std::vector<std::string> warnings_;
};

// The items of the written notes that can be cited and searched, "D1", "D2", …: decisions, open
// questions, chapters and the points of viewpoints, in this order. Shared by all readers.
std::vector<Meeting::Digest> digestOfNotes(const JSONObject& notes);

// The transcript of an array of line objects, by the rules of recordings: other elements are
// skipped, members that are absent or of another kind take their defaults, ids are settled.
Meeting::Transcript transcriptOfElements(const JSON::Array& elements);

// The text of one item of the notes: the item itself when a string, else its telling string
// members in a fixed order, joined by blanks. Empty when it has none.
std::string itemText(const JSON& item);

// The moment that an item refers to: its first number of "t_start", "start" and "t".
std::optional<double> itemTime(const JSON& item);

}  // namespace velta
