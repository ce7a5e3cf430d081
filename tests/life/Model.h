// Model: meetings whose every answer is known beforehand, and the naive way to each answer.
//
//   const Told one = stableMeeting(1, 20);
//   const Told other = visitor(3, 17, 20);
//   home.write("recordings/stable-1/notes.json", writeCompact(one.notes()));
//   EXPECT_EQ(writeCompact(answer), writeCompact(listed({&one, &other}, {.query = "deposit"})));
//
// The model knows no index and no order of its own: it walks all meetings, tests every text and
// sorts what it found. It leaves out the member "index", which tells of the server and not of the
// meetings. No two meetings have one date and no two texts of a meeting one time, so that every
// order is settled by what can be seen.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSON.h"

namespace velta::test {

// What all meetings of the model are before; what recordings in the test get is after.
inline constexpr const char* kLastModelDay = "2020-12-31";
inline constexpr const char* kFirstRecordedDay = "2021-01-01";

// A meeting as it is told to the server, and as it has to be told back.
struct Told {
  struct Person {
    std::string name;
    std::string role;
    double talkSec;
  };
  struct Decision {
    std::string text;
    std::string owner;
    double t;
  };
  struct Line {
    std::string id;
    double t;
    std::string speaker;
    std::string text;
  };

  std::string id;
  std::string source = "recordings";
  std::string visibility;
  std::string title;
  std::string date;
  std::string startedAt;
  std::string verdict;
  double duration = 0;
  std::vector<Person> people;
  std::vector<Decision> decisions;
  std::string question;
  std::vector<Line> lines;

  // Its notes.json.
  JSONObject notes() const;
};

// A meeting that is always there. Its id is "rec-stable-N", or "imp-stable-N" for every third.
Told stableMeeting(std::size_t number, std::size_t lines);

// A meeting that comes and goes, "rec-visitor-N". Every text of it holds the mark of the
// generation, so that an answer in which two generations meet shows itself.
Told visitor(std::size_t number, std::size_t generation, std::size_t lines);

// What every text of that meeting and generation holds: "v3g17".
inline std::string markOf(std::size_t number, std::size_t generation) {
  return "v" + std::to_string(number) + "g" + std::to_string(generation);
}

// --- answers ----------------------------------------------------------------------------------

using Meetings = std::vector<const Told*>;

struct ListQuery {
  std::optional<std::string> query = {};
  std::optional<std::string> person = {};
  std::size_t limit = 20;
};
JSONObject listed(const Meetings& meetings, const ListQuery& query);

struct SearchQuery {
  std::string query;
  std::optional<std::string> speaker = {};
  std::size_t limit = 20;
  bool includeDigest = true;
};
JSONObject searched(const Meetings& meetings, const SearchQuery& query);

JSONObject meetingAnswer(const Told& meeting);

struct Range {
  std::optional<double> from = {};
  std::optional<double> to = {};
  std::size_t limit = 400;
};
JSONObject transcriptAnswer(const Told& meeting, const Range& range);

JSONObject personAnswer(const Meetings& meetings, const std::string& name);

// --- how it is done ---------------------------------------------------------------------------

namespace model {

// `text` with its ASCII letters lowered.
inline std::string lowered(std::string text) {
  for (char& byte : text)
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
  return text;
}

inline std::string replaced(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at))
    text.replace(at, from.size(), to);
  return text;
}

// The characters of the model that have two forms, Simplified and Traditional.
inline constexpr std::pair<std::string_view, std::string_view> kForms[] = {
    {"电", "電"}, {"辅", "輔"}, {"车", "車"}, {"陈", "陳"}};

// A word that a text holds in either script and in any case of ASCII letters.
class Word {
 public:
  explicit Word(const std::string& word) : forms_{lowered(word), lowered(word), lowered(word)} {
    for (const auto& [simplified, traditional] : kForms) {
      forms_[1] = replaced(forms_[1], traditional, simplified);
      forms_[2] = replaced(forms_[2], simplified, traditional);
    }
  }
  bool isInLowered(const std::string& text) const {
    return std::any_of(forms_.begin(), forms_.end(), [&](const std::string& form) {
      return text.find(form) != std::string::npos;
    });
  }
  bool isIn(const std::string& text) const { return isInLowered(lowered(text)); }

 private:
  std::array<std::string, 3> forms_;
};

