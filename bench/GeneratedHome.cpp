#include "GeneratedHome.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Vocabulary.h"
#include "json/JSONWriter.h"
#include "platform/Text.h"

namespace velta::bench {
namespace {

constexpr int kIndentation = 2;  // as the files of recordings have it

// Lines of a meeting: log-normal, cut off at both ends. One meeting is long enough to fill the
// limit of get_transcript.
constexpr double kMedianLines = 650;
constexpr double kLinesSpread = 0.45;  // standard deviation of the logarithm
constexpr std::size_t kFewestLines = 200;
constexpr std::size_t kMostLines = 1500;
constexpr std::size_t kLongMeeting = 0;
constexpr std::size_t kLongMeetingLines = 2200;
constexpr std::size_t kTypicalLines = 700;

constexpr std::size_t kMostCharacters = 60;  // of a line
constexpr int kDays = 1460;                  // over which the dates are spread
constexpr std::size_t kPeople = 120;

// A generator whose numbers are the same everywhere (SplitMix64).
class Random {
 public:
  Random(std::uint64_t seed, std::uint64_t stream) : state_(seed) {
    state_ = next() ^ (stream * 0x9E3779B97F4A7C15U);
  }

  std::uint64_t next() {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15U;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
  }

  // 0 to count - 1; count is far below 2^32.
  std::size_t below(std::size_t count) {
    return static_cast<std::size_t>(((next() >> 32U) * count) >> 32U);
  }
  std::size_t between(std::size_t least, std::size_t most) {
    return least + below(most - least + 1);
  }
  bool inTenThousand(std::uint32_t chances) { return below(10000) < chances; }

  // Roughly of the standard normal distribution.
  double normal() {
    double sum = -6;
    for (int i = 0; i < 12; ++i) sum += static_cast<double>(below(1U << 24U)) / (1U << 24U);
    return sum;
  }

 private:
  std::uint64_t state_;
};

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(separator), text.size());
    parts.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

// Word number n is drawn with a chance of about 1 in n: one look into a long table a draw.
class ZipfTable {
 public:
  explicit ZipfTable(std::size_t words) {
    constexpr std::size_t kFlatten = 4;  // the first few are less far apart than Zipf has it
    std::size_t sum = 0;
    for (std::size_t word = 0; word < words; ++word) sum += kUnit / (word + kFlatten);
    for (std::size_t word = 0; word < words; ++word) {
      const std::size_t share = kUnit / (word + kFlatten) * kTableSize / sum;
      table_.insert(table_.end(), std::max<std::size_t>(share, 1), word);
    }
  }

  std::size_t draw(Random& random) const { return table_[random.below(table_.size())]; }

 private:
  static constexpr std::size_t kUnit = 1U << 24U;
  static constexpr std::size_t kTableSize = 1U << 14U;

  std::vector<std::size_t> table_;
};

// The words and names as lists. Index 0 of a pair is Traditional, 1 Simplified.
struct Words {
  std::array<std::vector<std::string_view>, 2> chinese = {split(kTraditionalWords, ' '),
                                                          split(kSimplifiedWords, ' ')};
  std::vector<std::string_view> english = split(kEnglishWords, ' ');
  ZipfTable chineseTable{chinese[0].size()};
  ZipfTable englishTable{english.size()};
  std::array<std::vector<std::string>, 2> people = {
      namesOf(kTraditionalSurnames, kTraditionalGivenNames),
      namesOf(kSimplifiedSurnames, kSimplifiedGivenNames)};
  ZipfTable peopleTable{kPeople};

