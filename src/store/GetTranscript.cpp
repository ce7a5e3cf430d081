#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "json/JSONParser.h"
#include "meetings/TextNorm.h"
#include "store/Answer.h"
#include "store/Store.h"

namespace velta {
namespace {

constexpr std::string_view kNoLines =
    "This meeting has no transcript lines in that range. Legacy meetings marked raw may have none; "
    "try get_meeting for the digest";

constexpr std::int64_t kDefaultLines = 400;
constexpr std::int64_t kMaxLines = 2000;

// Appends a line by the events of its JSON, which lays it out in one piece of memory: there are up
// to 2,000 of them.
void appendLine(JSONBuilder& lines, const Meeting::Transcript& transcript, std::size_t index) {
  const double start = transcript.tStart(index);
  const std::optional<double> end = transcript.tEnd(index);
  lines.onObjectBegin();
  lines.onKey("line_id");
  lines.onString(transcript.id(index));
  lines.onKey("t_start");
  lines.onDouble(start);
  lines.onKey("t_end");
  if (end) {
    lines.onDouble(*end);
  } else {
    lines.onNull();
  }
  lines.onKey("clock");
  lines.onString(formatClock(start));
  lines.onKey("speaker");
  lines.onString(transcript.speaker(index));
  lines.onKey("text");
  lines.onString(transcript.text(index));
  lines.onObjectEnd();
}

}  // namespace

JSONObject Store::getTranscript(const TranscriptArguments& arguments, const Access& access) const {
  JSONObject status = status_();
  const Meeting& meeting = *resolve(arguments.id, access).meeting;
  const Meeting::Transcript& transcript = meeting.lines;
  const double from = arguments.fromSec.value_or(-std::numeric_limits<double>::infinity());
  const double to = arguments.toSec.value_or(std::numeric_limits<double>::infinity());
  const std::size_t limit = effectiveLimit(arguments.limit, kDefaultLines, kMaxLines);

  JSONBuilder lines;
  std::size_t count = 0;
  bool truncated = false;
  lines.onArrayBegin();
  for (std::size_t i = transcript.firstFrom(from); i < transcript.size(); ++i) {
    const double start = transcript.tStart(i);
    if (start > to && transcript.isInTimeOrder()) break;
    if (start < from || start > to) continue;
    truncated = count == limit;
    if (truncated) break;
    appendLine(lines, transcript, i);
    ++count;
  }
  lines.onArrayEnd();

  JSONObject result{{"id", meeting.id}, {"title", meeting.title}, {"date", meeting.date}};
  result.set("lines", lines.take());  // a braced list would copy them
  result.set("count", count);
  result.set("truncated", truncated);
  result.set("index", std::move(status));
  if (count == 0) result.set("note", kNoLines);
  return result;
}

}  // namespace velta
