#include "BenchFiles.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "GeneratedHome.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"

namespace velta::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSmallHome = 100;  // meetings
constexpr std::size_t kMostSamples = 200;

void write(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

class SmallHome {
 public:
  SmallHome() : folder_(fs::temp_directory_path() / ("velta-bench-" + std::to_string(::getpid()))) {
    const GeneratedHome home(kSmallHome, 1);
    for (std::size_t number = 0; number < kSmallHome; ++number) {
      const GeneratedMeeting meeting = home.meeting(number);
      const fs::path folder = folder_ / "recordings" / meeting.folder;
      fs::create_directories(folder);
      write(folder / "notes.json", meeting.notes);
      write(folder / "session.json", meeting.session);
    }
  }
  SmallHome(const SmallHome&) = delete;
  SmallHome& operator=(const SmallHome&) = delete;
  ~SmallHome() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }

  std::string path() const { return folder_.string(); }

 private:
  fs::path folder_;
};

std::string chosenHome() {
  const char* given = std::getenv("VELTA_BENCH_HOME");
  if (given != nullptr && *given != '\0') return given;
  static const SmallHome home;
  return home.path();
}

std::vector<std::string> readNotes() {
  std::vector<fs::path> folders;
  for (const auto& entry : fs::directory_iterator(benchHome() + "/recordings")) {
    folders.push_back(entry.path());
  }
  std::ranges::sort(folders);
  std::vector<std::string> notes;
  for (std::size_t i = 0; i < std::min(folders.size(), kMostSamples); ++i) {
    notes.emplace_back();
    readPlainly((folders[i] / "notes.json").string(), notes.back());
  }
  return notes;
}

[[noreturn]] void fail(const std::string& path) {
  std::perror(path.c_str());
  std::exit(1);
}

}  // namespace

const std::string& benchHome() {
  static const std::string home = chosenHome();
  return home;
}

const JSONObject& benchConfig() {
  static const JSONObject config = {
      {"sources", JSON::Array{JSONObject{{"type", "recordings"},
                                         {"glob", benchHome() + "/recordings/*/notes.json"}}}},
      {"cloud", JSONObject{{"enabled", false}}}};
  return config;
}

const std::vector<std::string>& sampleNotes() {
  static const std::vector<std::string> notes = readNotes();
  return notes;
}

const std::vector<std::string>& compactNotes() {
  static const std::vector<std::string> notes = [] {
    std::vector<std::string> texts;
    for (const std::string& text : sampleNotes()) texts.push_back(writeCompact(parseJSON(text)));
    return texts;
  }();
  return notes;
}

void readPlainly(const std::string& path, std::string& buffer) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) fail(path);
  struct stat status;
  if (::fstat(file, &status) != 0) fail(path);
  buffer.resize(static_cast<std::size_t>(status.st_size));
  std::size_t done = 0;
  while (done < buffer.size()) {
    const ssize_t count = ::read(file, buffer.data() + done, buffer.size() - done);
    if (count <= 0) fail(path);
    done += static_cast<std::size_t>(count);
  }
  ::close(file);
}

std::size_t bytesOf(const std::vector<std::string>& texts) {
  std::size_t bytes = 0;
  for (const std::string& text : texts) bytes += text.size();
  return bytes;
}

void countBytes(benchmark::State& state, std::size_t bytesEachTime) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytesEachTime) * state.iterations());
}

}  // namespace velta::bench
