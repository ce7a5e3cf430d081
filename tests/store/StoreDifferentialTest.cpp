// The store against a model that walks everything, sorts everything and knows no shortcut.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "index/SearchTexts.h"
#include "meetings/TextNorm.h"
#include "store/Store.h"
#include "store/TestStore.h"
#include "terms/ScriptVariants.h"

namespace velta {
namespace {

using test::TestStore;

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}

  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(engine_);
  }
  bool oneIn(std::size_t many) { return below(many) == 0; }

  template <class Item>
  const Item& pick(const std::vector<Item>& items) {
    return items[below(items.size())];
  }

  std::string words(const std::vector<std::string>& vocabulary, std::size_t most) {
    static const std::vector<std::string> kBetween = {"", " ", "，", "　", "\n"};
    std::string text;
    for (std::size_t count = below(most + 1); count > 0; --count) {
      text += pick(vocabulary) + pick(kBetween);
    }
    return text;
  }

 private:
  std::mt19937 engine_;
};

const std::vector<std::string> kVocabulary = {"電輔車", "电辅车", "押金", "Budget", "budget", "OKR",
                                              "會議",   "会议",   "的",   "a",      "車",     "é"};
const std::vector<std::string> kSpeakers = {"Amy Chen", "陳大文", "?", "amy"};
const std::vector<std::string> kDays = {"2026-01-01", "2026-01-02", "2026-01-03", "2026-1-2"};
const std::vector<std::string> kVisibilities = {"private", "work", "shared"};

Meeting randomMeeting(Random& random, std::size_t number) {
  Meeting meeting;
  meeting.id = "m" + std::to_string(number);
  meeting.source = "recordings";
  meeting.title = random.words(kVocabulary, 3);
  if (!random.oneIn(6)) meeting.date = random.pick(kDays);
  if (!random.oneIn(3)) meeting.startedAt = random.pick(kDays) + "T10:00:00";
  if (random.oneIn(2)) meeting.verdict = random.words(kVocabulary, 2);
  std::vector<JSONObject> people;
  for (std::size_t count = random.below(3); count > 0; --count) {
    people.push_back({{"name", random.pick(kSpeakers)}, {"role", "Budget owner"}});
  }
  meeting.people = std::move(people);
  JSON::Array quotes;
  for (std::size_t count = random.below(4); count > 0; --count) {
    JSONObject quote{{"text", random.words(kVocabulary, 3)}};
    if (random.oneIn(2)) quote.set("t_start", static_cast<double>(random.below(5)));
    quotes.emplace_back(std::move(quote));
  }
  JSONObject notes;
  notes.set("quotes", std::move(quotes));
  meeting.notes = std::move(notes);
  const bool isInTimeOrder = random.oneIn(2);
  double start = 0;
  for (std::size_t count = random.below(30); count > 0; --count) {
    start = static_cast<double>(random.below(isInTimeOrder ? 2 : 8)) + (isInTimeOrder ? start : 0);
    meeting.lines.append("", start, std::nullopt, random.pick(kSpeakers),
                         random.words(kVocabulary, 4));
  }
  meeting.lines.settleIds();
  std::vector<Meeting::Digest> digest;
  for (std::size_t count = random.below(4); count > 0; --count) {
    std::optional<double> t;
    if (random.oneIn(2)) t = static_cast<double>(random.below(8));
    digest.push_back({"D" + std::to_string(count), "decisions", random.words(kVocabulary, 4), t});
  }
  meeting.setDigest(std::move(digest), JSONObject());
  return meeting;
}

void fill(TestStore& store, Random& random, std::size_t meetings) {
  for (std::size_t number = 0; number < meetings; ++number) {
    std::vector<std::string> tags;
    if (random.oneIn(4)) tags.emplace_back("private");
    if (random.oneIn(2)) tags.emplace_back("agents");
    const std::string key = "/" + std::to_string(number);
    store.home.index.insert(randomMeeting(random, number), key, random.pick(kVisibilities), tags,
                            0);
  }
}

