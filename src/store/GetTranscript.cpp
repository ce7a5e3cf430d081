#include <limits>
#include <string_view>
#include <utility>

#include "meetings/TextNorm.h"
#include "store/Answer.h"
#include "store/Store.h"

namespace velta {
namespace {

constexpr std::string_view kNoLines =
    "This meeting has no transcript lines in that range. Legacy meetings marked raw may have none; "
    "try get_meeting for the digest";

constexpr std::int64_t kDefaultLimit = 400;
constexpr std::int64_t kMaxLimit = 2000;

JSON lineObject(const Meeting::Transcript& lines, std::size_t index) {
  const double start = lines.tStart(index);
  JSONObject line;
  line.reserve(6);
  // Set one by one: a braced list would copy every value, and there are up to 2,000 lines.
  line.set("line_id", lines.id(index));
  line.set("t_start", start);
  line.set("t_end", lines.tEnd(index));
  line.set("clock", formatClock(start));
  line.set("speaker", lines.speaker(index));
  line.set("text", lines.text(index));
  return line;
}

}  // namespace

JSONObject Store::getTranscript(const TranscriptArguments& arguments, const Access& access) const {
  JSONObject status = status_();
  const Meeting& meeting = *resolve(arguments.id, access).meeting;
  const Meeting::Transcript& transcript = meeting.lines;
  const double from = arguments.fromSec.value_or(-std::numeric_limits<double>::infinity());
  const double to = arguments.toSec.value_or(std::numeric_limits<double>::infinity());
  const std::size_t limit = effectiveLimit(arguments.limit, kDefaultLimit, kMaxLimit);

  JSON::Array lines;
  bool truncated = false;
  for (std::size_t i = transcript.firstFrom(from); i < transcript.size(); ++i) {
    const double start = transcript.tStart(i);
    if (start > to && transcript.isInTimeOrder()) break;
    if (start < from || start > to) continue;
    truncated = lines.size() == limit;
    if (truncated) break;
    lines.push_back(lineObject(transcript, i));
  }

  const std::size_t count = lines.size();
  JSONObject result{{"id", meeting.id}, {"title", meeting.title}, {"date", meeting.date}};
  result.set("lines", std::move(lines));  // a braced list would copy them
  result.set("count", count);
  result.set("truncated", truncated);
  result.set("index", std::move(status));
  if (count == 0) result.set("note", kNoLines);
  return result;
}

}  // namespace velta
