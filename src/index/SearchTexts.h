// Search texts: what is composed from a meeting once, so that tools can search it at any time.
#pragma once

#include <string>
#include <vector>

#include "index/Index.h"
#include "meetings/Meeting.h"

namespace velta {

// Title, verdict, the texts of the written notes and the digest texts, joined by line feeds,
// lowered. Neither transcript nor people.
std::string bodyLowerOf(const Meeting& meeting);

// The people as compact JSON text, lowered: a word in a role is found as well, on purpose.
std::string peopleLowerOf(const Meeting& meeting);

// The texts of the written notes that search may find when transcripts are not searched: verdict,
// summary, topics, quotes and the user's own notes.
std::vector<Index::NoteText> noteTextsOf(const Meeting& meeting);

}  // namespace velta
