// velta-demo REQUESTS < ANSWERS: shows a recorded session as a person can read it.
//
// REQUESTS holds the lines that a client sent, ANSWERS what the server wrote to its standard
// output. Every request is shown with the answer of the same id: the tools, the meetings, the
// hits, a meeting's notes and lines, a person's way through the meetings.
// Colours are used when standard output is a terminal and NO_COLOR is unset; COLUMNS gives the
// width.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <initializer_list>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <utf8proc.h>

#include "json/JSON.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Files.h"
#include "platform/Stdio.h"
#include "platform/Text.h"

namespace velta {
namespace {

constexpr std::size_t kNarrowest = 60;
constexpr std::size_t kWidest = 140;
constexpr std::size_t kUsualWidth = 100;
constexpr std::size_t kMargin = 2;  // for punctuation that stands beyond the edge

// How the text is styled; the escapes are empty where colours are off.
struct Style {
  std::string_view bold;
  std::string_view dim;
  std::string_view accent;
  std::string_view bad;
  std::string_view plain;
  std::size_t width = kUsualWidth;  // columns
};

Style styleOfTerminal() {
  Style style;
  if (isTerminal(1) && std::getenv("NO_COLOR") == nullptr) {
    style = {"\033[1m", "\033[2m", "\033[36m", "\033[31m", "\033[0m"};
  }
  if (const char* columns = std::getenv("COLUMNS")) {
    const auto given = static_cast<std::size_t>(std::strtoul(columns, nullptr, 10));
    if (given > 0) style.width = std::clamp(given, kNarrowest, kWidest) - kMargin;
  }
  return style;
}

// Columns that a terminal gives to a character: Chinese characters take two.
std::size_t columnsOf(char32_t c) {
  return static_cast<std::size_t>(std::max(0, utf8proc_charwidth(static_cast<int>(c))));
}

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (const char32_t c : decodeUTF8(text)) columns += columnsOf(c);
  return columns;
}

// `text` filled up with blanks to `columns`.
std::string cell(std::string text, std::size_t columns) {
  const std::size_t used = columnsOf(text);
  return used < columns ? text.append(columns - used, ' ') : text;
}

// Punctuation that must not begin a line; it may stand one character beyond the edge.
bool closes(char32_t c) {
  return std::u32string_view(U",.;:?!)，。；：？！、）」』…").find(c) != std::u32string_view::npos;
}

// Where the next line of `text` ends: at the last blank that fits, else between two characters.
std::size_t lineEnd(std::u32string_view text, std::size_t columns) {
  std::size_t used = 0;
  std::size_t blank = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    used += columnsOf(text[i]);
    if (text[i] == U' ' && i > 0) blank = i;
    if (used <= columns || (i > 0 && closes(text[i]))) continue;
    const bool insideWord = text[i] < 0x80 && text[i] != U' ' && i > 0 && text[i - 1] < 0x80;
    return insideWord && blank > 0 ? blank : std::max<std::size_t>(i, 1);
  }
  return text.size();
}

// `text` on lines of `columns`, every line but the first after `indent` blanks.
std::string wrapped(std::string_view text, std::size_t columns, std::size_t indent) {
  const std::u32string characters = decodeUTF8(text);
  std::u32string_view rest = characters;
  std::string out;
  while (!rest.empty()) {
    const std::size_t end = lineEnd(rest, columns);
    if (!out.empty()) out.append("\n").append(indent, ' ');
    for (const char32_t c : rest.substr(0, end)) appendUTF8(out, c);
    rest.remove_prefix(std::min(rest.find_first_not_of(U' ', end), rest.size()));
  }
  return out;
}

// Up to and with the first full stop that ends a sentence.
std::string_view firstSentence(std::string_view text) {
  return text.substr(0, std::min(text.find(". "), text.size() - 1) + 1);
}

std::string textOf(const JSONObject& object, std::string_view key) {
  return std::string(object.getString(key).value_or(""));
}

