// Caller: a client that calls the tools of one server at random and knows what each has to answer.
//
//   World world({});
//   Recordings recordings(world);
//   Caller caller(world, recordings, {.name = "owner", .seed = 7});
//   for (int i = 0; i < 1000; ++i) caller.call();
//   caller.finish();
//   EXPECT_THAT(caller.faults(), IsEmpty());
//
// Every answer is compared whole with the model's; only its member "index" is looked at by itself,
// because it tells the time. Where meetings come and go meanwhile, what the answer itself shows of
// them says in which state it found them; they must have been in that state at some moment between
// question and answer, each in one state only.
//
// A caller belongs to one thread. Several may share a world, also while it changes.
#pragma once

#include <cctype>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "life/Model.h"
#include "life/World.h"
#include "support/ServerProcess.h"

namespace velta::test {

// Recordings that were started, by whichever server.
class Recordings {
 public:
  explicit Recordings(const World& world) : world_(world) {}
  // Waits for the processes, so that none is left behind.
  ~Recordings() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(40);
    while (isAnyRunning() && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  Recordings(const Recordings&) = delete;
  Recordings& operator=(const Recordings&) = delete;

  void add(const std::string& job) {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(job);
  }
  void remove(const std::string& job) {
    const std::lock_guard lock(mutex_);
    std::erase(jobs_, job);
  }
  std::vector<std::string> all() const {
    const std::lock_guard lock(mutex_);
    return jobs_;
  }

  // Whether a process of one is still there, or has not begun.
  bool isAnyRunning() const {
    for (const auto& folder :
         std::filesystem::directory_iterator(world_.home().file("recordings"))) {
      const bool isJob = std::filesystem::exists(folder.path() / "job.log");
      if (isJob && !std::filesystem::exists(folder.path() / "stub.ended")) return true;
    }
    return false;
  }

 private:
  const World& world_;
  mutable std::mutex mutex_;
  std::vector<std::string> jobs_;
};

class Caller {
 public:
  struct Options {
    std::string name;  // "owner" sees all meetings, "outsider" the shared ones
    unsigned seed = 1;
    std::size_t ownTerms = 1'000'000;  // different ones that it adds
    std::size_t sharedTerms = 10;      // different ones that all callers add
    std::size_t recordingEvery = 100;  // calls, on average
    std::size_t mostRecordings = 0;    // that it starts by itself
    bool alone = true;                 // nobody else calls, adds or records
  };

  Caller(World& world, Recordings& recordings, Options options);

  // One call of a tool, or another request.
  void call();

  // Starts a recording.
  void record();

  // Starts another server in place of the one there is, which has to end well.
  void restart();
  // Ends the server.
  void finish();

  // Asks for a job until it is done; the id of its meeting, "" when that does not come.
  std::string waitFor(const std::string& job);

  // The meetings that its server has beside the model's.
  std::set<std::string> recordedMeetings();

  ServerProcess& server() { return *server_; }
  // Of the last call; "" for another request.
  const std::string& lastTool() const { return lastTool_; }
  std::chrono::nanoseconds lastLatency() const { return latency_; }

  // What was not as it has to be; the first few.
  const std::vector<std::string>& faults() const { return faults_; }

  // The lines that its calls leave in the activity log, "tool status", with their numbers.
  const std::map<std::string, std::size_t>& logged() const { return logged_; }
  // Terms that it added, and what each has to be now unless another caller changed it.
  const std::map<std::string, std::string>& terms() const { return terms_; }
  // Terms that its server said it created.
  const std::vector<std::string>& created() const { return created_; }
  // Answers that showed a visitor, and those that had to say that one is not there.
  std::size_t seen() const { return seen_; }
  std::size_t missed() const { return missed_; }
  std::size_t callsOf(const std::string& tool) const;

 private:
  static constexpr std::size_t kMostFaults = 5;

  void start();
  void beginSpan();
  void fault(const std::string& what);
  bool expect(bool condition, const std::string& what) {
    if (!condition) fault(what);
    return condition;
  }

  JSONObject ask(const std::string& method, JSONObject params);
  // The result of a tool without "index"; absent when the call failed with `refusal`.
  std::optional<JSONObject> tool(const std::string& name, const JSONObject& arguments,
                                 const std::string& refusal = "");
  void checkIndex(const JSONObject& result);

