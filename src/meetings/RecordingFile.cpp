#include "meetings/RecordingFile.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "json/JSONParser.h"
#include "meetings/Sources.h"

namespace velta {
namespace {

constexpr std::string_view kNobody = "?";

// Whether `part` is a part of `whole`: the same bytes in memory.
bool liesIn(std::string_view whole, std::string_view part) {
  const std::less_equal<> isAtMost;
  return isAtMost(whole.data(), part.data()) &&
         isAtMost(part.data() + part.size(), whole.data() + whole.size());
}

// The members of a line object that count, as far as they have come. The last value of a repeated
// key wins, also when it is of a kind that makes the member absent.
class LineMembers {
 public:
  explicit LineMembers(std::string_view document) : document_(document) {}

  void begin() {
    id_.view = {};
    tStart_ = 0;
    tEnd_.reset();
    speaker_.view = kNobody;
    text_.view = {};
    key_ = Key::other;
  }

  void setKey(std::string_view key) {
    key_ = key == "text"      ? Key::text
           : key == "speaker" ? Key::speaker
           : key == "t_start" ? Key::tStart
           : key == "t_end"   ? Key::tEnd
           : key == "id"      ? Key::id
                              : Key::other;
  }

  // A value of the current key that is neither a number nor a string.
  void setOther() {
    setString(std::nullopt);
    setNumber(std::nullopt);
  }

  void setNumberValue(double value) {
    setString(std::nullopt);
    setNumber(value);
  }

  void setStringValue(std::string_view value) {
    setNumber(std::nullopt);
    setString(value);
  }

  void appendTo(Meeting::Transcript& lines) const {
    lines.append(id_.view, tStart_, tEnd_, speaker_.view, text_.view);
  }

 private:
  enum class Key : std::uint8_t { id, tStart, tEnd, speaker, text, other };

  // Nearly every text stands in the document as it is; only those with escapes have to be copied.
  struct Text {
    std::string_view view;
    std::string copy;
  };

  void hold(Text& text, std::string_view value) const {
    text.view = liesIn(document_, value) ? value : std::string_view(text.copy.assign(value));
  }

  void setString(std::optional<std::string_view> value) {
    if (key_ == Key::text) hold(text_, value.value_or(""));
    if (key_ == Key::speaker) hold(speaker_, value.value_or(kNobody));
    if (key_ == Key::id) hold(id_, value.value_or(""));
  }

  void setNumber(std::optional<double> value) {
    if (key_ == Key::tStart) tStart_ = value.value_or(0);
    if (key_ == Key::tEnd) tEnd_ = value;
  }

  std::string_view document_;
  Text id_;
  double tStart_ = 0;
  std::optional<double> tEnd_;
  Text speaker_;
  Text text_;
  Key key_ = Key::other;
};

// Sends the value of the top-level "lines" to a transcript and every other event to a builder.
// Depth 1 is inside the top-level object, 2 inside the array of lines, 3 inside one line.
class RecordingHandler {
 public:
  explicit RecordingHandler(std::string_view document) : line_(document) {
    lines_.reserveForDocument(document.size());
  }

  void onNull() {
    if (inLines_) {
      onOther();
    } else {
      builder_.onNull();
    }
  }
  void onBool(bool value) {
    if (inLines_) {
      onOther();
    } else {
      builder_.onBool(value);
    }
  }
  void onInt(std::int64_t value) {
    if (inLines_) {
      onNumber(static_cast<double>(value));
    } else {
      builder_.onInt(value);
    }
  }
  void onDouble(double value) {
    if (inLines_) {
      onNumber(value);
    } else {
      builder_.onDouble(value);
    }
  }
  void onString(std::string_view value) {
    if (!inLines_) {
      builder_.onString(value);
      return;
    }
    if (atLineMember()) line_.setStringValue(value);
    endLinesWhenOutside();
  }

  void onKey(std::string_view key) {
    if (inLines_) {
      if (atLineMember()) line_.setKey(key);
    } else if (depth_ == 1 && key == "lines") {
      inLines_ = true;
      lines_.clear();  // a second "lines" replaces the first, whatever its kind
    } else {
      builder_.onKey(key);
    }
  }

  void onObjectBegin() {
    if (inLines_) {
      beginContainer(/*isObject=*/true);
    } else {
      builder_.onObjectBegin();
    }
    ++depth_;
  }
  void onArrayBegin() {
    if (inLines_) {
      beginContainer(/*isObject=*/false);
    } else {
      builder_.onArrayBegin();
    }
    ++depth_;
  }
  void onObjectEnd() {
    --depth_;
    if (inLines_) {
      endContainer();
    } else {
      builder_.onObjectEnd();
    }
  }
  void onArrayEnd() {
    --depth_;
    if (inLines_) {
      endContainer();
    } else {
      builder_.onArrayEnd();
    }
  }

  RecordingFile take() {
    lines_.settleIds();
    return {builder_.take(), std::move(lines_)};
  }

 private:
  // Whether the event belongs to a line object itself, not to something nested in it.
  bool atLineMember() const { return depth_ == 3 && elementIsLine_; }

  void onOther() {
    if (atLineMember()) line_.setOther();
    endLinesWhenOutside();
  }

  void onNumber(double value) {
    if (atLineMember()) line_.setNumberValue(value);
    endLinesWhenOutside();
  }

  // Called before the depth grows.
  void beginContainer(bool isObject) {
    if (depth_ == 1) linesIsArray_ = !isObject;
    if (depth_ == 2) {
      elementIsLine_ = isObject && linesIsArray_;
      line_.begin();
    }
    if (atLineMember()) line_.setOther();
  }

  // Called after the depth has shrunk.
  void endContainer() {
    if (depth_ == 2 && elementIsLine_) line_.appendTo(lines_);
    endLinesWhenOutside();
  }

  void endLinesWhenOutside() { inLines_ = depth_ > 1; }

  JSONBuilder builder_;
  Meeting::Transcript lines_;
  LineMembers line_;
  std::size_t depth_ = 0;      // open containers
  bool inLines_ = false;       // between the key "lines" and the end of its value
  bool linesIsArray_ = false;  // else it is an object, and none of its members is a line
  bool elementIsLine_ = false;
};

}  // namespace

Meeting::Transcript transcriptOfElements(const JSON::Array& elements) {
  Meeting::Transcript lines;
  for (const JSON& element : elements) {
    const JSONObject* line = element.asObject();
    if (line == nullptr) continue;
    lines.append(line->getString("id").value_or(""), line->getNumber("t_start").value_or(0),
                 line->getNumber("t_end"), line->getString("speaker").value_or(kNobody),
                 line->getString("text").value_or(""));
  }
  lines.settleIds();
  return lines;
}

RecordingFile parseRecordingFile(std::string_view bytes) {
  RecordingHandler handler(bytes);
  parseJSONEvents(bytes, handler);
  return handler.take();
}

}  // namespace velta
