#include "store/Store.h"

#include <algorithm>
#include <array>
#include <unordered_set>

#include "config/StoreError.h"
#include "index/FoldedText.h"
#include "index/SearchTexts.h"
#include "meetings/TextNorm.h"
#include "platform/Text.h"
#include "store/Answer.h"
#include "store/DateFilter.h"
#include "store/Search.h"
#include "terms/ScriptVariants.h"

namespace velta {
namespace {

constexpr const char* kEmptyQuery =
    "query is empty. Pass one or more words, for example 押金 or 電輔車";
constexpr std::string_view kNoMeetingMatched =
    "No meeting matched. Try fewer words, a wider date range, or search_transcripts for exact "
    "phrases";
constexpr std::string_view kNoLineMatched =
    "No line matched. Try a shorter word, the Simplified or Traditional form, or drop the speaker "
    "filter";
constexpr std::string_view kTranscriptsNotSearched =
    "Transcript lines were not searched: this agent may read notes and digests only. Hits are kind "
    "notes or digest. To search raw lines the user turns on read_transcripts for this agent";

std::string unavailable(const std::string& id) {
  return "No meeting with id '" + id +
         "' is available to this client. Next step: call list_meetings to get valid ids";
}

constexpr std::int64_t kDefaultLimit = 20;
constexpr std::int64_t kMaxLimit = 200;
constexpr std::size_t kMaxHitCharacters = 400;

// Words are separated by these four characters only, on purpose: an ideographic space joins. A word
// that comes again says nothing new.
std::vector<QueryToken> tokensOf(std::string_view query) {
  constexpr std::string_view kSeparators = " \t\n\r";
  std::vector<QueryToken> tokens;
  std::unordered_set<std::string_view> seen;
  std::size_t begin = query.find_first_not_of(kSeparators);
  while (begin != std::string_view::npos) {
    const std::size_t end = std::min(query.find_first_of(kSeparators, begin), query.size());
    const std::string_view word = query.substr(begin, end - begin);
    if (seen.insert(word).second) tokens.emplace_back(scriptVariants(word));
    begin = query.find_first_not_of(kSeparators, end);
  }
  return tokens;
}

bool isGiven(const std::optional<std::string>& argument) { return argument && !argument->empty(); }

JSON::Array namesOf(const std::vector<JSONObject>& people) {
  JSON::Array names;
  for (const JSONObject& person : people) {
    if (const auto name = person.getString("name")) names.emplace_back(*name);
  }
  return names;
}

JSONObject summaryOf(const Index::Entry& entry) {
  const Meeting& meeting = *entry.meeting;
  return {{"id", meeting.id},
          {"title", meeting.title},
          {"date", meeting.date},
          {"started_at", meeting.startedAt},
          {"duration_sec", meeting.durationSec},
          {"source", meeting.source},
          {"visibility", entry.visibility},
          {"verdict", meeting.verdict},
          {"people", namesOf(meeting.people.unpack())},
          {"tags", stringArray(entry.tags)},
          {"decision_count", entry.decisionCount},
          {"open_question_count", entry.openQuestionCount}};
}

std::string shortened(std::string_view text) {
  const std::string_view kept = firstCharacters(text, kMaxHitCharacters);
  return kept.size() < text.size() ? std::string(kept) + "…" : std::string(text);
}

JSONObject objectOf(const Store::Hit& hit) {
  const Meeting& meeting = *hit.e->meeting;
  return {{"meeting_id", meeting.id},    {"meeting_title", meeting.title},
          {"date", meeting.date},        {"kind", hit.kind},
          {"line_id", hit.lineId},       {"t_start", hit.t},
          {"clock", formatClock(hit.t)}, {"speaker", hit.speaker},
          {"section", hit.section},      {"text", shortened(hit.text)}};
}

// Which meetings list_meetings was asked for, access aside.
class MeetingFilter {
 public:
  explicit MeetingFilter(const Store::ListArguments& arguments)
      : dates_(arguments.dateFrom, arguments.dateTo),
        words_(tokensOf(arguments.query.value_or(""))) {
    if (isGiven(arguments.person)) person_.emplace(scriptVariants(*arguments.person));
  }