  // Four Chinese names, then an English one, as far as those reach; no name twice.
  static std::vector<std::string> namesOf(std::string_view surnames, std::string_view givenNames) {
    const auto families = split(surnames, ' ');
    const auto given = split(givenNames, ' ');
    const auto english = split(kEnglishNames, ',');
    std::vector<std::string> names;
    for (std::size_t number = 0; names.size() < kPeople; ++number) {
      std::string name(families[number % families.size()]);
      name += given[(number * 7 + number / families.size()) % given.size()];
      names.push_back(std::move(name));
      const std::size_t foreign = number / 4;
      if (number % 4 == 3 && foreign < english.size()) names.emplace_back(english[foreign]);
    }
    names.resize(kPeople);
    return names;
  }
};

const Words& words() {
  static const Words all;
  return all;
}

std::string_view form(const Word& word, std::size_t script) {
  return script == 1 && !word.isASCII() ? word.simplified : word.traditional;
}

std::size_t characters(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80; }));
}

bool isASCIIByte(char byte) { return static_cast<unsigned char>(byte) < 128; }

// Makes sentences of one script. Chinese words stand side by side, English ones between blanks.
class Speech {
 public:
  Speech(Random& random, std::size_t script) : random_(random), script_(script) {}

  // About `target` characters, in which all of `planted` occur.
  std::string sentence(std::size_t target, const std::vector<std::string>& planted) {
    text_.clear();
    count_ = 0;
    std::size_t kept = 0;  // characters that the planted words still need
    for (const std::string& word : planted) kept += characters(word);
    auto next = planted.begin();
    while (count_ + kept < target &&
           hasRoom(kept + static_cast<std::size_t>(planted.end() - next))) {
      if (next != planted.end() && random_.below(6) == 0) {
        kept -= characters(*next);
        add(*next++);
      } else {
        addWord();
      }
    }
    while (next != planted.end()) add(*next++);
    end();
    return std::move(text_);
  }

  std::string sentence(std::size_t least, std::size_t most) {
    return sentence(random_.between(least, most), std::vector<std::string>());
  }

  // A word as it stands in a text: an ASCII word with a capital now and then.
  std::string spelled(std::string_view word) {
    std::string text(word);
    if (text[0] >= 'a' && text[0] <= 'z' && random_.below(8) == 0) {
      text[0] = static_cast<char>(text[0] - 'a' + 'A');
    }
    return text;
  }

 private:
  // What the longest word can add: its letters, quotes, a blank and the final mark.
  static constexpr std::size_t kLongestWord = 17;

  // Whether any word still fits when `kept` characters are kept free.
  bool hasRoom(std::size_t kept) const { return count_ + kept + kLongestWord <= kMostCharacters; }

  void addWord() {
    if (random_.below(100) < 16) {
      const auto& english = words().english;
      const std::string word = spelled(english[words().englishTable.draw(random_)]);
      add(random_.below(40) == 0 ? '"' + word + '"' : word);
    } else {
      add(words().chinese[script_][words().chineseTable.draw(random_)]);
    }
  }

  void add(std::string_view word) {
    if (!text_.empty()) separate(word);
    text_ += word;
    count_ += characters(word);
  }

  void separate(std::string_view next) {
    if (random_.below(9) == 0) {
      text_ += "，";
    } else if (isASCIIByte(text_.back()) || isASCIIByte(next.front())) {
      text_ += ' ';
    } else {
      return;
    }
    ++count_;
  }

  void end() {
    static constexpr std::array<std::string_view, 10> kMarks = {"。", "。", "。", "。", "。",
                                                                "？", "！", "",   "",   ""};
    const std::string_view mark = kMarks[random_.below(kMarks.size())];
    text_ += mark;
    count_ += characters(mark);
  }

  Random& random_;
  std::size_t script_;
  std::string text_;
  std::size_t count_ = 0;  // characters in text_
};

std::string twoDigits(std::size_t number) {
  return {static_cast<char>('0' + number / 10 % 10), static_cast<char>('0' + number % 10)};
}