// The words of a query, which single blanks part; a text has to hold all of them.
class Words {
 public:
  explicit Words(const std::string& query) {
    for (std::size_t begin = 0; begin <= query.size();) {
      const std::size_t end = std::min(query.find(' ', begin), query.size());
      words_.emplace_back(query.substr(begin, end - begin));
      begin = end + 1;
    }
  }
  bool areIn(const std::string& text) const {
    const std::string body = lowered(text);
    return std::all_of(words_.begin(), words_.end(),
                       [&](const Word& word) { return word.isInLowered(body); });
  }

 private:
  std::vector<Word> words_;
};

inline std::string clock(double seconds) {
  const int whole = static_cast<int>(seconds);
  char text[32];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%d:%02d:%02d", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%02d:%02d", whole / 60, whole % 60);
  }
  return text;
}

struct Digest {
  std::string section;
  std::optional<double> t;
  std::string text;
};

inline std::vector<Digest> digestOf(const Told& meeting) {
  std::vector<Digest> digest;
  for (const auto& decision : meeting.decisions)
    digest.push_back({"decisions", decision.t, decision.text + " " + decision.owner});
  digest.push_back({"open_questions", {}, meeting.question});
  return digest;
}

inline std::string bodyOf(const Told& meeting) {
  std::string body = meeting.title + "\n" + meeting.verdict;
  for (const auto& item : digestOf(meeting)) body += "\n" + item.text;
  return body;
}

inline bool hasPerson(const Told& meeting, const Word& name) {
  return std::any_of(meeting.people.begin(), meeting.people.end(), [&](const auto& person) {
    return name.isIn(person.name) || name.isIn(person.role);
  });
}

inline Meetings newestFirst(Meetings meetings) {
  std::sort(meetings.begin(), meetings.end(),
            [](const Told* a, const Told* b) { return a->date > b->date; });
  return meetings;
}

inline JSON clockOrNull(const std::optional<double>& t) { return t ? JSON(clock(*t)) : JSON(); }

inline JSONObject summary(const Told& meeting) {
  JSON::Array names;
  for (const auto& person : meeting.people) names.emplace_back(person.name);
  return {{"id", meeting.id},
          {"title", meeting.title},
          {"date", meeting.date},
          {"started_at", meeting.startedAt},
          {"duration_sec", meeting.duration},
          {"source", meeting.source},
          {"visibility", meeting.visibility},
          {"verdict", meeting.verdict},
          {"people", std::move(names)},
          {"tags", JSON::Array()},
          {"decision_count", meeting.decisions.size()},
          {"open_question_count", 1}};
}

struct Hit {
  std::optional<double> t;  // without one it comes first
  JSONObject shown;
};

inline Hit hitOf(const Told& meeting, const char* kind, const std::string& lineId,
                 std::optional<double> t, JSON speaker, JSON section, const std::string& text) {
  return {t,
          {{"meeting_id", meeting.id},
           {"meeting_title", meeting.title},
           {"date", meeting.date},
           {"kind", kind},
           {"line_id", lineId},
           {"t_start", t},
           {"clock", clockOrNull(t)},
           {"speaker", std::move(speaker)},
           {"section", std::move(section)},
           {"text", text}}};
}

inline std::vector<Hit> hitsIn(const Told& meeting, const SearchQuery& query, const Words& words) {
  std::vector<Hit> hits;
  for (const auto& line : meeting.lines) {
    const bool spoken =
        !query.speaker || lowered(line.speaker).find(lowered(*query.speaker)) != std::string::npos;
    if (spoken && words.areIn(line.text))
      hits.push_back(hitOf(meeting, "line", line.id, line.t, line.speaker, JSON(), line.text));
  }
  std::size_t number = 0;
  for (const auto& item : digestOf(meeting)) {
    const std::string id = "D" + std::to_string(++number);
    if (query.includeDigest && words.areIn(item.text))
      hits.push_back(hitOf(meeting, "digest", id, item.t, JSON(), item.section, item.text));
  }
  std::sort(hits.begin(), hits.end(), [](const Hit& a, const Hit& b) { return a.t < b.t; });
  return hits;
}

inline JSON::Array decisionsOf(const Told& meeting, const std::optional<Word>& owner,
                               bool withClock) {
  JSON::Array decisions;
  for (const auto& decision : meeting.decisions) {
    if (owner && !owner->isIn(decision.owner)) continue;
    JSONObject item{{"text", decision.text}, {"owner", decision.owner}, {"t_start", decision.t}};
    if (withClock) item.set("clock", clock(decision.t));
    decisions.emplace_back(std::move(item));
  }
  return decisions;
}

