// GeneratedHome: invented meetings for measuring, as many as wanted, the same bytes for the same
// numbers.
//
// Every meeting is made from its own number and the seed, so any one can be made without the
// others. Planted words occur nowhere but where they are counted: the constructor checks that no
// other text can hold one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "json/JSON.h"

namespace velta::bench {

// A word in both scripts; an ASCII word has no Simplified form.
struct Word {
  std::string_view traditional;
  std::string_view simplified;

  bool isASCII() const { return simplified.empty(); }
};

// A word that stands in a known part of all lines.
struct PlantedWord {
  std::string_view frequency;    // as it is shown
  std::uint32_t perTenThousand;  // lines, where that is how it is planted
  bool inThreeLines;             // exactly three of the whole home instead
  Word word;
};

inline constexpr std::array<PlantedWord, 16> kPlanted = {{
    {"50 %", 5000, false, {"倉庫", "仓库"}},
    {"50 %", 5000, false, {"roadmap", ""}},
    {"5 %", 500, false, {"貨櫃", "货柜"}},
    {"5 %", 500, false, {"orientation", ""}},
    {"0.5 %", 50, false, {"鋼琴", "钢琴"}},
    {"0.5 %", 50, false, {"chandelier", ""}},
    {"0.01 %", 1, false, {"帳篷", "帐篷"}},
    {"0.01 %", 1, false, {"lantern", ""}},
    {"3 lines", 0, true, {"燈塔", "灯塔"}},
    {"3 lines", 0, true, {"cathedral", ""}},
    {"absent", 0, false, {"籬笆", "篱笆"}},
    {"absent", 0, false, {"sandstone", ""}},
    // Each in 5 %, the two of a pair never in one line; their lines are drawn together.
    {"apart", 500, false, {"蘋果", "苹果"}},
    {"apart", 500, false, {"礦坑", "矿坑"}},
    {"apart", 500, false, {"orchard", ""}},
    {"apart", 500, false, {"meadow", ""}},
}};
inline constexpr std::size_t kFirstApart = 12;

// Words planted in the notes, one decision a meeting, for list_meetings.
inline constexpr std::array<PlantedWord, 4> kPlantedInNotes = {{
    {"5 %", 500, false, {"檔案", "档案"}},
    {"5 %", 500, false, {"granite", ""}},
    {"absent", 0, false, {"籬笆", "篱笆"}},
    {"absent", 0, false, {"sandstone", ""}},
}};

// A person beside the usual ones, in one meeting of two hundred, and one in none.
inline constexpr Word kRarePerson = {"Ingrid Holm", ""};
inline constexpr Word kAbsentPerson = {"Zoltan Kiraly", ""};

// One meeting as the files that it lies in.
struct GeneratedMeeting {
  std::string folder;   // name of its folder
  std::string date;     // "yyyy-MM-dd"
  std::string notes;    // notes.json
  std::string session;  // session.json
  std::string upload;   // upload.json; empty: there is none
  std::string lines;    // the texts of the lines, each with a line feed
  std::size_t lineCount = 0;

  // Lines that hold each planted word, by script (an ASCII word counts as the first).
  std::array<std::array<std::size_t, 2>, kPlanted.size()> planted{};
  std::array<bool, kPlantedInNotes.size()> plantedInNotes{};
  bool hasFrequentPerson = false;
  bool hasRarePerson = false;
};

class GeneratedHome {
 public:
  // Throws std::logic_error when a planted word could stand in a text by chance.
  GeneratedHome(std::size_t meetings, std::uint64_t seed);

  std::size_t meetings() const { return lineCounts_.size(); }
  std::uint64_t seed() const { return seed_; }
  GeneratedMeeting meeting(std::size_t number) const;

 private:
  // A line that holds a word of "3 lines".
  struct Place {
    std::size_t meeting;
    std::size_t line;
    std::size_t word;  // in kPlanted
  };

  void choosePlaces();

  std::uint64_t seed_;
  std::vector<std::size_t> lineCounts_;
  std::vector<Place> places_;
};

// The person whom most meetings have.
Word frequentPerson();

// What a home holds, summed over its meetings.
class HomeCounts {
 public:
  void add(const GeneratedMeeting& meeting);

  // The planted words with their counts and what else a measurement wants to know of the home.
  JSONObject toJSON(const GeneratedHome& home) const;

 private:
  std::size_t lines_ = 0;
  std::size_t jsonBytes_ = 0;
  std::size_t textBytes_ = 0;
  std::array<std::array<std::size_t, 2>, kPlanted.size()> planted_{};
  std::array<std::size_t, kPlantedInNotes.size()> plantedInNotes_{};
  std::size_t frequentPerson_ = 0;
  std::size_t rarePerson_ = 0;
  std::string firstDate_;
  std::string lastDate_;
  std::string longFolder_;
  std::size_t longLines_ = 0;
  std::string typicalFolder_;
  std::size_t typicalLines_ = 0;
};

}  // namespace velta::bench
