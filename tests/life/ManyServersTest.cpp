// Eight servers over one data home in which meetings come, change and go, terms are added and
// recordings made.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "life/Caller.h"
#include "life/World.h"

namespace velta {
namespace {

using test::Caller;
using test::Random;
using test::Recordings;
using test::World;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::size_t kServers = 8;
constexpr std::size_t kCallsOfEach = 250;    // of each server
constexpr std::size_t kCallsOfAServer = 90;  // until another takes its place

// Of four servers one serves a client that sees little.
bool isOutsider(std::size_t number) { return number % 4 == 3; }

// VELTA_LIFE_CALLS: how many calls each server gets, for a longer run.
std::size_t callsOfEach() {
  const char* wanted = std::getenv("VELTA_LIFE_CALLS");
  return wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : kCallsOfEach;
}

// Changes the world until it is told to stop.
class Changes {
 public:
  explicit Changes(World& world) : thread_([this, &world] { run(world); }) {}
  ~Changes() { stop(); }
  Changes(const Changes&) = delete;
  Changes& operator=(const Changes&) = delete;

  void stop() {
    stopped_ = true;
    if (thread_.joinable()) thread_.join();
  }
  std::size_t count() const { return count_; }
  const std::string& fault() const { return fault_; }

 private:
  void run(World& world) {
    Random random(99);
    try {
      for (; !stopped_; ++count_) {
        world.change(random);
        // No faster than the servers can see it.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    } catch (const std::exception& error) {
      fault_ = error.what();
    }
  }

  std::atomic<bool> stopped_ = false;
  std::size_t count_ = 0;
  std::string fault_;
  std::thread thread_;  // the last: it uses the others
};

class ManyServersTest : public testing::Test {
 protected:
  ManyServersTest() {
    for (unsigned number = 0; number < kServers; ++number)
      callers.push_back(std::make_unique<Caller>(
          world, recordings,
          Caller::Options{.name = isOutsider(number) ? "outsider" : "owner",
                          .seed = number + 1,
                          .recordingEvery = 80,
                          .mostRecordings = 3,
                          .alone = false}));
  }

  // All callers at once, each on a thread of its own, while the world changes.
  void callAll() {
    Changes changes(world);
    std::vector<std::thread> threads;
    std::vector<std::string> broken(kServers);
    for (std::size_t number = 0; number < kServers; ++number)
      threads.emplace_back([&, number] {
        try {
          callOften(*callers[number]);
        } catch (const std::exception& error) {
          broken[number] = error.what();
        }
      });
    for (std::thread& thread : threads) thread.join();
    changes.stop();
    EXPECT_EQ(changes.fault(), "");
    EXPECT_GT(changes.count(), 50U);
    for (const std::string& fault : broken) EXPECT_EQ(fault, "");
  }

  static void callOften(Caller& caller) {
    for (std::size_t number = 1, all = callsOfEach(); number <= all; ++number) {
      caller.call();
      if (number % kCallsOfAServer == 0) caller.restart();
    }
  }

  // Waits for every recording that was started; their meetings.
  std::set<std::string> finishRecordings() {
    std::set<std::string> meetings;
    for (const std::string& job : recordings.all()) meetings.insert(callers[0]->waitFor(job));
    return meetings;
  }

  // What the callers together did, as the activity log has to tell it: "agent tool status".
  std::map<std::string, std::size_t> callsMade() const {
    std::map<std::string, std::size_t> calls;
    for (std::size_t number = 0; number < kServers; ++number)
      for (const auto& [what, count] : callers[number]->logged())
        calls[std::string(isOutsider(number) ? "outsider " : "owner ") + what] += count;
    return calls;
  }

  World world{{}};
  Recordings recordings{world};
  std::vector<std::unique_ptr<Caller>> callers;
};

// The numbers of lines of the activity log by what they tell; throws for a line that is none.
std::map<std::string, std::size_t> callsLogged(const test::DataHome& home) {
  std::map<std::string, std::size_t> calls;
  for (const std::string& line : home.lines("activity.jsonl")) {
    const JSON value = parseJSON(line);
    const JSONObject& entry = *value.asObject();
    EXPECT_EQ(writeCompact(entry), line);
    EXPECT_EQ(entry.getString("time").value_or("").size(), 25U) << line;
    EXPECT_NE(entry.getObject("args"), nullptr) << line;
    ++calls[std::string(*entry.getString("agent")) + " " + std::string(*entry.getString("tool")) +
            " " + std::string(*entry.getString("status"))];
  }
  return calls;
}

std::map<std::string, std::vector<std::string>> dictionaryOf(const test::DataHome& home) {
  std::map<std::string, std::vector<std::string>> terms;
  const JSON dictionary = parseJSON(home.read("dictionary.json"));
  for (const JSON& term : *dictionary.asObject()->getArray("terms"))
    terms[std::string(*term.asObject()->getString("wrong"))].emplace_back(
        *term.asObject()->getString("right"));
  return terms;
}

TEST_F(ManyServersTest, EveryAnswerIsRightAndNothingIsLost) {
  callAll();
  const auto meetings = finishRecordings();

  // Every recording became a meeting of its own, which every server shows.
  EXPECT_EQ(meetings.size(), recordings.all().size());
  EXPECT_GT(meetings.size(), kServers);
  EXPECT_FALSE(meetings.contains(""));
  for (std::size_t number = 0; number < kServers; ++number)
    EXPECT_EQ(callers[number]->recordedMeetings(),
              isOutsider(number) ? std::set<std::string>() : meetings);

  std::size_t seen = 0;
  std::size_t missed = 0;
  for (const auto& caller : callers) {
    caller->finish();
    EXPECT_THAT(caller->faults(), IsEmpty());
    seen += caller->seen();
    missed += caller->missed();
  }
  EXPECT_GT(seen, 100U) << "hardly an answer showed a meeting that comes and goes";
  EXPECT_GT(missed, 20U) << "hardly an answer missed one";

  // The log has a line for each call, and each line is whole.
  EXPECT_EQ(callsLogged(world.home()), callsMade());

  // Each term is there once, with what its last writer gave it, and was created once.
  std::map<std::string, std::set<std::string>> added;
  std::vector<std::string> created;
  for (const auto& caller : callers) {
    for (const auto& [wrong, right] : caller->terms()) added[wrong].insert(right);
    created.insert(created.end(), caller->created().begin(), caller->created().end());
  }
  const auto dictionary = dictionaryOf(world.home());
  EXPECT_EQ(dictionary.size(), added.size());
  for (const auto& [wrong, rights] : dictionary) {
    EXPECT_EQ(rights.size(), 1U) << wrong;
    EXPECT_TRUE(added[wrong].contains(rights.front())) << wrong << " " << rights.front();
  }
  std::sort(created.begin(), created.end());
  EXPECT_EQ(std::adjacent_find(created.begin(), created.end()), created.end());
  EXPECT_EQ(created.size(), added.size());

  for (const std::string& name : world.home().names())
    EXPECT_THAT(name, Not(HasSubstr(".tmp"))) << "a temporary file stays";
}

}  // namespace
}  // namespace velta