inline JSONObject personObject(const Told::Person& person) {
  return {{"name", person.name},
          {"role", person.role},
          {"talk_sec", person.talkSec},
          {"talk_share", 0.25}};
}

inline JSON::Array peopleOf(const Told& meeting) {
  JSON::Array people;
  for (const auto& person : meeting.people) people.emplace_back(personObject(person));
  return people;
}

inline JSON::Array questionsOf(const Told& meeting) {
  JSON::Array questions;
  questions.emplace_back(JSONObject{{"text", meeting.question}});
  return questions;
}

inline std::string dayOf(std::size_t number) {
  char text[16];
  std::snprintf(
      text, sizeof text, "%04u-%02u-%02u", static_cast<unsigned>(2010 + number / 300 % 10),
      static_cast<unsigned>(number / 25 % 12 + 1), static_cast<unsigned>(number % 25 + 1));
  return text;
}

// What both kinds of meeting are made of; `mark` goes into every text.
inline Told meeting(const std::string& name, const std::string& date, const std::string& mark,
                    std::size_t number, std::size_t lines) {
  static constexpr const char* kTexts[] = {"we keep the Deposit at gate", "電輔車 的 押金",
                                           "nothing but the budget", "电辅车 again"};
  static constexpr const char* kSpeakers[] = {"Amy Chen", "陳大文", "Bo"};
  static constexpr const char* kVisibilities[] = {"private", "work", "shared"};
  Told told;
  told.id = "rec-" + name;
  told.visibility = kVisibilities[number % 3];
  told.title = "Meeting " + name;
  told.date = date;
  told.startedAt = date + "T10:00:00+08:00";
  told.verdict = "押金 settled in " + mark;
  told.duration = static_cast<double>(60 * number + 90);
  told.people = {{"Amy Chen", "lead " + mark, 10.5},
                 {"陳大文", "guest " + mark, static_cast<double>(number) + 0.5}};
  for (std::size_t i = 0; i < 3; ++i)
    told.decisions.push_back({"decide on deposit " + std::to_string(i) + " " + mark,
                              told.people[i % 2].name, static_cast<double>(i * 40) + 5.5});
  told.question = "who pays the 押金 " + mark;
  for (std::size_t i = 0; i < lines; ++i)
    told.lines.push_back(
        {"L" + std::to_string(i + 1), static_cast<double>(i * 97) + 0.5,
         kSpeakers[(i + number) % 3],
         std::string(kTexts[(i + number) % 4]) + " " + std::to_string(i) + " " + mark});
  return told;
}

}  // namespace model

inline JSONObject Told::notes() const {
  JSON::Array said;
  for (const Line& line : lines)
    said.emplace_back(JSONObject{
        {"id", line.id}, {"t_start", line.t}, {"speaker", line.speaker}, {"text", line.text}});
  return {{"title", title},
          {"started_at", startedAt},
          {"duration_sec", duration},
          {"visibility", visibility},
          {"verdict", verdict},
          {"speakers", model::peopleOf(*this)},
          {"decisions", model::decisionsOf(*this, std::nullopt, /*withClock=*/false)},
          {"open_questions", model::questionsOf(*this)},
          {"lines", std::move(said)}};
}

inline Told stableMeeting(std::size_t number, std::size_t lines) {
  const std::string name = "stable-" + std::to_string(number);
  Told told = model::meeting(name, model::dayOf(2 * number), name, number, lines);
  if (number % 3 == 2) {
    told.id = "imp-" + name;
    told.source = "imported";
  }
  return told;
}

inline Told visitor(std::size_t number, std::size_t generation, std::size_t lines) {
  return model::meeting("visitor-" + std::to_string(number), model::dayOf(2 * number + 1),
                        markOf(number, generation), number, lines);
}

inline JSONObject listed(const Meetings& meetings, const ListQuery& query) {
  JSON::Array found;
  for (const Told* meeting : model::newestFirst(meetings)) {
    if (found.size() == query.limit) break;
    if (query.query && !model::Words(*query.query).areIn(model::bodyOf(*meeting))) continue;
    if (query.person && !model::hasPerson(*meeting, model::Word(*query.person))) continue;
    found.emplace_back(model::summary(*meeting));
  }
  const std::size_t count = found.size();
  JSONObject answer{{"meetings", std::move(found)}, {"count", count}};
  if (count == 0)
    answer.set("note",
               "No meeting matched. Try fewer words, a wider date range, or search_transcripts for "
               "exact phrases");
  return answer;
}

