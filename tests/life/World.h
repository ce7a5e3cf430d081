// World: a data home in which some meetings stay and others come, change and go, and a record of
// when which of them was where.
//
//   World world({.stable = 10, .visitors = 4});
//   World::Span span{.from = world.done()};
//   ... a server answers ...
//   span.to = world.begun();
//   world.couldBe(span, 3, 17);  // may visitor 3 have been of generation 17 meanwhile?
//
// A change is one rename: a folder that was finished elsewhere comes or goes as a whole, a file is
// replaced. So nobody ever finds half a meeting. What two files of a meeting both tell is the same
// in both, for they are read one after the other. Every writing is a second later than the last
// one, as far as the times of the files tell: a file system's clock may tick slower than a test.
//
// One thread changes it, any may ask.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "json/JSONWriter.h"
#include "life/Model.h"
#include "support/DataHome.h"

namespace velta::test {

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}

  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(engine_);
  }
  bool oneIn(std::size_t many) { return below(many) == 0; }

 private:
  std::mt19937 engine_;
};

class World {
 public:
  struct Size {
    std::size_t stable = 6;
    std::size_t visitors = 4;
    std::size_t lines = 8;  // of a meeting
  };

  // For each visitor the number of a change of its.
  using Moment = std::vector<std::size_t>;
  struct Span {
    Moment from;
    Moment to;
  };

  explicit World(Size size);

  const DataHome& home() const { return home_; }
  const Size& size() const { return size_; }

  // For a server that starts the stub pipeline in place of the real one.
  std::map<std::string, std::string> environment() const;

  // The arguments of process_recording.
  std::string audioFile() const { return home_.file("Talk.MP3"); }

  // Lets one visitor come, change or go.
  void change(Random& random);

  // Removes what was recorded, once its process has ended.
  void removeRecording(const std::string& meeting, const std::string& job) const;

  Moment done() const;   // the last complete changes
  Moment begun() const;  // the last ones that were at least begun
  // Whether in that span the visitor may have been seen with that generation; 0: not there.
  bool couldBe(const Span& span, std::size_t visitor, std::size_t generation) const;
  // Whether it began to go in that span.
  bool wentIn(const Span& span, std::size_t visitor) const;
  // The last generation with which it may have been seen; 0: only as not there.
  std::size_t lastSeen(const Span& span, std::size_t visitor) const;

 private:
  struct Visitor {
    std::vector<std::size_t> states = {0};  // generations, 0: not there; the last may be under way
    std::size_t done = 0;                   // the last complete one
    std::size_t generations = 0;
  };

  std::string folderOf(std::size_t visitor) const {
    return "recordings/visitor-" + std::to_string(visitor);
  }
  void begin(std::size_t visitor, std::size_t generation);
  void end(std::size_t visitor);
  void arrive(std::size_t visitor, Random& random);
  void rewrite(std::size_t visitor);
  void leave(std::size_t visitor, Random& random);
  void write(const std::string& name, const JSONObject& content);
  void place(const std::string& from, const std::string& to) const {
    std::filesystem::rename(home_.file(from), home_.file(to));
  }

  const DataHome home_;
  const Size size_;
  std::size_t writings_ = 0;
  mutable std::mutex mutex_;
  std::vector<Visitor> visitors_;
};

inline World::World(Size size) : size_(size), visitors_(size.visitors) {
  const std::string folder = home_.path();
  home_.write("mcp-config.json",
              R"({"sources":[{"type":"recordings","glob":")" + folder +
                  R"(/recordings/*/notes.json"},{"type":"imported","glob":")" + folder +
                  R"(/imported/*/notes.json"}],"clients":{"outsider":["shared"]},)"
                  R"("cloud":{"enabled":false,"refresh_seconds":-1}})");
  const std::string allowed =
      R"({"tools":{"read_transcripts":true,"process_recordings":true,"add_terms":true}})";
  home_.write("agents.json",
              R"({"agents":{"owner":)" + allowed + R"(,"outsider":)" + allowed + "}}");
  home_.write("checkout/pipeline/process_meeting.py", "");
  home_.write("Talk.MP3", "");
  for (const char* name : {"recordings", "staging", "leaving"})
    std::filesystem::create_directories(home_.file(name));
  for (std::size_t number = 0; number < size.stable; ++number) {
    const Told told = stableMeeting(number, size.lines);
    const std::string root = told.source == "imported" ? "imported" : "recordings";
    write(root + "/stable-" + std::to_string(number) + "/notes.json", told.notes());
  }
}

