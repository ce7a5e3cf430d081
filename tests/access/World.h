// World: a data home with random meetings of every kind of source, random access to them, and what
// of it each agent may see, as told by rules that are written down here a second time.
//
// Every text of a meeting begins with the meeting's own marker, so that a byte that comes out where
// it may not is found by looking for markers. Files follow from the plan alone: the same plan with
// fewer meetings, or with other texts in the places that an agent may not read, is the same world
// for that agent.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/JSON.h"
#include "json/JSONWriter.h"
#include "support/TemporaryFolder.h"

namespace velta::test {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  // By the remainder, which every standard library takes alike: a seed names one world everywhere.
  std::size_t below(std::size_t end) { return static_cast<std::size_t>(engine_() % end); }
  bool oneIn(std::size_t many) { return below(many) == 0; }

  template <class Items>
  const auto& pick(const Items& items) {
    return items[below(items.size())];
  }

 private:
  std::mt19937_64 engine_;
};

using Words = std::vector<std::string>;

inline const Words kCommonWords = {"deposit", "Budget", "押金", "電輔車", "电辅车", "owner"};
inline const Words kCommonPeople = {"Amy Chen", "陳大文", "Bo"};
inline const Words kVisibilities = {"private", "work", "shared"};

// The local day of `seconds` since the epoch.
inline std::string dayOf(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts = {};
  ::localtime_r(&time, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d", &parts)};
}

inline bool holds(const Words& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

inline JSON::Array arrayOf(const Words& words) { return {words.begin(), words.end()}; }

// What a caller without a certain permission, or nobody at all, may read.
struct Unseen {
  bool otherLines = false;       // the transcripts are others
  bool otherNeverShown = false;  // so is what no tool shows
  Words otherJobs = {};          // ids of jobs that tell something else of their work
};

struct PlannedMeeting {
  enum class Kind { recording, imported, legacy, web };

  Kind kind = Kind::recording;
  std::string marker;
  std::size_t number = 0;
  std::string date;       // empty: none
  std::string startedAt;  // empty: none
  bool hasSession = false;
  std::optional<std::string> mainHint;     // "visibility" of the main file
  std::optional<std::string> sessionHint;  // and of the session
  std::optional<JSON> mainTags;
  std::optional<JSON> sessionTags;
  std::optional<JSON> visibilityOverride;
  std::optional<JSON> tagOverride;
  bool hasTwin = false;  // it is in the web service as well
  std::size_t lineCount = 0;
  Words people;
  Words vocabulary;  // one word for each text
  bool hasUserNotes = false;

  bool isRecording() const { return kind == Kind::recording || kind == Kind::imported; }

  std::string text(std::string_view field) const {
    return marker + std::string(field) + " " + vocabulary[field.size() % vocabulary.size()];
  }

  std::string ownPerson() const { return marker + "person"; }

  std::string folder() const { return (date.empty() ? "" : date + "-") + marker + "folder"; }

  std::string uuid() const {
    const std::string digits = std::to_string(1000 + number);
    return "5ec4e700-0000-4000-8000-00000000" + digits.substr(digits.size() - 4);
  }

  std::string id() const {
    switch (kind) {
      case Kind::recording:
        return "rec-" + folder();
      case Kind::imported:
        return "imp-" + folder();
      case Kind::legacy:
        return "legacy-" + folder();
      case Kind::web:
        break;
    }
    return "cloud-" + uuid();
  }

  // Texts by which this meeting would be recognised in an answer.
  Words markers() const {
    return kind == Kind::web || hasTwin ? Words{marker, uuid()} : Words{marker};
  }
};

struct PlannedJob {
  std::string id;
  std::optional<JSON> visibility;
  std::string meetingId;
  std::string step;
  std::string marker() const { return "zjob" + id.substr(id.size() - 2) + "q"; }
};

struct PlannedAgent {
  std::optional<std::string> client;  // absent: a client that gives no name
  bool isListed = true;               // the configuration says what it sees
  bool hasEntry = true;               // agents.json says what it may do
  Words allowed;                      // as configured, unknown words and all
  std::string scope;                  // as it counts
  std::string writtenScope;
  bool hidePrivate = true;
  std::vector<std::pair<std::string, JSON>> permissions;

  // Only a true grants.
  bool may(std::string_view permission) const {
    return std::any_of(permissions.begin(), permissions.end(), [&](const auto& nameAndValue) {
      return nameAndValue.first == permission && nameAndValue.second.asBool() == true;
    });
  }
};

class World {
 public:
  // A world at `now`, in seconds since the epoch. Unless the clock stands, no meeting was held on a
  // day that its going on could move out of the last thirty days.
  World(std::uint64_t seed, std::int64_t now, bool clockStands)
      : random_(seed), now_(now), clockStands_(clockStands) {
    recordingsVisibility_ = word();
    importedVisibility_ = word();
    legacyVisibility_ = word();
    cloudVisibility_ = word();
    cloudIsOn_ = !random_.oneIn(4);
    const std::size_t count = 1 + random_.below(9);
    for (std::size_t number = 0; number < count; ++number) meetings.push_back(meeting(number));
    for (std::size_t number = 0; number < 3; ++number) agents.push_back(agent(number));
    for (std::size_t number = 0; number < 4; ++number) jobs.push_back(job(number));
  }

  std::vector<PlannedMeeting> meetings;
  std::vector<PlannedAgent> agents;
  std::vector<PlannedJob> jobs;

  // Whether the index holds the meeting at all.
  bool isServed(const PlannedMeeting& meeting) const {
    return meeting.kind != PlannedMeeting::Kind::web || cloudIsOn_;
  }

  bool sees(const PlannedAgent& agent, const PlannedMeeting& meeting) const {
    if (!isServed(meeting) || !holds(agent.allowed, visibilityOf(meeting))) return false;
    const Words tags = tagsOf(meeting);
    if (agent.hidePrivate && holds(tags, "private")) return false;
    if (agent.scope == "all") return true;
    if (agent.scope == "tagged") return holds(tags, "agents");
    return !meeting.date.empty() && meeting.date >= dayOf(now_ - std::int64_t{30} * 86'400);
  }

  static bool seesContentOf(const PlannedAgent& agent, const PlannedJob& job) {
    const auto word = job.visibility ? job.visibility->asString() : std::nullopt;
    return holds(agent.allowed, word ? std::string(*word) : "private");
  }

  // This world as it is without what `agent` may not see.
  World without(const PlannedAgent& agent) const {
    World less = *this;
    std::erase_if(less.meetings, [&](const auto& meeting) { return !sees(agent, meeting); });
    // An index that holds nothing says so, on purpose, because then the configuration is wrong.
    // So another meeting, as little seen, is left where there was one.
    const auto served = std::find_if(meetings.begin(), meetings.end(),
                                     [this](const auto& meeting) { return isServed(meeting); });
    if (less.meetings.empty() && served != meetings.end()) {
      less.meetings.push_back(*served);
      less.meetings.back().marker = "zxzzq";
      less.meetings.back().number = 99;
      less.meetings.back().people.clear();
      less.meetings.back().lineCount = 1;
    }
    return less;
  }

  // Writes the data home, in place of what is there.
  void write(const TemporaryFolder& root, const Unseen& unseen = {}) const {
    std::filesystem::remove_all(root.file("home"));
    root.write("home/mcp-config.json", writeCompact(configFile(root.file("home"))));
    root.write("home/agents.json", writeCompact(agentsFile()));
    JSONObject cache;
    for (const PlannedMeeting& meeting : meetings) {
      if (meeting.isRecording()) writeRecording(root, meeting, unseen);
      if (meeting.kind == PlannedMeeting::Kind::legacy) writeLegacy(root, meeting, unseen);
      if (meeting.kind == PlannedMeeting::Kind::web) {
        cache.set(meeting.uuid(), rowOf(meeting, webMeeting(meeting, unseen)));
      }
      if (meeting.hasTwin) cache.set(meeting.uuid(), rowOf(meeting, twinOf(meeting, unseen)));
    }
    root.write("home/velta-mcp-cloud-cache.json", writeCompact(cache));
    for (const PlannedJob& job : jobs) writeJob(root, job, unseen);
  }

 private:
  std::string word() { return random_.pick(Words{"private", "work", "work", "shared", "public"}); }

  std::optional<JSON> maybe(std::size_t oneIn, JSON value) {
    return random_.oneIn(oneIn) ? std::optional<JSON>(std::move(value)) : std::nullopt;
  }

  JSON someTags() {
    static const std::vector<Words> kTags = {
        {}, {"agents"}, {"private"}, {"agents", "private"}, {"Private", "agent"}, {"team"}};
    JSON::Array tags = arrayOf(random_.pick(kTags));
    if (random_.oneIn(5)) tags.emplace_back(7);  // no string, no tag
    return tags;
  }

  std::string someDate() {
    if (random_.oneIn(5)) return "";
    static const std::vector<int> kDaysAgo = {0, 3, 3, 29, 30, 31, 31, 31, 60};
    int days = random_.pick(kDaysAgo);
    if (!clockStands_ && days >= 29 && days <= 31) days = 20;
    return dayOf(now_ - std::int64_t{days} * 86'400);
  }

  PlannedMeeting meeting(std::size_t number) {
    using Kind = PlannedMeeting::Kind;
    static const std::vector<Kind> kKinds = {Kind::recording, Kind::recording, Kind::recording,
                                             Kind::imported,  Kind::legacy,    Kind::web};
    PlannedMeeting planned;
    planned.number = number;
    planned.marker = std::string("zxa") + static_cast<char>('a' + number) + "q";
    planned.kind = random_.pick(kKinds);
    planned.date = someDate();
    if (!planned.date.empty() && !random_.oneIn(3) && planned.kind != Kind::legacy)
      planned.startedAt = planned.date + random_.pick(Words{"T10:00:00", "T11:30:00+08:00"});
    planned.mainTags = maybe(2, someTags());
    planned.visibilityOverride = maybe(5, word());
    if (random_.oneIn(8)) planned.visibilityOverride = JSON(3);  // no word, no override
    planned.tagOverride = maybe(6, someTags());
    if (planned.isRecording()) {
      planned.hasSession = random_.oneIn(2);
      if (random_.oneIn(2)) planned.mainHint = word();
      if (planned.hasSession && random_.oneIn(2)) planned.sessionHint = word();
      if (planned.hasSession) planned.sessionTags = maybe(2, someTags());
      planned.hasTwin = random_.oneIn(4);
    }
    planned.hasUserNotes = random_.oneIn(2);
    planned.lineCount = random_.below(5);
    planned.people = {planned.ownPerson()};
    if (random_.oneIn(2)) planned.people.push_back(random_.pick(kCommonPeople));
    for (int i = 0; i < 5; ++i) planned.vocabulary.push_back(random_.pick(kCommonWords));
    return planned;
  }

  PlannedAgent agent(std::size_t number) {
    static const std::vector<Words> kAllowed = {{"work", "private"},
                                                {"private", "work", "shared"},
                                                {"work"},
                                                {"shared", "work", "private"},
                                                {"shared", "work"},
                                                {"private", "work", "shared"},
                                                {"private"},
                                                {"public", "shared", "shared"},
                                                {}};
    PlannedAgent agent;
    if (number != 2 || random_.oneIn(2)) agent.client = "agent-" + std::to_string(number);
    agent.allowed = random_.pick(kAllowed);
    agent.isListed = !agent.client || !random_.oneIn(6);
    if (!agent.isListed) agent.allowed = kVisibilities;
    agent.writtenScope = random_.pick(Words{"all", "all", "all", "all", "tagged", "last_30_days",
                                            "last_30_days", "last_30_days", "everything"});
    agent.scope = agent.writtenScope == "everything" ? "tagged" : agent.writtenScope;
    agent.hidePrivate = !random_.oneIn(3);
    for (const char* name :
         {"search_meetings", "read_notes", "read_transcripts", "process_recordings", "add_terms"}) {
      static const std::vector<JSON> kValues = {true, true, true, true, false, "yes"};
      agent.permissions.emplace_back(name, random_.pick(kValues));
    }
    agent.hasEntry = !random_.oneIn(8);
    if (!agent.hasEntry) {
      agent.scope = "all";
      agent.hidePrivate = true;
      agent.permissions = {{"search_meetings", true}, {"read_notes", true}};
    }
    return agent;
  }

  PlannedJob job(std::size_t number) {
    PlannedJob planned;
    planned.id = "job-20261012-153000-0000a" + std::to_string(number);
    planned.visibility = random_.pick(std::vector<std::optional<JSON>>{
        std::nullopt, JSON("private"), JSON("private"), JSON("work"), JSON(5)});
    const PlannedMeeting& made = random_.pick(meetings);
    planned.meetingId = made.kind == PlannedMeeting::Kind::recording ? made.id() : "rec-nowhere";
    planned.step = random_.pick(Words{"done", "done", "failed", "transcribe"});
    return planned;
  }

  // What follows from the rules of access.

  static std::string knownOrPrivate(const std::string& word) {
    return holds(kVisibilities, word) ? word : "private";
  }

  std::string visibilityOf(const PlannedMeeting& meeting) const {
    if (meeting.visibilityOverride && meeting.visibilityOverride->asString())
      return knownOrPrivate(std::string(*meeting.visibilityOverride->asString()));
    const auto& hint = meeting.hasSession ? meeting.sessionHint : meeting.mainHint;
    if (hint) return knownOrPrivate(*hint);
    return knownOrPrivate(visibilityOfSource(meeting.kind));
  }

  std::string visibilityOfSource(PlannedMeeting::Kind kind) const {
    switch (kind) {
      case PlannedMeeting::Kind::recording:
        return recordingsVisibility_;
      case PlannedMeeting::Kind::imported:
        return importedVisibility_;
      case PlannedMeeting::Kind::legacy:
        return legacyVisibility_;
      case PlannedMeeting::Kind::web:
        break;
    }
    return cloudVisibility_;
  }

  static Words tagsOf(const PlannedMeeting& meeting) {
    const auto& own = meeting.sessionTags ? meeting.sessionTags : meeting.mainTags;
    const auto& counted = meeting.tagOverride ? meeting.tagOverride : own;
    Words tags;
    if (!counted) return tags;
    for (const JSON& tag : *counted->asArray()) {
      if (const auto text = tag.asString()) tags.emplace_back(*text);
    }
    return tags;
  }

  // The files.

  JSONObject configFile(const std::string& home) const {
    JSONObject visibilities;
    JSONObject tags;
    for (const PlannedMeeting& meeting : meetings) {
      if (meeting.visibilityOverride) visibilities.set(meeting.id(), *meeting.visibilityOverride);
      if (meeting.tagOverride) tags.set(meeting.id(), *meeting.tagOverride);
    }
    JSONObject clients;
    JSON::Array withoutName = arrayOf({"shared"});
    for (const PlannedAgent& agent : agents) {
      if (!agent.client) withoutName = arrayOf(agent.allowed);
      if (agent.client && agent.isListed) clients.set(*agent.client, arrayOf(agent.allowed));
    }
    JSON::Array sources;
    sources.emplace_back(JSONObject{{"type", "recordings"},
                                    {"glob", home + "/recordings/*/notes.json"},
                                    {"visibility", recordingsVisibility_}});
    sources.emplace_back(JSONObject{{"type", "imported"},
                                    {"glob", home + "/imported/*/notes.json"},
                                    {"visibility", importedVisibility_}});
    sources.emplace_back(
        JSONObject{{"type", "legacy"}, {"path", home + "/old"}, {"visibility", legacyVisibility_}});
    JSONObject file;
    file.set("sources", std::move(sources));
    file.set("clients", std::move(clients));
    file.set("default_client_visibilities", std::move(withoutName));
    file.set("visibility_overrides", std::move(visibilities));
    file.set("tag_overrides", std::move(tags));
    file.set("cloud", JSONObject{{"enabled", cloudIsOn_}, {"visibility", cloudVisibility_}});
    return file;
  }

  JSONObject agentsFile() const {
    JSONObject entries;
    for (const PlannedAgent& agent : agents) {
      if (!agent.hasEntry) continue;
      JSONObject tools;
      for (const auto& [name, value] : agent.permissions) tools.set(name, value);
      entries.set(agent.client.value_or(""), JSONObject{{"tools", std::move(tools)},
                                                        {"scope", agent.writtenScope},
                                                        {"hide_private", agent.hidePrivate}});
    }
    return {{"agents", std::move(entries)}};
  }

  static JSON::Array peopleOf(const PlannedMeeting& meeting) {
    JSON::Array people;
    for (const std::string& name : meeting.people) {
      people.emplace_back(JSONObject{{"name", name},
                                     {"role", meeting.text("role")},
                                     {"talk_sec", 100 + 7 * static_cast<int>(meeting.number)},
                                     {"talk_share", 0.5}});
    }
    return people;
  }

  static JSON::Array one(JSON item) {
    JSON::Array items;
    items.push_back(std::move(item));
    return items;
  }

  static JSONObject notesOf(const PlannedMeeting& meeting, const Unseen& unseen) {
    const std::string person = meeting.people.empty() ? "nobody" : meeting.people.back();
    JSONObject notes;
    notes.set("verdict", meeting.text("verdict"));
    notes.set("summary", meeting.text("summary"));
    notes.set("decisions", one(JSONObject{{"text", meeting.text("decision")},
                                          {"owner", person},
                                          {"t", static_cast<int>(meeting.number % 3)}}));
    notes.set("chapters", one(JSONObject{{"title", meeting.text("chapter")}, {"t_start", 2}}));
    notes.set("viewpoints",
              one(JSONObject{{"speaker", person}, {"points", one(meeting.text("viewpoint"))}}));
    notes.set("open_questions", one(JSONObject{{"question", meeting.text("question")}}));
    notes.set("topics", one(meeting.text("topic")));
    notes.set("quotes", one(JSONObject{{"text", meeting.text("quote")}, {"speaker", person}}));
    if (meeting.hasUserNotes) notes.set("user_notes", meeting.text("usernotes"));
    const std::string task = unseen.otherNeverShown ? "another task" : meeting.text("task");
    notes.set("action_items", one(JSONObject{{"text", task}, {"owner", person}}));
    notes.set("actions", one(task));
    return notes;
  }

  static JSON::Array linesOf(const PlannedMeeting& meeting, const Unseen& unseen) {
    JSON::Array lines;
    for (std::size_t i = 0; i < meeting.lineCount; ++i) {
      const auto at = static_cast<int>(i + meeting.number % 3);
      if (unseen.otherLines) {
        lines.emplace_back(JSONObject{{"id", "other" + std::to_string(i)},
                                      {"t_start", 50 - at},
                                      {"speaker", "Somebody Else"},
                                      {"text", "other words, 押金"}});
      } else {
        lines.emplace_back(JSONObject{{"id", meeting.marker + "line" + std::to_string(i)},
                                      {"t_start", at},
                                      {"t_end", at + 1},
                                      {"speaker", i % 2 ? meeting.ownPerson() : "Amy Chen"},
                                      {"text", meeting.text("said" + std::string(i, '!'))}});
      }
    }
    return lines;
  }

  static void writeRecording(const TemporaryFolder& root, const PlannedMeeting& meeting,
                             const Unseen& unseen) {
    const bool isImported = meeting.kind == PlannedMeeting::Kind::imported;
    const std::string folder =
        std::string(isImported ? "home/imported/" : "home/recordings/") + meeting.folder();
    JSONObject main = notesOf(meeting, unseen);
    main.set("title", meeting.text("title"));
    if (!meeting.startedAt.empty()) main.set("started_at", meeting.startedAt);
    main.set("duration_sec", 60 + static_cast<int>(meeting.number));
    main.set("speakers", peopleOf(meeting));
    main.set("lines", linesOf(meeting, unseen));
    if (meeting.mainHint) main.set("visibility", *meeting.mainHint);
    if (meeting.mainTags) main.set("tags", *meeting.mainTags);
    root.write(folder + "/notes.json", writeCompact(main));
    if (meeting.hasSession) {
      JSONObject session;
      if (meeting.sessionHint) session.set("visibility", *meeting.sessionHint);
      if (meeting.sessionTags) session.set("tags", *meeting.sessionTags);
      root.write(folder + "/session.json", writeCompact(session));
    }
    if (meeting.hasTwin)
      root.write(folder + "/upload.json", writeCompact(JSONObject{{"meeting_id", meeting.uuid()}}));
  }

  static void writeLegacy(const TemporaryFolder& root, const PlannedMeeting& meeting,
                          const Unseen& unseen) {
    const std::string folder = "home/old/records/" + meeting.folder();
    JSONObject record = notesOf(meeting, unseen);
    record.set("id", meeting.folder());
    record.set("title", meeting.text("title"));
    if (!meeting.date.empty()) record.set("date", meeting.date);
    record.set("people", peopleOf(meeting));
    record.set("digestFile", "digest.md");
    if (meeting.mainTags) record.set("tags", *meeting.mainTags);
    root.write(folder + "/meeting.json", writeCompact(record));
    root.write(folder + "/digest.md",
               "# " + meeting.text("heading") + "\n- at 1:05 " + meeting.text("written") + "\n");
    std::string transcript;
    for (const JSON& line : linesOf(meeting, unseen)) {
      const JSONObject& object = *line.asObject();
      transcript += "@" + std::string(*object.getString("speaker")) + "  00:0" +
                    std::to_string(*object.getInt("t_start") % 10) + "\n" +
                    std::string(*object.getString("text")) + "\n";
    }
    root.write(folder + "/transcript.md", transcript);
  }

  // A web meeting as the cache keeps it.
  static JSONObject webMeeting(const PlannedMeeting& meeting, const Unseen& unseen) {
    JSONObject object{{"id", "cloud-" + meeting.uuid()}, {"source", "cloud"}};
    object.set("title", meeting.text("title"));
    if (!meeting.date.empty()) object.set("date", meeting.date);
    if (!meeting.startedAt.empty()) object.set("started_at", meeting.startedAt);
    object.set("duration_sec", 61);
    object.set("verdict", meeting.text("verdict"));
    object.set("people", peopleOf(meeting));
    JSONObject notes = notesOf(meeting, unseen);
    for (const char* key : {"action_items", "actions"}) notes.erase(key);  // the service has none
    object.set("notes", std::move(notes));
    object.set("lines", linesOf(meeting, unseen));
    object.set("digest",
               one(JSONObject{
                   {"id", "D1"}, {"section", "decisions"}, {"text", meeting.text("decision")}}));
    if (meeting.mainTags) object.set("tags", *meeting.mainTags);
    object.set("visibility_hint", "shared");  // of no account: the user alone says who may see it
    return object;
  }

  // The same meeting on the web. Only the user's notes of it are ever shown, in the local one.
  static JSONObject twinOf(const PlannedMeeting& meeting, const Unseen& unseen) {
    const std::string twin = unseen.otherNeverShown ? "another twin" : "zxtwinq deposit 押金";
    JSONObject object{{"id", "cloud-" + meeting.uuid()}, {"source", "cloud"}};
    object.set("title", twin);
    object.set("date", unseen.otherNeverShown ? "2020-01-01" : "2026-10-20");
    object.set("verdict", twin);
    object.set("people", one(JSONObject{{"name", twin}}));
    object.set("notes",
               JSONObject{{"summary", twin}, {"user_notes", meeting.text("webusernotes")}});
    object.set("lines", one(JSONObject{{"id", "L1"}, {"text", twin}}));
    object.set("tags", one(unseen.otherNeverShown ? "private" : "agents"));
    return object;
  }

  // A row of the cache; that a twin was merged is noted already, so that nothing is to be saved.
  static JSONObject rowOf(const PlannedMeeting& meeting, JSONObject object) {
    const std::string rev = "r" + std::to_string(meeting.number);
    JSONObject row{{"rev", rev}, {"meeting", std::move(object)}};
    if (meeting.hasTwin) row.set("applied", rev);
    return row;
  }

  static void writeJob(const TemporaryFolder& root, const PlannedJob& job, const Unseen& unseen) {
    const std::string folder = "home/jobfolders/" + job.id;
    const std::string content =
        holds(unseen.otherJobs, job.id) ? "other" : job.marker() + "content";
    JSONObject record{{"id", job.id},
                      {"folder", root.file(folder)},
                      {"pid", 0},
                      {"created_at", "2026-10-12T15:30:00+0800"},
                      {"client", "agent-0"},
                      {"meeting_id", job.meetingId}};
    if (job.visibility) record.set("visibility", *job.visibility);
    root.write("home/jobs/" + job.id + ".json", writeCompact(record));
    root.write(folder + "/status.json",
               writeCompact(JSONObject{{"step", job.step}, {"detail", content}, {"at", "now"}}));
    root.write(folder + "/job.log", content + "\nlast line\n");
  }

  Random random_;
  std::int64_t now_;
  bool clockStands_;
  std::string recordingsVisibility_;
  std::string importedVisibility_;
  std::string legacyVisibility_;
  std::string cloudVisibility_;
  bool cloudIsOn_ = true;
};

}  // namespace velta::test
