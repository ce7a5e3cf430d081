// TestHome: a data home of a test's own with recordings in it, and an index over it whose clock the
// test sets.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>

#include "config/Config.h"
#include "index/Index.h"
#include "json/JSONParser.h"
#include "platform/Time.h"
#include "support/TemporaryFolder.h"

namespace velta::test {

class TestHome {
 public:
  // With the default configuration, which is not written.
  TestHome()
      : config{folder.path(), {{"HOME", folder.path()}}}, index(config, [this] { return now; }) {}

  // Replaces mcp-config.json.
  void configure(std::string_view text) const { folder.write("mcp-config.json", text); }

  // A source object of the kind "recordings" over the folder `name`; `more` holds further members,
  // each with a comma before it.
  std::string source(std::string_view name, std::string_view more = "") const {
    return R"({"type": "recordings", "glob": ")" + folder.file(name) + R"(/*/notes.json")" +
           std::string(more) + "}";
  }

  // Writes recordings/`name`/notes.json; its meeting gets the id "rec-" + name.
  std::string record(std::string_view name, std::string_view notes = R"({"title": "A"})") const {
    return folder.write("recordings/" + std::string(name) + "/notes.json", notes);
  }

  // Makes a file look written `seconds` later than it was.
  static void touch(const std::string& path, int seconds = 5) {
    std::filesystem::last_write_time(
        path, std::filesystem::last_write_time(path) + std::chrono::seconds(seconds));
  }

  void rename(std::string_view from, std::string_view to) const {
    std::filesystem::rename(folder.file(from), folder.file(to));
  }

  void remove(std::string_view name) const { std::filesystem::remove_all(folder.file(name)); }

  Index::BuildResult refresh(bool force = false) { return index.refresh(force); }

  const Index::Entry& entry(const std::string& id) const { return index.entries().at(id); }

  TemporaryFolder folder;
  Config config;
  Instant now = instantFromSeconds(1'790'000'000);
  Index index;
};

// A meeting of its canonical form.
inline Meeting meetingOf(std::string_view json) {
  return Meeting::fromJSON(parseJSON(json)).value();
}

}  // namespace velta::test