inline JSONObject searched(const Meetings& meetings, const SearchQuery& query) {
  JSON::Array hits;
  const model::Words words(query.query);
  for (const Told* meeting : model::newestFirst(meetings))
    for (model::Hit& hit : model::hitsIn(*meeting, query, words))
      if (hits.size() < query.limit) hits.emplace_back(std::move(hit.shown));
  const std::size_t count = hits.size();
  JSONObject answer{{"query", query.query}, {"hits", std::move(hits)}, {"count", count}};
  if (count == 0)
    answer.set("note",
               "No line matched. Try a shorter word, the Simplified or Traditional form, or drop "
               "the speaker filter");
  return answer;
}

inline JSONObject meetingAnswer(const Told& meeting) {
  JSON::Array digest;
  for (const auto& item : model::digestOf(meeting)) {
    JSONObject shown{{"section", item.section}};
    if (item.t) {
      shown.set("t", *item.t);
      shown.set("clock", model::clock(*item.t));
    }
    shown.set("text", item.text);
    digest.emplace_back(std::move(shown));
  }
  return {{"id", meeting.id},
          {"title", meeting.title},
          {"date", meeting.date},
          {"started_at", meeting.startedAt},
          {"duration_sec", meeting.duration},
          {"source", meeting.source},
          {"visibility", meeting.visibility},
          {"tags", JSON::Array()},
          {"verdict", meeting.verdict},
          {"decisions", model::decisionsOf(meeting, std::nullopt, /*withClock=*/true)},
          {"open_questions", model::questionsOf(meeting)},
          {"people", model::peopleOf(meeting)},
          {"digest", std::move(digest)},
          {"transcript_lines", meeting.lines.size()}};
}

inline JSONObject transcriptAnswer(const Told& meeting, const Range& range) {
  JSON::Array lines;
  bool truncated = false;
  for (const auto& line : meeting.lines) {
    if ((range.from && line.t < *range.from) || (range.to && line.t > *range.to)) continue;
    truncated = truncated || lines.size() == range.limit;
    if (truncated) continue;
    lines.emplace_back(JSONObject{{"line_id", line.id},
                                  {"t_start", line.t},
                                  {"t_end", JSON()},
                                  {"clock", model::clock(line.t)},
                                  {"speaker", line.speaker},
                                  {"text", line.text}});
  }
  const std::size_t count = lines.size();
  JSONObject answer{{"id", meeting.id},     {"title", meeting.title},
                    {"date", meeting.date}, {"lines", std::move(lines)},
                    {"count", count},       {"truncated", truncated}};
  if (count == 0)
    answer.set("note",
               "This meeting has no transcript lines in that range. Legacy meetings marked raw may "
               "have none; try get_meeting for the digest");
  return answer;
}

inline JSONObject personAnswer(const Meetings& meetings, const std::string& name) {
  const model::Word word(name);
  Meetings sorted = model::newestFirst(meetings);
  std::reverse(sorted.begin(), sorted.end());
  JSON::Array parts;
  JSON::Array trend;
  double total = 0;
  for (const Told* meeting : sorted) {
    if (!model::hasPerson(*meeting, word)) continue;
    const auto person =
        std::find_if(meeting->people.begin(), meeting->people.end(),
                     [&](const auto& candidate) { return word.isIn(candidate.name); });
    const bool named = person != meeting->people.end();
    if (named) total += person->talkSec;
    parts.emplace_back(
        JSONObject{{"meeting_id", meeting->id},
                   {"title", meeting->title},
                   {"date", meeting->date},
                   {"name_in_meeting", named ? JSON(person->name) : JSON()},
                   {"role", named ? JSON(person->role) : JSON()},
                   {"talk_sec", named ? JSON(person->talkSec) : JSON()},
                   {"talk_share", named ? JSON(0.25) : JSON()},
                   {"viewpoints", JSON::Array()},
                   {"decisions_owned", model::decisionsOf(*meeting, word, /*withClock=*/true)}});
    trend.emplace_back(JSONObject{{"date", meeting->date},
                                  {"meeting_id", meeting->id},
                                  {"talk_share", named ? JSON(0.25) : JSON()}});
  }
  const std::size_t count = parts.size();
  JSONObject answer{{"name", name},
                    {"meetings", std::move(parts)},
                    {"meeting_count", count},
                    {"total_talk_sec", total},
                    {"talk_share_trend", std::move(trend)}};
  if (count == 0)
    answer.set("note",
               "Nobody by that name in the visible meetings. Names are as written in each meeting; "
               "try a shorter part of the name");
  return answer;
}

}  // namespace velta::test