// The date `days` after 2022-01-03.
std::string dateAfter(std::size_t days) {
  std::size_t day = days + 2;  // of the year, from 0
  std::size_t year = 2022;
  const auto isLeap = [](std::size_t y) { return y % 4 == 0; };
  for (; day >= (isLeap(year) ? 366U : 365U); ++year) day -= isLeap(year) ? 366 : 365;
  std::array<std::size_t, 12> months = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (isLeap(year)) months[1] = 29;
  std::size_t month = 0;
  for (; day >= months[month]; ++month) day -= months[month];
  return std::to_string(year) + '-' + twoDigits(month + 1) + '-' + twoDigits(day + 1);
}

std::string fiveDigits(std::size_t number) {
  std::string digits = std::to_string(number);
  return std::string(5 - std::min<std::size_t>(digits.size(), 5), '0') + digits;
}

double seconds(std::size_t tenths) { return static_cast<double>(tenths) / 10.0; }

// The first draw of a meeting's stream, so that lines can be numbered over all meetings.
std::size_t drawLineCount(Random& random, std::size_t number) {
  const double lines = kMedianLines * std::exp(kLinesSpread * random.normal());
  if (number == kLongMeeting) return kLongMeetingLines;
  return std::clamp(static_cast<std::size_t>(lines), kFewestLines, kMostLines);
}

// One meeting in the making.
class MeetingMaker {
 public:
  MeetingMaker(std::uint64_t seed, std::size_t number)
      : random_(seed, number + 1),
        number_(number),
        lineCount_(drawLineCount(random_, number)),
        script_(random_.below(5) == 0 ? 1 : 0),
        speech_(random_, script_) {}

  // `threes`: which lines hold which words of "3 lines".
  GeneratedMeeting make(const std::vector<std::pair<std::size_t, std::size_t>>& threes) {
    made_.date = dateAfter(random_.below(kDays));
    made_.folder = made_.date + '-' + slug() + '-' + fiveDigits(number_);
    made_.lineCount = lineCount_;
    choosePeople();
    makeLines(threes);
    writeFiles();
    return std::move(made_);
  }

 private:
  struct Person {
    std::string name;
    std::size_t talkTenths = 0;
  };

  std::string slug() {
    const auto& english = words().english;
    std::string text = lowered(english[words().englishTable.draw(random_)]);
    return text + '-' + lowered(english[words().englishTable.draw(random_)]);
  }

  static std::string lowered(std::string_view word) {
    std::string text(word);
    for (char& byte : text) {
      if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
    }
    return text;
  }

  void choosePeople() {
    const std::size_t wanted = random_.between(2, 8);
    std::vector<std::size_t> chosen;
    while (chosen.size() < wanted) {
      const std::size_t person = words().peopleTable.draw(random_);
      if (std::ranges::find(chosen, person) == chosen.end()) chosen.push_back(person);
    }
    for (const std::size_t person : chosen) people_.push_back({words().people[script_][person], 0});
    made_.hasFrequentPerson = std::ranges::find(chosen, 0U) != chosen.end();
    made_.hasRarePerson = random_.inTenThousand(50);
    if (made_.hasRarePerson) people_.push_back({std::string(kRarePerson.traditional), 0});
  }

  // The planted words of one line, as they are spelled there; counts them.
  std::vector<std::string> plant(std::size_t line,
                                 const std::vector<std::pair<std::size_t, std::size_t>>& threes) {
    std::vector<std::size_t> chosen;
    for (const auto& [at, word] : threes) {
      if (at == line) chosen.push_back(word);
    }
    for (std::size_t word = 0; word < kFirstApart; ++word) {
      if (random_.inTenThousand(kPlanted[word].perTenThousand)) chosen.push_back(word);
    }
    for (std::size_t pair = kFirstApart; pair < kPlanted.size(); pair += 2) {
      const std::size_t draw = random_.below(10000);
      const std::size_t share = kPlanted[pair].perTenThousand;
      if (draw < 2 * share) chosen.push_back(draw < share ? pair : pair + 1);
    }
    return spelled(chosen);
  }