std::vector<const JSONObject*> objectsOf(const JSONObject& parent, std::string_view key) {
  std::vector<const JSONObject*> objects;
  if (const JSON::Array* array = parent.getArray(key)) {
    for (const JSON& element : *array) {
      if (const JSONObject* object = element.asObject()) objects.push_back(object);
    }
  }
  return objects;
}

// The first of these members that holds a text.
std::string firstTextOf(const JSONObject& object, std::initializer_list<std::string_view> keys) {
  for (const std::string_view key : keys) {
    if (auto text = object.getString(key)) return std::string(*text);
  }
  return "";
}

std::size_t widest(const std::vector<const JSONObject*>& rows, std::string_view key) {
  std::size_t columns = 0;
  for (const JSONObject* row : rows) columns = std::max(columns, columnsOf(textOf(*row, key)));
  return columns;
}

// Something that was said or written at a time of a meeting.
struct Evidence {
  std::string line = {};
  std::string clock = {};
  std::string who = {};
  std::string text = {};
};

// Of a hit, a transcript line, or an item of a meeting's notes.
Evidence evidenceOf(const JSONObject& item) {
  return {firstTextOf(item, {"line_id", "line", "start_line"}), textOf(item, "clock"),
          firstTextOf(item, {"speaker", "owner"}),
          firstTextOf(item, {"text", "question", "title"})};
}

// The elements of a list, which in written notes may be plain texts.
std::vector<Evidence> evidenceIn(const JSONObject& parent, std::string_view key) {
  std::vector<Evidence> rows;
  if (const JSON::Array* array = parent.getArray(key)) {
    for (const JSON& element : *array) {
      if (const JSONObject* item = element.asObject()) rows.push_back(evidenceOf(*item));
      if (auto text = element.asString()) rows.push_back({.text = std::string(*text)});
    }
  }
  return rows;
}

// The columns of one member of all rows with the gap behind it; none when it is empty everywhere.
std::size_t columnOf(const std::vector<Evidence>& rows, std::string Evidence::*member) {
  std::size_t columns = 0;
  for (const Evidence& row : rows) columns = std::max(columns, columnsOf(row.*member));
  return columns > 0 ? columns + 2 : 0;
}

std::string counted(std::int64_t count, std::string_view noun) {
  return std::to_string(count).append(" ").append(noun).append(count == 1 ? "" : "s");
}

std::string minutes(double seconds) { return counted(std::llround(seconds / 60), "minute"); }

class Screen {
 public:
  explicit Screen(Style style) : style_(style) {}

  void showRequest(const JSONObject& request) const {
    const JSONObject* params = request.getObject("params");
    std::string what = textOf(request, "method");
    if (what == "tools/call" && params != nullptr) {
      const JSON* arguments = params->get("arguments");
      what = textOf(*params, "name");
      what += ' ';
      what += arguments != nullptr ? writeCompact(*arguments) : "{}";
    }
    std::cout << "\n" << style_.accent << style_.bold << "→ ";
    showText(what, 2);
    std::cout << style_.plain;
  }

  void showAnswer(const JSONObject& answer) const {
    const JSONObject* result = answer.getObject("result");
    if (result == nullptr) return showFailure(writeCompact(answer));
    if (result->has("serverInfo")) return showServer(*result);
    if (result->has("tools")) return showTools(objectsOf(*result, "tools"));
    if (const JSONObject* content = result->getObject("structuredContent")) {
      return showContent(*content);
    }
    for (const JSONObject* item : objectsOf(*result, "content")) showFailure(textOf(*item, "text"));
  }

  void showFailure(std::string_view text) const {
    std::cout << style_.bad << "  " << text << style_.plain << "\n";
  }

 private:
  void showServer(const JSONObject& result) const {
    const JSONObject* info = result.getObject("serverInfo");
    std::cout << "  server " << textOf(*info, "name") << " " << textOf(*info, "version")
              << ", protocol " << textOf(result, "protocolVersion") << "\n";
  }

  void showTools(const std::vector<const JSONObject*>& tools) const {
    const std::size_t indent = widest(tools, "name") + 4;
    for (const JSONObject* tool : tools) {
      std::cout << "  " << style_.bold << cell(textOf(*tool, "name"), indent - 2) << style_.plain;
      showText(firstSentence(textOf(*tool, "description")), indent);
    }
  }