  bool passes(const Index::Card& card) const {
    const Meeting& meeting = *card.entry->meeting;
    const auto mayBeInBody = [&](const QueryToken& word) { return word.mayBeIn(card.body); };
    return std::ranges::all_of(words_, mayBeInBody) && dates_.passes(meeting.date) &&
           (!person_ || person_->isIn(meeting.people.text())) && isInBody(meeting);
  }

 private:
  // The packed texts are searched before the body is composed of them, which costs far more.
  bool isInBody(const Meeting& meeting) const {
    const auto mayBeWritten = [&](const QueryToken& word) {
      return word.isIn(meeting.title) || word.isIn(meeting.verdict) || mayBePacked(meeting, word);
    };
    if (words_.empty()) return true;
    if (!std::ranges::all_of(words_, mayBeWritten)) return false;
    const std::string body = bodyLowerOf(meeting);
    return std::ranges::all_of(words_, [&](const QueryToken& word) { return word.isIn(body); });
  }

  DateFilter dates_;
  std::vector<QueryToken> words_;
  std::optional<QueryToken> person_;
};

Search::Request requestOf(const Store::SearchArguments& arguments, std::vector<QueryToken> tokens) {
  Search::Request request;
  request.tokens = std::move(tokens);
  if (isGiven(arguments.speaker)) request.speaker.emplace(lowerASCII(*arguments.speaker));
  request.lines = arguments.readTranscripts;
  request.notes = !arguments.readTranscripts;
  request.digest = arguments.includeDigest;
  request.limit = effectiveLimit(arguments.limit, kDefaultLimit, kMaxLimit);
  return request;
}

}  // namespace

const Index::Entry& Store::resolve(const std::string& id, const Access& access) const {
  const Index::Entry* entry = index_.find(id);
  if (entry == nullptr || !access.sees(*entry)) throw StoreError::lookup(unavailable(id));
  return *entry;
}

JSONObject Store::listMeetings(const ListArguments& arguments, const Access& access) const {
  JSONObject status = status_();
  const MeetingFilter filter(arguments);
  const std::size_t limit = effectiveLimit(arguments.limit, kDefaultLimit, kMaxLimit);
  JSON::Array meetings;
  for (const Index::Card& card : index_.newestFirst()) {
    if (meetings.size() == limit) break;
    if (filter.passes(card) && access.sees(*card.entry))
      meetings.emplace_back(summaryOf(*card.entry));
  }
  const std::size_t count = meetings.size();
  JSONObject result;
  result.set("meetings", std::move(meetings));
  result.set("count", count);
  result.set("index", std::move(status));
  if (count == 0) result.set("note", emptyNote(access, index_, kNoMeetingMatched));
  return result;
}

JSONObject Store::searchTranscripts(const SearchArguments& arguments, const Access& access) const {
  std::vector<QueryToken> tokens = tokensOf(arguments.query);
  if (tokens.empty()) throw StoreError::value(kEmptyQuery);
  JSONObject status = status_();
  const DateFilter dates(arguments.dateFrom, arguments.dateTo);
  const Search search(requestOf(arguments, std::move(tokens)));
  const auto found = search.run(index_, [&](const Index::Entry& entry) {
    return access.sees(entry) && dates.passes(entry.meeting->date);
  });
  JSON::Array hits;
  for (const Hit& hit : found) hits.emplace_back(objectOf(hit));
  JSONObject result;
  result.set("query", arguments.query);
  result.set("hits", std::move(hits));
  result.set("count", found.size());
  result.set("index", std::move(status));
  if (!arguments.readTranscripts) {
    result.set("transcripts_searched", false);
    result.set("transcripts_note", kTranscriptsNotSearched);
  }
  if (found.empty()) result.set("note", emptyNote(access, index_, kNoLineMatched));
  return result;
}

}  // namespace velta