  // Words that would make the line too long are left out again, before they are counted.
  std::vector<std::string> spelled(const std::vector<std::size_t>& chosen) {
    constexpr std::size_t kRoom = kMostCharacters - 2;  // for the final mark
    std::vector<std::string> texts;
    std::size_t used = 0;
    for (const std::size_t word : chosen) {
      const std::string_view text = form(kPlanted[word].word, script_);
      used += characters(text) + 1;
      if (used > kRoom) break;
      const bool isASCII = kPlanted[word].word.isASCII();
      ++made_.planted[word][isASCII ? 0 : script_];
      texts.push_back(speech_.spelled(text));
    }
    return texts;
  }

  void makeLines(const std::vector<std::pair<std::size_t, std::size_t>>& threes) {
    const bool hasIds = number_ % 3 == 0;
    std::size_t clock = random_.between(10, 100);  // tenths of a second
    std::size_t speaker = 0;
    for (std::size_t line = 0; line < lineCount_; ++line) {
      if (random_.below(3) != 0) speaker = random_.below(people_.size());
      const std::vector<std::string> planted = plant(line, threes);
      const std::size_t target = 8 + random_.below(27) + random_.below(27);
      const std::string text = speech_.sentence(target, planted);
      const std::size_t spoken = 8 + characters(text) * 3 / 2;
      JSONObject object;
      if (hasIds) object.set("id", "L" + std::to_string(line + 1));
      object.set("t_start", seconds(clock));
      object.set("t_end", seconds(clock + spoken));
      object.set("speaker", people_[speaker].name);
      object.set("text", text);
      lines_.emplace_back(std::move(object));
      made_.lines.append(text).push_back('\n');
      people_[speaker].talkTenths += spoken;
      clock += spoken + random_.below(30);
    }
    durationTenths_ = clock;
  }

  // --- the notes ------------------------------------------------------------------------------

  std::size_t someLine() { return random_.below(lineCount_); }
  double startOf(std::size_t line) const {
    return lines_[line].asObject()->getNumber("t_start").value_or(0);
  }
  static std::string idOf(std::size_t line) { return "L" + std::to_string(line + 1); }
  const std::string& someone() { return people_[random_.below(people_.size())].name; }

  std::vector<std::string> plantInNotes() {
    std::vector<std::string> texts;
    for (std::size_t word = 0; word < kPlantedInNotes.size(); ++word) {
      made_.plantedInNotes[word] = random_.inTenThousand(kPlantedInNotes[word].perTenThousand);
      if (made_.plantedInNotes[word]) {
        texts.push_back(speech_.spelled(form(kPlantedInNotes[word].word, script_)));
      }
    }
    return texts;
  }