  bool couldShow(std::size_t number, std::size_t generation) const;
  Meetings visibleWith(const JSONObject& answer);
  std::map<std::size_t, std::size_t> generationsIn(const std::string& text);
  const Told& visitorAt(std::size_t number, std::size_t generation);
  bool isVisible(const Told& meeting) const {
    return options_.name == "owner" || meeting.visibility == "shared";
  }
  void compare(const JSONObject& answer, const JSONObject& expected);

  void list();
  void search();
  void getMeeting() { getOne("get_meeting"); }
  void getTranscript() { getOne("get_transcript"); }
  void getOne(const std::string& toolName);
  void getPerson();
  void addTerm();
  void getJob();
  void listTools();
  void ping();
  template <class Item>
  const Item& pick(const std::vector<Item>& items) {
    return items[random_.below(items.size())];
  }

  World& world_;
  Recordings& recordings_;
  const Options options_;
  Random random_;
  std::vector<Told> stable_;
  std::vector<std::map<std::size_t, Told>> visitors_;  // by number, then generation: the last ones
  std::optional<ServerProcess> server_;
  World::Span span_;     // of the last call
  World::Moment known_;  // what its server may at the oldest have known before that
  std::string lastTool_;
  std::chrono::nanoseconds latency_{};
  std::int64_t nextId_ = 0;
  std::string question_;  // the last one, for faults
  std::string toolList_;
  std::size_t recordingsStarted_ = 0;
  std::int64_t dictionarySize_ = 0;
  std::size_t nextTerm_ = 0;
  std::size_t seen_ = 0;
  std::size_t missed_ = 0;
  std::map<std::string, std::size_t> logged_;
  std::map<std::string, std::string> terms_;
  std::vector<std::string> created_;
  std::vector<std::string> faults_;
};

// --- the session --------------------------------------------------------------------------------

inline Caller::Caller(World& world, Recordings& recordings, Options options)
    : world_(world),
      recordings_(recordings),
      options_(std::move(options)),
      random_(options_.seed),
      visitors_(world.size().visitors) {
  for (std::size_t number = 0; number < world.size().stable; ++number)
    stable_.push_back(stableMeeting(number, world.size().lines));
  start();
}

inline void Caller::start() {
  // A pipe is ours alone only some moments after it was made: no other server may start then.
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  known_ = world_.done();
  span_ = {known_, known_};
  server_.emplace(ServerProcess::Options{.arguments = {"--client", options_.name},
                                         .environment = world_.environment()});
}

inline void Caller::finish() {
  const auto ending = server_->finish();
  server_.reset();
  expect(ending.status == 0, "ended with status " + std::to_string(ending.status) + ", signal " +
                                 std::to_string(ending.signal));
  expect(ending.output.empty(), "more output than answers: " + ending.output);
  // A meeting that goes between being listed and being read is a warning, nothing else is.
  std::istringstream lines(ending.errors);
  for (std::string line; std::getline(lines, line);) {
    const bool usual = line.starts_with("meeting-notes MCP: client=" + options_.name + " sees ") ||
                       line.starts_with("index refreshed: meetings=");
    const bool gone = line.find("could not index ") != std::string::npos;
    expect(usual || gone, "said: " + line);
  }
}

inline void Caller::restart() {
  finish();
  start();
}

inline void Caller::fault(const std::string& what) {
  if (faults_.size() < kMostFaults)
    faults_.push_back(options_.name + " " + std::to_string(options_.seed) + ", " + question_ +
                      "\n  " + what);
}

inline JSONObject Caller::ask(const std::string& method, JSONObject params) {
  const std::int64_t id = nextId_++;
  question_ = writeCompact(JSONObject{
      {"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}});
  const auto begin = std::chrono::steady_clock::now();
  const std::string line = server_->ask(question_);
  latency_ = std::chrono::steady_clock::now() - begin;
  const JSON answer = parseJSON(line);
  const JSONObject* object = answer.asObject();
  const JSONObject* result = object != nullptr ? object->getObject("result") : nullptr;
  const bool fits = result != nullptr && object->size() == 3 &&
                    object->getString("jsonrpc") == "2.0" && object->getInt("id") == id;
  expect(fits, "answered " + line);
  return fits ? *result : JSONObject();
}

inline std::optional<JSONObject> Caller::tool(const std::string& name, const JSONObject& arguments,
                                              const std::string& refusal) {
  lastTool_ = name;
  const bool reads = name != "add_term" && name != "process_recording";
  if (reads) beginSpan();
  const JSONObject result = ask("tools/call", {{"name", name}, {"arguments", arguments}});
  if (reads) span_.to = world_.begun();
  const JSON::Array* content = result.getArray("content");
  const JSONObject* item =
      content != nullptr && content->size() == 1 ? content->front().asObject() : nullptr;
  if (item == nullptr) {
    fault("no content: " + writeCompact(result));
    return std::nullopt;
  }
  const std::string text(item->getString("text").value_or(""));
  if (result.getBool("isError") != false) {
    ++logged_[name + " error"];
    expect(!refusal.empty() && text == "Error executing tool " + name + ": " + refusal,
           "failed: " + text);
    return std::nullopt;
  }
  ++logged_[name + " ok"];
  const JSONObject* structured = result.getObject("structuredContent");
  if (!expect(structured != nullptr && writeIndented(*structured, 2) == text,
              "text and structured content differ: " + writeCompact(result)))
    return std::nullopt;
  JSONObject found = *structured;
  if (reads && name != "get_job") checkIndex(found);
  found.erase("index");
  return found;
}

inline void Caller::checkIndex(const JSONObject& result) {
  const JSONObject* index = result.getObject("index");
  expect(index != nullptr && index->getString("indexed_at").value_or("").size() == 24 &&
             index->getNumber("age_hours") == 0.0 && !index->has("warning"),
         "index: " + writeCompact(result));
}

inline std::size_t Caller::callsOf(const std::string& tool) const {
  const auto found = logged_.find(tool + " ok");
  return found != logged_.end() ? found->second : 0;
}

// --- the state in which an answer found the visitors --------------------------------------------

// The marks in `text`: which generation of which visitor it shows.
inline std::map<std::size_t, std::size_t> Caller::generationsIn(const std::string& text) {
  std::map<std::size_t, std::size_t> found;
  const auto number = [&](std::size_t& at) {
    std::size_t value = 0;
    const std::size_t begin = at;
    for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0; ++at)
      value = value * 10 + static_cast<std::size_t>(text[at] - '0');
    return at > begin ? std::optional(value) : std::nullopt;
  };
  for (std::size_t at = text.find(" v"); at != std::string::npos; at = text.find(" v", at)) {
    at += 2;
    const auto visitor = number(at);
    if (!visitor || at >= text.size() || text[at] != 'g') continue;
    const auto generation = number(++at);
    if (!generation) continue;
    const auto [entry, isNew] = found.emplace(*visitor, *generation);
    expect(isNew || entry->second == *generation, "two generations in one answer: " + text);
  }
  return found;
}

// A meeting that goes away just before it would have been read again is shown as it was before: the
// server cannot know yet that it is gone.
inline bool Caller::couldShow(std::size_t number, std::size_t generation) const {
  if (generation == 0) return false;
  return world_.couldBe(span_, number, generation) ||
         (world_.wentIn(span_, number) && world_.couldBe({known_, span_.to}, number, generation));
}

inline void Caller::beginSpan() {
  for (std::size_t number = 0; number < visitors_.size(); ++number)
    if (!world_.wentIn(span_, number)) known_[number] = span_.from[number];
  span_.from = world_.done();
}

inline const Told& Caller::visitorAt(std::size_t number, std::size_t generation) {
  auto& known = visitors_[number];
  const auto found = known.find(generation);
  if (found != known.end()) return found->second;
  if (known.size() > 8) known.clear();
  return known.emplace(generation, visitor(number, generation, world_.size().lines)).first->second;
}

// The meetings that this client can have seen, given what its answer shows of the visitors. One
// that the answer does not show was not there, or it was there and is not part of the answer: then
// its generation makes no difference.
inline Meetings Caller::visibleWith(const JSONObject& answer) {
  Meetings meetings;
  for (const Told& meeting : stable_)
    if (isVisible(meeting)) meetings.push_back(&meeting);
  const auto shown = generationsIn(writeCompact(answer));
  for (const auto& [number, generation] : shown)
    expect(number < visitors_.size() && couldShow(number, generation),
           "shows " + markOf(number, generation) + ": " + writeCompact(answer));
  for (std::size_t number = 0; number < visitors_.size(); ++number) {
    const auto found = shown.find(number);
    if (found != shown.end()) {
      ++seen_;
      meetings.push_back(&visitorAt(number, found->second));
    } else if (!world_.couldBe(span_, number, 0)) {
      const Told& there = visitorAt(number, world_.lastSeen(span_, number));
      if (isVisible(there)) meetings.push_back(&there);
    }
  }
  return meetings;
}

inline void Caller::compare(const JSONObject& answer, const JSONObject& expected) {
  const std::string given = writeCompact(answer);
  const std::string wanted = writeCompact(expected);
  expect(given == wanted, "answered " + given + "\n  instead of " + wanted);
}

// --- the calls ----------------------------------------------------------------------------------

inline void Caller::call() {
  lastTool_.clear();
  const std::size_t one = random_.below(100);
  if (recordingsStarted_ < options_.mostRecordings && random_.oneIn(options_.recordingEvery))
    return record();
  if (one < 25) return list();
  if (one < 50) return search();
  if (one < 65) return getMeeting();
  if (one < 80) return getTranscript();
  if (one < 90) return getPerson();
  if (one < 92) return addTerm();
  if (one < 95) return getJob();
  if (one < 97) return listTools();
  ping();
}

inline void Caller::list() {
  static const std::vector<std::string> kQueries = {"deposit", "押金 DECIDE", "visitor-1",
                                                    "stable",  "budget",      "nowhere"};
  static const std::vector<std::string> kPeople = {"AMY", "陈大文", "guest", "nobody"};
  ListQuery query{.limit = random_.oneIn(4) ? 1 + random_.below(9) : 20};
  JSONObject arguments{{"date_to", kLastModelDay}, {"limit", query.limit}};
  if (random_.oneIn(2)) query.query = pick(kQueries);
  if (random_.oneIn(3)) query.person = pick(kPeople);
  if (query.query) arguments.set("query", *query.query);
  if (query.person) arguments.set("person", *query.person);
  if (const auto answer = tool("list_meetings", arguments))
    compare(*answer, listed(visibleWith(*answer), query));
}

inline void Caller::search() {
  static const std::vector<std::string> kQueries = {"deposit",     "押金",           "电辅车",
                                                    "電輔車 押金", "BUDGET nothing", "again stable",
                                                    "who PAYS",    "lighthouse",     "gate keep"};
  static const std::vector<std::string> kSpeakers = {"amy", "大文", "BO", "nobody"};
  SearchQuery query{.query = pick(kQueries),
                    .limit = random_.oneIn(3) ? 200 : 1 + random_.below(20),
                    .includeDigest = random_.oneIn(2)};
  JSONObject arguments{{"query", query.query},
                       {"date_to", kLastModelDay},
                       {"limit", query.limit},
                       {"include_digest", query.includeDigest}};
  if (random_.oneIn(3)) query.speaker = pick(kSpeakers);
  if (query.speaker) arguments.set("speaker", *query.speaker);
  if (const auto answer = tool("search_transcripts", arguments))
    compare(*answer, searched(visibleWith(*answer), query));
}

// get_meeting and get_transcript: of a visitor as often as of a meeting that stays.
inline void Caller::getOne(const std::string& toolName) {
  const bool stays = random_.oneIn(2);
  const std::size_t number = random_.below(stays ? stable_.size() : visitors_.size());
  const std::string id = stays ? stable_[number].id : "rec-visitor-" + std::to_string(number);
  JSONObject arguments{{"id", id}};
  Range range;
  if (toolName == "get_transcript") {
    if (random_.oneIn(3)) range.from = static_cast<double>(random_.below(1000));
    if (random_.oneIn(3)) range.to = static_cast<double>(random_.below(2000));
    if (random_.oneIn(3)) range.limit = 1 + random_.below(20);
    arguments.set("limit", range.limit);
    if (range.from) arguments.set("from_sec", *range.from);
    if (range.to) arguments.set("to_sec", *range.to);
  }
  const auto expected = [&](const Told& told) {
    return toolName == "get_meeting" ? meetingAnswer(told) : transcriptAnswer(told, range);
  };
  const auto answer = tool(toolName, arguments,
                           "No meeting with id '" + id +
                               "' is available to this client. Next step: call list_meetings to "
                               "get valid ids");
  const bool hidden = !isVisible(stays ? stable_[number] : visitorAt(number, 1));
  if (!answer) {
    missed_ += stays ? 0 : 1;
    expect(hidden || (!stays && world_.couldBe(span_, number, 0)), "is not found");
  } else if (expect(!hidden, "is not hidden") && stays) {
    compare(*answer, expected(stable_[number]));
  } else if (!hidden) {
    const auto shown = generationsIn(writeCompact(*answer));
    // An empty range shows no text, so that any generation will do.
    const std::size_t generation =
        shown.empty() ? world_.lastSeen(span_, number) : shown.begin()->second;
    seen_ += shown.size();
    if (expect(couldShow(number, generation), "shows " + writeCompact(*answer)))
      compare(*answer, expected(visitorAt(number, generation)));
  }
}

inline void Caller::getPerson() {
  static const std::vector<std::string> kNames = {"amy", "Amy Chen", "陈大文", "陳", "nobody"};
  const std::string& name = pick(kNames);
  if (const auto answer = tool("get_person", {{"name", name}, {"date_to", kLastModelDay}}))
    compare(*answer, personAnswer(visibleWith(*answer), name));
}

inline void Caller::addTerm() {
  const bool shared = random_.oneIn(4);
  const std::string wrong = shared ? "shared-" + std::to_string(random_.below(options_.sharedTerms))
                                   : "own-" + std::to_string(options_.seed) + "-" +
                                         std::to_string(nextTerm_++ % options_.ownTerms);
  const std::string right = "right-" + std::to_string(random_.below(1000));
  const auto answer = tool("add_term", {{"wrong", wrong}, {"right", right}});
  if (!answer) return;
  const bool isNew = terms_.emplace(wrong, "").second;
  terms_[wrong] = right;
  const bool created = answer->getBool("created").value_or(false);
  if (created) created_.push_back(wrong);
  const std::int64_t size = answer->getInt("dictionary_terms").value_or(-1);
  const bool grew = created ? size > dictionarySize_ : size >= dictionarySize_;
  if (options_.alone || !shared) expect(created == isNew, "created: " + writeCompact(*answer));
  expect(grew, "had " + std::to_string(dictionarySize_) + " terms: " + writeCompact(*answer));
  if (options_.alone)
    expect(size == static_cast<std::int64_t>(terms_.size()), "terms: " + writeCompact(*answer));
  dictionarySize_ = size;
  compare(*answer, {{"saved", true},
                    {"created", created},
                    {"term", JSONObject{{"right", right}, {"wrong", wrong}, {"tier", "hint"}}},
                    {"dictionary_terms", size},
                    {"note",
                     "Applies to the next processed meeting; existing meetings are not "
                     "rewritten"}});
}

inline void Caller::record() {
  ++recordingsStarted_;
  const auto answer =
      tool("process_recording", {{"path", world_.audioFile()}, {"title", "Recorded"}});
  if (!answer) return;
  const std::string job(answer->getString("job_id").value_or(""));
  JSONObject expected{{"job_id", job},
                      {"state", "running"},
                      {"visibility", "private"},
                      {"next",
                       "Call get_job with this job_id every 30 to 60 seconds; a one hour meeting "
                       "takes a few minutes"}};
  if (options_.name == "outsider")
    expected.set("note",
                 "This meeting is private; this client sees job status only, never its content");
  compare(*answer, expected);
  recordings_.add(job);
}

inline void Caller::getJob() {
  const auto jobs = recordings_.all();
  if (jobs.empty()) return ping();
  const std::string& job = pick(jobs);
  const auto answer = tool("get_job", {{"id", job}});
  if (!answer) return;
  const auto state = answer->getString("state");
  expect(answer->getString("job_id") == job && (state == "running" || state == "done"),
         "job: " + writeCompact(*answer));
  if (state == "done" && options_.name == "owner")
    expect(answer->getString("next") == "Call get_meeting with meeting_id",
           "done job: " + writeCompact(*answer));
}

inline std::string Caller::waitFor(const std::string& job) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  while (std::chrono::steady_clock::now() < deadline) {
    const auto answer = tool("get_job", {{"id", job}});
    if (!answer || answer->getString("state") == "failed") return "";
    if (answer->getString("state") == "done")
      return std::string(answer->getString("meeting_id").value_or(""));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return "";
}

inline std::set<std::string> Caller::recordedMeetings() {
  std::set<std::string> ids;
  const auto answer = tool("list_meetings", {{"date_from", kFirstRecordedDay}, {"limit", 200}});
  if (!answer) return ids;
  for (const JSON& meeting : *answer->getArray("meetings")) {
    const JSONObject& summary = *meeting.asObject();
    expect(summary.getString("title") == "Recorded" && summary.getString("visibility") == "private",
           "recorded: " + writeCompact(summary));
    ids.emplace(*summary.getString("id"));
  }
  return ids;
}

inline void Caller::listTools() {
  const std::string list = writeCompact(ask("tools/list", {}));
  if (toolList_.empty()) toolList_ = list;
  expect(list == toolList_ && list.find("add_term") != std::string::npos, "tools: " + list);
}

inline void Caller::ping() {
  const JSONObject result = ask("ping", {});
  expect(result.empty(), "pong: " + writeCompact(result));
}

}  // namespace velta::test