inline std::map<std::string, std::string> World::environment() const {
  auto environment = home_.environment();
  environment["VELTA_REPO"] = home_.file("checkout");
  environment["VELTA_PIPELINE_PYTHON"] = VELTA_SOURCE_DIR "/tests/support/stub-pipeline";
  environment["ELEVENLABS_API_KEY"] = "secret";
  return environment;
}

inline void World::change(Random& random) {
  const std::size_t visitor = random.below(size_.visitors);
  if (lastSeen({done(), begun()}, visitor) == 0) {
    arrive(visitor, random);
  } else if (random.oneIn(2)) {
    rewrite(visitor);
  } else {
    leave(visitor, random);
  }
}

inline void World::arrive(std::size_t visitor, Random& random) {
  const Told told = test::visitor(visitor, ++visitors_[visitor].generations, size_.lines);
  const JSONObject session{
      {"started_at", told.startedAt}, {"title", told.title}, {"visibility", told.visibility}};
  const std::string folder = folderOf(visitor);
  const bool wholeFolder = random.oneIn(2);
  const std::string first = wholeFolder ? "staging/folder" : folder;
  if (!random.oneIn(3)) {
    write("staging/file", session);
    std::filesystem::create_directories(home_.file(first));
    place("staging/file", first + "/session.json");
  }
  write("staging/file", told.notes());
  std::filesystem::create_directories(home_.file(first));
  begin(visitor, visitors_[visitor].generations);
  if (wholeFolder) {
    place("staging/file", "staging/folder/notes.json");
    place("staging/folder", folder);
  } else {
    place("staging/file", folder + "/notes.json");
  }
  end(visitor);
}

inline void World::rewrite(std::size_t visitor) {
  write("staging/file",
        test::visitor(visitor, ++visitors_[visitor].generations, size_.lines).notes());
  begin(visitor, visitors_[visitor].generations);
  place("staging/file", folderOf(visitor) + "/notes.json");
  end(visitor);
}

inline void World::leave(std::size_t visitor, Random& random) {
  begin(visitor, 0);
  if (random.oneIn(2)) {
    place(folderOf(visitor), "leaving/folder");
    home_.remove("leaving/folder");
  } else {
    home_.remove(folderOf(visitor) + "/notes.json");
    home_.remove(folderOf(visitor));
  }
  end(visitor);
}

inline void World::write(const std::string& name, const JSONObject& content) {
  home_.write(name, writeCompact(content));
  static const auto kBegin =
      std::filesystem::file_time_type::clock::now() - std::chrono::hours(9000);
  std::filesystem::last_write_time(home_.file(name), kBegin + std::chrono::seconds(++writings_));
}

inline void World::begin(std::size_t visitor, std::size_t generation) {
  const std::lock_guard lock(mutex_);
  visitors_[visitor].states.push_back(generation);
}

inline void World::end(std::size_t visitor) {
  const std::lock_guard lock(mutex_);
  visitors_[visitor].done = visitors_[visitor].states.size() - 1;
}

inline void World::removeRecording(const std::string& meeting, const std::string& job) const {
  const std::string folder = "recordings/" + meeting.substr(std::string_view("rec-").size());
  for (int patience = 8000; !home_.has(folder + "/stub.ended") && patience > 0; --patience)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  place(folder, "leaving/folder");
  home_.remove("leaving/folder");
  home_.remove("jobs/" + job + ".json");
}

inline World::Moment World::done() const {
  const std::lock_guard lock(mutex_);
  Moment moment;
  for (const Visitor& visitor : visitors_) moment.push_back(visitor.done);
  return moment;
}

inline World::Moment World::begun() const {
  const std::lock_guard lock(mutex_);
  Moment moment;
  for (const Visitor& visitor : visitors_) moment.push_back(visitor.states.size() - 1);
  return moment;
}

inline bool World::couldBe(const Span& span, std::size_t visitor, std::size_t generation) const {
  const std::lock_guard lock(mutex_);
  const auto& states = visitors_.at(visitor).states;
  for (std::size_t at = span.from.at(visitor); at <= span.to.at(visitor); ++at)
    if (states[at] == generation) return true;
  return false;
}

inline bool World::wentIn(const Span& span, std::size_t visitor) const {
  const std::lock_guard lock(mutex_);
  const auto& states = visitors_.at(visitor).states;
  for (std::size_t at = span.from.at(visitor) + 1; at <= span.to.at(visitor); ++at)
    if (states[at] == 0) return true;
  return false;
}

inline std::size_t World::lastSeen(const Span& span, std::size_t visitor) const {
  const std::lock_guard lock(mutex_);
  const auto& states = visitors_.at(visitor).states;
  for (std::size_t at = span.to.at(visitor) + 1; at > span.from.at(visitor); --at)
    if (states[at - 1] != 0) return states[at - 1];
  return 0;
}

}  // namespace velta::test