  JSON::Array decisions() {
    JSON::Array items;
    const std::vector<std::string> planted = plantInNotes();
    const std::size_t count = random_.between(2, 7);
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t line = someLine();
      const std::size_t target = random_.between(14, 40);
      items.emplace_back(JSONObject{
          {"text", speech_.sentence(target, i == 0 ? planted : std::vector<std::string>())},
          {"owner", someone()},
          {"t_start", startOf(line)},
          {"line", idOf(line)}});
    }
    return items;
  }

  JSON::Array openQuestions() {
    JSON::Array items;
    const std::size_t count = random_.between(1, 4);
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t line = someLine();
      items.emplace_back(JSONObject{{"question", speech_.sentence(12, 36)},
                                    {"owner", someone()},
                                    {"t_start", startOf(line)},
                                    {"line", idOf(line)}});
    }
    return items;
  }

  JSON::Array chapters() {
    JSON::Array items;
    const std::size_t count = random_.between(3, 9);
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t line = lineCount_ * i / count;
      items.emplace_back(JSONObject{{"title", speech_.sentence(6, 14)},
                                    {"t_start", startOf(line)},
                                    {"start_line", idOf(line)},
                                    {"result", speech_.sentence(8, 26)}});
    }
    return items;
  }

  JSON::Array viewpoints() {
    JSON::Array items;
    const std::size_t speakers = std::min<std::size_t>(people_.size(), random_.between(1, 4));
    for (std::size_t i = 0; i < speakers; ++i) {
      JSON::Array points;
      const std::size_t count = random_.between(1, 3);
      for (std::size_t point = 0; point < count; ++point) {
        points.emplace_back(
            JSONObject{{"text", speech_.sentence(12, 40)}, {"t_start", startOf(someLine())}});
      }
      items.emplace_back(JSONObject{{"speaker", people_[i].name}, {"points", std::move(points)}});
    }
    return items;
  }

  JSON::Array quotes() {
    JSON::Array items;
    const std::size_t count = random_.below(4);
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t line = someLine();
      items.emplace_back(JSONObject{{"speaker", someone()},
                                    {"text", speech_.sentence(8, 30)},
                                    {"t_start", startOf(line)},
                                    {"line", idOf(line)}});
    }
    return items;
  }

  JSON::Array topics() {
    JSON::Array items;
    const std::size_t count = random_.between(2, 6);
    for (std::size_t i = 0; i < count; ++i) {
      items.emplace_back(words().chinese[script_][words().chineseTable.draw(random_)]);
    }
    return items;
  }

  JSON::Array speakers() {
    static constexpr std::array<std::string_view, 5> kRoles = {"PM", "Engineer", "Design", "Sales",
                                                               "主管"};
    std::size_t all = 0;
    for (const Person& person : people_) all += person.talkTenths;
    JSON::Array items;
    for (const Person& person : people_) {
      const auto share = std::round(static_cast<double>(person.talkTenths) * 1000.0 /
                                    static_cast<double>(std::max<std::size_t>(all, 1)));
      items.emplace_back(JSONObject{{"name", person.name},
                                    {"role", kRoles[random_.below(kRoles.size())]},
                                    {"talk_sec", seconds(person.talkTenths)},
                                    {"talk_share", share / 1000.0}});
    }
    return items;
  }

  JSON::Array tags() {
    static constexpr std::array<std::string_view, 4> kTags = {"weekly", "decision", "agents",
                                                              "client"};
    JSON::Array items;
    if (random_.below(2) == 0) items.emplace_back(kTags[random_.below(kTags.size())]);
    return items;
  }

  std::string summary() {
    std::string text;
    const std::size_t count = random_.between(2, 5);
    for (std::size_t i = 0; i < count; ++i) {
      if (i > 0) text += ' ';
      text += speech_.sentence(20, 44);
    }
    return text;
  }

  void writeFiles() {
    static constexpr std::array<std::string_view, 3> kVisibilities = {"private", "work", "shared"};
    const std::string title = speech_.sentence(6, 20);
    const std::string startedAt = made_.date + 'T' + twoDigits(random_.between(8, 18)) + ':' +
                                  twoDigits(random_.below(12) * 5) + ":00+0800";
    JSONObject notes;
    notes.set("title", title);
    notes.set("started_at", startedAt);
    notes.set("duration_sec", seconds(durationTenths_));
    notes.set("verdict", speech_.sentence(20, 44));
    notes.set("summary", summary());
    notes.set("tags", tags());
    notes.set("speakers", speakers());
    notes.set("decisions", decisions());
    notes.set("open_questions", openQuestions());
    notes.set("chapters", chapters());
    notes.set("viewpoints", viewpoints());
    notes.set("topics", topics());
    notes.set("quotes", quotes());
    if (random_.below(3) == 0) notes.set("user_notes", summary());
    notes.set("lines", std::move(lines_));
    made_.notes = writeIndented(notes, kIndentation) + '\n';
    made_.session =
        writeIndented(JSONObject{{"started_at", startedAt},
                                 {"visibility", kVisibilities[random_.below(kVisibilities.size())]},
                                 {"source", "app:microphone"},
                                 {"title", title}},
                      kIndentation) +
        '\n';
    if (random_.below(10) == 0) {
      const std::string id = "5e0c6b1e-3f0b-4c62-9e0a-0000000" + fiveDigits(number_);
      made_.upload =
          writeIndented(JSONObject{{"meeting_id", id}, {"state", "done"}}, kIndentation) + '\n';
    }
  }

  Random random_;
  std::size_t number_;
  std::size_t lineCount_;
  std::size_t script_;
  Speech speech_;
  std::vector<Person> people_;
  JSON::Array lines_;
  std::size_t durationTenths_ = 0;
  GeneratedMeeting made_;
};