  void showContent(const JSONObject& content) const {
    if (content.has("talk_share_trend")) {
      showPerson(content);
    } else if (content.has("meetings")) {
      showMeetings(objectsOf(content, "meetings"));
    } else if (content.has("hits")) {
      showHits(content);
    } else if (content.has("lines")) {
      showHeading(textOf(content, "id"), textOf(content, "title"));
      showEvidence(evidenceIn(content, "lines"));
    } else if (content.has("transcript_lines")) {
      showMeeting(content);
    }
    if (auto note = content.getString("note")) {
      std::cout << "  ";
      showText(*note, 2);
    }
  }

  // Date, id and title of every meeting, and the verdict below.
  void showMeetings(const std::vector<const JSONObject*>& meetings) const {
    const std::size_t ids = widest(meetings, "id") + 2;
    std::cout << style_.dim << "  " << cell("DATE", kDateColumn) << cell("ID", ids)
              << "TITLE, AND BELOW IT THE VERDICT" << style_.plain << "\n";
    for (const JSONObject* meeting : meetings) {
      std::cout << "  " << cell(textOf(*meeting, "date"), kDateColumn) << style_.accent
                << cell(textOf(*meeting, "id"), ids) << style_.plain << style_.bold;
      showText(textOf(*meeting, "title"), 2 + kDateColumn + ids);
      std::cout << style_.plain << std::string(kDateColumn + 2, ' ');
      showText(textOf(*meeting, "verdict"), kDateColumn + 2);
    }
  }

  // The hits of one meeting under its id and title.
  void showHits(const JSONObject& content) const {
    const std::vector<Evidence> rows = evidenceIn(content, "hits");
    std::string meeting;
    for (const JSONObject* hit : objectsOf(content, "hits")) {
      if (textOf(*hit, "meeting_id") != meeting) {
        meeting = textOf(*hit, "meeting_id");
        showHeading(meeting, textOf(*hit, "meeting_title"));
      }
      showRow(evidenceOf(*hit), rows);
    }
  }

  // The notes of one meeting: every section under its name.
  void showMeeting(const JSONObject& meeting) const {
    showHeading(textOf(meeting, "id"), textOf(meeting, "title"));
    std::cout << "    " << style_.dim << textOf(meeting, "date");
    if (auto seconds = meeting.getNumber("duration_sec")) std::cout << ", " << minutes(*seconds);
    std::cout << ", " << counted(meeting.getInt("transcript_lines").value_or(0), "transcript line")
              << style_.plain << "\n";
    for (const std::string_view section :
         {"verdict", "summary", "decisions", "chapters", "open_questions", "quotes"}) {
      if (meeting.has(section)) showSection(meeting, section);
    }
  }

  void showSection(const JSONObject& meeting, std::string_view name) const {
    std::cout << "  " << style_.bold << name << style_.plain << "\n";
    if (auto text = meeting.getString(name)) {
      std::cout << "    ";
      showText(*text, 4);
    }
    showEvidence(evidenceIn(meeting, name));
  }

  // A person meeting by meeting with what the person thought and took on, then the talk share.
  void showPerson(const JSONObject& person) const {
    std::cout << "  " << counted(person.getInt("meeting_count").value_or(0), "meeting") << ", "
              << minutes(person.getNumber("total_talk_sec").value_or(0)) << " of talk\n";
    for (const JSONObject* meeting : objectsOf(person, "meetings")) {
      showHeading(textOf(*meeting, "meeting_id"), textOf(*meeting, "title"));
      std::cout << "    " << style_.dim << textOf(*meeting, "date") << ", as "
                << textOf(*meeting, "name_in_meeting") << ", " << textOf(*meeting, "role")
                << style_.plain << "\n";
      std::vector<Evidence> rows = evidenceIn(*meeting, "viewpoints");
      for (Evidence& row : rows) row.who = "viewpoint";
      for (Evidence& row : evidenceIn(*meeting, "decisions_owned")) {
        row.who = "decision";
        rows.push_back(std::move(row));
      }
      showEvidence(rows);
    }
    showTrend(objectsOf(person, "talk_share_trend"));
  }

