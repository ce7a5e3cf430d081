// velta-demo REQUESTS < ANSWERS: shows a recorded session as a person can read it.
//
// REQUESTS holds the lines that a client sent, ANSWERS what the server wrote to its standard
// output. Every request is shown with the answer of the same id: the tools, the meetings, the hits.
// Colours are used when standard output is a terminal and NO_COLOR is unset; COLUMNS gives the
// width.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
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

std::size_t widest(const std::vector<const JSONObject*>& rows, std::string_view key) {
  std::size_t columns = 0;
  for (const JSONObject* row : rows) columns = std::max(columns, columnsOf(textOf(*row, key)));
  return columns;
}

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
    std::cout << "\n" << style_.accent << style_.bold << "→ " << what << style_.plain << "\n";
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
    if (content.has("meetings")) showMeetings(objectsOf(content, "meetings"));
    if (content.has("hits")) showHits(objectsOf(content, "hits"));
    if (auto note = content.getString("note")) std::cout << "  " << *note << "\n";
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
  void showHits(const std::vector<const JSONObject*>& hits) const {
    const std::size_t ids = widest(hits, "line_id") + 2;
    const std::size_t speakers = widest(hits, "speaker") + 2;
    std::string meeting;
    for (const JSONObject* hit : hits) {
      if (textOf(*hit, "meeting_id") != meeting) {
        meeting = textOf(*hit, "meeting_id");
        std::cout << "  " << style_.accent << meeting << style_.plain << "  " << style_.bold
                  << textOf(*hit, "meeting_title") << style_.plain << "\n";
      }
      std::cout << "    " << style_.dim << cell(textOf(*hit, "line_id"), ids)
                << cell(textOf(*hit, "clock"), kClockColumn) << style_.plain
                << cell(textOf(*hit, "speaker"), speakers);
      showText(textOf(*hit, "text"), 4 + ids + kClockColumn + speakers);
    }
  }

  // The rest of a line that has been filled up to `indent`, and what follows it.
  void showText(std::string_view text, std::size_t indent) const {
    const std::size_t columns =
        style_.width > indent + kNarrowText ? style_.width - indent : kNarrowText;
    std::cout << wrapped(text, columns, indent) << "\n";
  }

  static constexpr std::size_t kDateColumn = 12;
  static constexpr std::size_t kClockColumn = 9;
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