// --- planted words stand nowhere else -----------------------------------------------------------

// Everything that a text is made of, by the word.
std::vector<std::string_view> everyWord() {
  std::vector<std::string_view> all = words().english;
  for (std::size_t script : {0U, 1U}) {
    all.insert(all.end(), words().chinese[script].begin(), words().chinese[script].end());
    all.insert(all.end(), words().people[script].begin(), words().people[script].end());
  }
  return all;
}

bool isIn(std::string_view part, const std::vector<std::string_view>& texts) {
  return std::ranges::any_of(
      texts, [&](std::string_view text) { return text.find(part) != std::string_view::npos; });
}

// Chinese words stand side by side, so a planted one can arise from its neighbours unless one of
// its characters occurs in no other word. (English words are kept apart by blanks.)
bool canArise(std::string_view planted, const std::vector<std::string_view>& texts) {
  if (isASCIIByte(planted.front())) return isIn(planted, texts);
  for (std::size_t begin = 0; begin < planted.size();) {
    std::size_t end = begin + 1;
    while (end < planted.size() && (static_cast<unsigned char>(planted[end]) & 0xC0U) == 0x80) {
      ++end;
    }
    if (!isIn(planted.substr(begin, end - begin), texts)) return false;
    begin = end;
  }
  return true;
}

template <class PlantedWords>
void checkPlanted(const PlantedWords& planted, const std::vector<std::string_view>& texts) {
  for (const PlantedWord& word : planted) {
    for (const std::size_t script : {0U, 1U}) {
      const std::string_view text = form(word.word, script);
      if (canArise(text, texts)) {
        throw std::logic_error("the planted word " + std::string(text) + " can arise by chance");
      }
    }
  }
}

}  // namespace

Word frequentPerson() { return {words().people[0].front(), words().people[1].front()}; }

GeneratedHome::GeneratedHome(std::size_t meetings, std::uint64_t seed) : seed_(seed) {
  const std::vector<std::string_view> texts = everyWord();
  checkPlanted(kPlanted, texts);
  checkPlanted(kPlantedInNotes, texts);
  for (std::size_t number = 0; number < meetings; ++number) {
    Random random(seed, number + 1);
    lineCounts_.push_back(drawLineCount(random, number));
  }
  choosePlaces();
}

// Three lines for each word of "3 lines", no line twice, drawn from all lines of the home.
void GeneratedHome::choosePlaces() {
  std::size_t lines = 0;
  for (const std::size_t count : lineCounts_) lines += count;
  Random random(seed_, 0);
  std::vector<std::size_t> taken;
  for (std::size_t word = 0; word < kPlanted.size() && lines > 0; ++word) {
    for (int times = 0; kPlanted[word].inThreeLines && times < 3; ++times) {
      std::size_t line = random.below(lines);
      while (std::ranges::find(taken, line) != taken.end()) line = random.below(lines);
      taken.push_back(line);
      std::size_t meeting = 0;
      for (; line >= lineCounts_[meeting]; ++meeting) line -= lineCounts_[meeting];
      places_.push_back({meeting, line, word});
    }
  }
}