Access randomAccess(Random& random) {
  Access access;
  for (const std::string& visibility : kVisibilities) {
    if (!random.oneIn(4)) access.allowed.push_back(visibility);
  }
  access.scope = random.pick<std::string>({"all", "all", "tagged", "last_30_days"});
  access.hidePrivate = random.oneIn(2);
  if (access.scope == "last_30_days") access.since = random.pick(kDays);
  return access;
}

std::optional<std::string> maybe(Random& random, const std::vector<std::string>& values) {
  return random.oneIn(2) ? std::nullopt : std::optional<std::string>(random.pick(values));
}

// The model.

bool holds(std::string_view text, std::string_view word) {
  const std::string lowered = lowerASCII(text);
  return std::ranges::any_of(scriptVariants(word), [&](const std::string& variant) {
    return lowered.find(variant) != std::string::npos;
  });
}

std::vector<std::string> wordsOf(const std::string& query) {
  std::vector<std::string> words(1);
  for (const char byte : query) {
    if (byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r') {
      words.emplace_back();
    } else {
      words.back() += byte;
    }
  }
  std::erase(words, "");
  return words;
}

bool holdsAll(std::string_view text, const std::string& query) {
  return std::ranges::all_of(wordsOf(query),
                             [&](const std::string& word) { return holds(text, word); });
}

bool isInDays(const Meeting& meeting, const std::optional<std::string>& from,
              const std::optional<std::string>& to) {
  if (!from && !to) return true;
  return meeting.date && (!from || *meeting.date >= *from) && (!to || *meeting.date <= *to);
}

std::size_t limitOf(std::int64_t limit) {
  return limit == 0 ? 20 : limit < 1 ? 1 : limit > 200 ? 200 : static_cast<std::size_t>(limit);
}

// Later dates first, none last: a key that sorts ascending.
std::string descending(const std::optional<std::string>& text) {
  std::string key = text ? "0" + *text : "1";
  for (char& byte : key) byte = static_cast<char>(text && &byte != key.data() ? '~' - byte : byte);
  return key + '\x7f';
}

struct ModelHit {
  std::string day;
  std::optional<double> t;
  std::uint64_t order;
  std::size_t rid;
  std::string shown;

  auto key() const { return std::tie(day, t, order, rid); }
};

std::string shownAs(const std::string& meeting, std::string_view kind, const std::string& lineId) {
  return meeting + " " + std::string(kind) + " " + lineId;
}

void addHits(std::vector<ModelHit>& hits, const Index::Entry& entry,
             const Store::SearchArguments& arguments) {
  const Meeting& meeting = *entry.meeting;
  std::size_t rid = 0;
  const auto consider = [&](bool wanted, std::string_view text, std::optional<double> t,
                            std::string_view kind, const std::string& lineId) {
    if (wanted && holdsAll(text, arguments.query)) {
      hits.push_back(
          {descending(meeting.date), t, entry.order, rid, shownAs(meeting.id, kind, lineId)});
    }
    ++rid;
  };
  for (std::size_t number = 0; number < meeting.lines.size(); ++number) {
    const Meeting::Line line = meeting.lines.line(number);
    const bool spoken =
        !arguments.speaker ||
        lowerASCII(line.speaker).find(lowerASCII(*arguments.speaker)) != std::string::npos;
    consider(arguments.readTranscripts && spoken, line.text, line.tStart, "line", line.id);
  }
  for (const NoteText& note : noteTextsOf(meeting)) {
    consider(!arguments.readTranscripts, note.text, note.t, "notes", note.lineId);
  }
  for (const Meeting::Digest& item : meeting.digestItems()) {
    consider(arguments.includeDigest, item.text, item.t, "digest", item.id);
  }
}