  // One bar a meeting; the shares are fractions.
  void showTrend(const std::vector<const JSONObject*>& trend) const {
    if (trend.empty()) return;
    std::cout << "  " << style_.bold << "talk share" << style_.plain << "\n";
    for (const JSONObject* meeting : trend) {
      const auto known = meeting->getNumber("talk_share");
      const double share = std::clamp(known.value_or(0), 0.0, 1.0);
      const std::string percent = known ? std::to_string(std::lround(share * 100)) + " %" : "?";
      std::cout << "    " << cell(textOf(*meeting, "date"), kDateColumn)
                << std::string(kPercentColumn - percent.size(), ' ') << percent << "  "
                << style_.accent;
      for (long i = 0; i < std::lround(share * kLongestBar); ++i) std::cout << "▇";
      std::cout << style_.plain << "\n";
    }
  }

  void showHeading(const std::string& id, std::string_view title) const {
    std::cout << "  " << style_.accent << id << style_.plain << "  " << style_.bold;
    showText(title, 4 + columnsOf(id));
    std::cout << style_.plain;
  }

  void showEvidence(const std::vector<Evidence>& rows) const {
    for (const Evidence& row : rows) showRow(row, rows);
  }

  // One of `rows`, which share their columns.
  void showRow(const Evidence& row, const std::vector<Evidence>& rows) const {
    const std::size_t lines = columnOf(rows, &Evidence::line);
    const std::size_t clocks = columnOf(rows, &Evidence::clock);
    const std::size_t names = columnOf(rows, &Evidence::who);
    std::cout << "    " << style_.dim << cell(row.line, lines) << cell(row.clock, clocks)
              << style_.plain << cell(row.who, names);
    showText(row.text, 4 + lines + clocks + names);
  }

  // The rest of a line that has been filled up to `indent`, and what follows it.
  void showText(std::string_view text, std::size_t indent) const {
    const std::size_t columns =
        style_.width > indent + kNarrowText ? style_.width - indent : kNarrowText;
    std::cout << wrapped(text, columns, indent) << "\n";
  }

  static constexpr std::size_t kDateColumn = 12;
  static constexpr std::size_t kPercentColumn = 5;
  static constexpr double kLongestBar = 40;  // columns, of one who talked alone
  static constexpr std::size_t kNarrowText = 20;
  Style style_;
};

std::vector<JSONObject> objectsOfLines(std::string_view text) {
  std::vector<JSONObject> objects;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (end > 0) {
      const JSON value = parseJSON(text.substr(0, end));
      if (const JSONObject* object = value.asObject()) objects.push_back(*object);
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return objects;
}

std::map<std::int64_t, JSONObject> answersById() {
  std::map<std::int64_t, JSONObject> answers;
  LineReader input(0);
  std::string_view line;
  while (input.next(line)) {
    for (JSONObject& answer : objectsOfLines(line)) {
      if (auto id = answer.getInt("id")) answers.insert_or_assign(*id, std::move(answer));
    }
  }
  return answers;
}

// Returns how many requests got no answer.
int showSession(const std::string& requestsPath) {
  const auto answers = answersById();
  const Screen screen(styleOfTerminal());
  int unanswered = 0;
  for (const JSONObject& request : objectsOfLines(readFile(requestsPath))) {
    const auto id = request.getInt("id");
    if (!id) continue;  // a notification
    screen.showRequest(request);
    if (auto answer = answers.find(*id); answer != answers.end()) {
      screen.showAnswer(answer->second);
    } else {
      screen.showFailure("no answer");
      ++unanswered;
    }
  }
  return unanswered;
}

}  // namespace
}  // namespace velta

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: velta-demo REQUESTS < ANSWERS\n";
    return 2;
  }
  try {
    return velta::showSession(argv[1]) == 0 ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "velta-demo: " << error.what() << "\n";
    return 1;
  }
}