GeneratedMeeting GeneratedHome::meeting(std::size_t number) const {
  std::vector<std::pair<std::size_t, std::size_t>> threes;
  for (const Place& place : places_) {
    if (place.meeting == number) threes.emplace_back(place.line, place.word);
  }
  return MeetingMaker(seed_, number).make(threes);
}

void HomeCounts::add(const GeneratedMeeting& meeting) {
  lines_ += meeting.lineCount;
  jsonBytes_ += meeting.notes.size() + meeting.session.size() + meeting.upload.size();
  textBytes_ += meeting.lines.size();
  for (std::size_t word = 0; word < planted_.size(); ++word) {
    for (const std::size_t script : {0U, 1U})
      planted_[word][script] += meeting.planted[word][script];
  }
  for (std::size_t word = 0; word < plantedInNotes_.size(); ++word) {
    plantedInNotes_[word] += meeting.plantedInNotes[word] ? 1 : 0;
  }
  frequentPerson_ += meeting.hasFrequentPerson ? 1 : 0;
  rarePerson_ += meeting.hasRarePerson ? 1 : 0;
  if (firstDate_.empty() || meeting.date < firstDate_) firstDate_ = meeting.date;
  lastDate_ = std::max(lastDate_, meeting.date);
  if (meeting.lineCount > longLines_) {
    longLines_ = meeting.lineCount;
    longFolder_ = meeting.folder;
  }
  const auto distance = [](std::size_t lines) {
    return std::max(lines, kTypicalLines) - std::min(lines, kTypicalLines);
  };
  if (typicalFolder_.empty() || distance(meeting.lineCount) < distance(typicalLines_)) {
    typicalLines_ = meeting.lineCount;
    typicalFolder_ = meeting.folder;
  }
}

JSONObject HomeCounts::toJSON(const GeneratedHome& home) const {
  const auto describe = [](JSONObject& object, const PlantedWord& word) {
    object.set("frequency", word.frequency);
    object.set(word.word.isASCII() ? "ascii" : "traditional", word.word.traditional);
    if (!word.word.isASCII()) object.set("simplified", word.word.simplified);
  };
  JSON::Array inLines;
  for (std::size_t word = 0; word < kPlanted.size(); ++word) {
    JSONObject object;
    describe(object, kPlanted[word]);
    object.set("lines", planted_[word][0] + planted_[word][1]);
    if (!kPlanted[word].word.isASCII()) object.set("lines_simplified", planted_[word][1]);
    inLines.emplace_back(std::move(object));
  }
  JSON::Array inNotes;
  for (std::size_t word = 0; word < kPlantedInNotes.size(); ++word) {
    JSONObject object;
    describe(object, kPlantedInNotes[word]);
    object.set("meetings", plantedInNotes_[word]);
    inNotes.emplace_back(std::move(object));
  }
  JSONObject people;
  people.set("frequent", JSONObject{{"traditional", frequentPerson().traditional},
                                    {"simplified", frequentPerson().simplified},
                                    {"meetings", frequentPerson_}});
  people.set("rare", JSONObject{{"ascii", kRarePerson.traditional}, {"meetings", rarePerson_}});
  people.set("absent", JSONObject{{"ascii", kAbsentPerson.traditional}, {"meetings", 0}});

  JSONObject result{
      {"meetings", home.meetings()},
      {"seed", static_cast<std::int64_t>(home.seed())},
      {"lines", lines_},
      {"json_bytes", jsonBytes_},
      {"text_bytes", textBytes_},
      {"first_date", firstDate_},
      {"last_date", lastDate_},
      {"long_meeting", JSONObject{{"id", "rec-" + longFolder_}, {"lines", longLines_}}},
      {"typical_meeting", JSONObject{{"id", "rec-" + typicalFolder_}, {"lines", typicalLines_}}}};
  result.set("people", std::move(people));
  result.set("in_lines", std::move(inLines));
  result.set("in_notes", std::move(inNotes));
  return result;
}

}  // namespace velta::bench