std::vector<std::string> modelSearch(const Index& index, const Store::SearchArguments& arguments,
                                     const Access& access) {
  std::vector<ModelHit> hits;
  for (const auto& [id, entry] : index.entries()) {
    if (access.sees(entry) && isInDays(*entry.meeting, arguments.dateFrom, arguments.dateTo)) {
      addHits(hits, entry, arguments);
    }
  }
  std::ranges::sort(hits, {}, &ModelHit::key);
  std::vector<std::string> shown;
  for (const ModelHit& hit : hits) shown.push_back(hit.shown);
  shown.resize(std::min(shown.size(), limitOf(arguments.limit)));
  return shown;
}

std::vector<std::string> modelList(const Index& index, const Store::ListArguments& arguments,
                                   const Access& access) {
  std::vector<std::tuple<std::string, std::string, std::uint64_t, std::string>> found;
  for (const auto& [id, entry] : index.entries()) {
    const Meeting& meeting = *entry.meeting;
    std::string people;
    for (const JSONObject& person : meeting.people.unpack()) people += writeCompact(person);
    if (access.sees(entry) && isInDays(meeting, arguments.dateFrom, arguments.dateTo) &&
        holdsAll(bodyLowerOf(meeting), arguments.query.value_or("")) &&
        (!arguments.person || holds(people, *arguments.person))) {
      found.emplace_back(descending(meeting.date), descending(meeting.startedAt), entry.order, id);
    }
  }
  std::ranges::sort(found);
  std::vector<std::string> ids;
  for (const auto& [day, start, order, id] : found) ids.push_back(id);
  ids.resize(std::min(ids.size(), limitOf(arguments.limit)));
  return ids;
}

std::vector<std::string> shownHits(const JSONObject& result) {
  std::vector<std::string> shown;
  for (const JSON& item : *result.getArray("hits")) {
    const JSONObject& hit = *item.asObject();
    shown.push_back(shownAs(std::string(*hit.getString("meeting_id")), *hit.getString("kind"),
                            std::string(*hit.getString("line_id"))));
  }
  return shown;
}

std::int64_t randomLimit(Random& random) {
  return random.pick<std::int64_t>({0, 1, 2, 5, 20, 200, 1000, -3});
}

TEST(StoreDifferential, SearchFindsWhatTheModelFindsInItsOrder) {
  Random random(7);
  std::size_t found = 0;
  for (int home = 0; home < 15; ++home) {
    TestStore store;
    fill(store, random, random.below(40));
    for (int round = 0; round < 100; ++round) {
      Store::SearchArguments arguments;
      arguments.query = random.pick(kVocabulary);
      if (random.oneIn(3)) arguments.query += " " + random.pick(kVocabulary);
      arguments.speaker = maybe(random, {"AMY", "陳", "chen", "nobody"});
      arguments.dateFrom = maybe(random, kDays);
      arguments.dateTo = maybe(random, kDays);
      arguments.limit = randomLimit(random);
      arguments.includeDigest = random.oneIn(2);
      arguments.readTranscripts = random.oneIn(2);
      store.access = randomAccess(random);
      const auto expected = modelSearch(store.home.index, arguments, store.access);
      ASSERT_EQ(shownHits(store.search(arguments)), expected) << arguments.query;
      found += expected.size();
    }
  }
  EXPECT_GT(found, 5000u);  // the rounds found something
}

TEST(StoreDifferential, ListFindsWhatTheModelFindsInItsOrder) {
  Random random(8);
  std::size_t found = 0;
  for (int home = 0; home < 15; ++home) {
    TestStore store;
    fill(store, random, random.below(60));
    for (int round = 0; round < 100; ++round) {
      Store::ListArguments arguments;
      arguments.query = maybe(random, kVocabulary);
      arguments.person = maybe(random, {"AMY", "陈大文", "owner", "nobody"});
      arguments.dateFrom = maybe(random, kDays);
      arguments.dateTo = maybe(random, kDays);
      arguments.limit = randomLimit(random);
      store.access = randomAccess(random);
      const auto expected = modelList(store.home.index, arguments, store.access);
      ASSERT_EQ(test::column(store.list(arguments), "meetings", "id"), expected);
      found += expected.size();
    }
  }
  EXPECT_GT(found, 1500u);
}

}  // namespace
}  // namespace velta
