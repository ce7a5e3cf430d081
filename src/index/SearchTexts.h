// Search texts: what is searched of the written notes of a meeting. They are composed when they are
// needed: as they stand in memory the notes are packed, and kept once.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "index/FoldedText.h"
#include "json/JSON.h"
#include "meetings/Meeting.h"

namespace velta {

// A text of the written notes that search may find when transcripts are not searched.
struct NoteText {
  std::string lineId;  // the section, or section + "-" + number for an item of a list
  std::string section;
  std::optional<double> t;             // seconds, where the item says so
  std::optional<std::string> speaker;  // where the item says so
  std::string text;
};

// Title, verdict, the texts of the written notes and the digest texts, joined by line feeds,
// lowered. Neither transcript nor people. `notes` are those of the meeting, where they are unpacked
// already.
std::string bodyLowerOf(const Meeting& meeting, const JSONObject& notes);
inline std::string bodyLowerOf(const Meeting& meeting) {
  return bodyLowerOf(meeting, meeting.notes.unpack());
}

// The texts of the written notes that search may find when transcripts are not searched: verdict,
// summary, topics, quotes and the user's own notes.
std::vector<NoteText> noteTextsOf(const Meeting& meeting, const JSONObject& notes);
inline std::vector<NoteText> noteTextsOf(const Meeting& meeting) {
  return noteTextsOf(meeting, meeting.notes.unpack());
}

// Whether a word may stand in the notes or the digest; false is certain. Looks at the packed texts
// as they are.
bool mayBePacked(const Meeting& meeting, const QueryToken& word);

}  // namespace velta
