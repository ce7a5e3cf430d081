// make-home DIR MEETINGS [SEED]: writes a data home of invented meetings for measuring.
//
// DIR/recordings is what the server reads. DIR/.bench/lines holds the texts of the lines, one file
// a meeting, for other search programs, and DIR/.bench/planted.json the words whose number of
// lines is known; it is written last, so a home that has it is complete.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "GeneratedHome.h"
#include "json/JSONWriter.h"

namespace velta::bench {
namespace {

constexpr const char* kUsage =
    "usage: make-home DIR MEETINGS [SEED]   writes MEETINGS invented meetings (1 to 99999) into "
    "the "
    "new folder DIR";
constexpr std::uint64_t kUsualSeed = 1;
constexpr std::size_t kMostMeetings = 99999;  // the number in a folder's name has five digits

std::optional<std::uint64_t> numberOf(std::string_view text) {
  if (text.empty() || text.size() > 18) return std::nullopt;
  std::uint64_t number = 0;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') return std::nullopt;
    number = number * 10 + static_cast<std::uint64_t>(digit - '0');
  }
  return number;
}

void write(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw std::runtime_error("could not write " + path.string());
}

void makeHome(const std::filesystem::path& home, std::size_t meetings, std::uint64_t seed) {
  const std::filesystem::path recordings = home / "recordings";
  const std::filesystem::path lines = home / ".bench" / "lines";
  std::filesystem::create_directories(recordings);
  std::filesystem::create_directories(lines);
  const GeneratedHome generated(meetings, seed);
  HomeCounts counts;
  for (std::size_t number = 0; number < meetings; ++number) {
    const GeneratedMeeting meeting = generated.meeting(number);
    const std::filesystem::path folder = recordings / meeting.folder;
    std::filesystem::create_directory(folder);
    write(folder / "notes.json", meeting.notes);
    write(folder / "session.json", meeting.session);
    if (!meeting.upload.empty()) write(folder / "upload.json", meeting.upload);
    write(lines / (meeting.folder + ".txt"), meeting.lines);
    counts.add(meeting);
  }
  write(home / ".bench" / "planted.json", writeIndented(counts.toJSON(generated), 2) + '\n');
}

int run(int argc, char** argv) {
  const auto meetings = argc > 2 ? numberOf(argv[2]) : std::nullopt;
  const auto seed = argc > 3 ? numberOf(argv[3]) : kUsualSeed;
  if (argc > 4 || !meetings || *meetings == 0 || *meetings > kMostMeetings || !seed) {
    std::cerr << kUsage << '\n';
    return 2;
  }
  if (std::filesystem::exists(argv[1])) {
    std::cerr << "make-home: " << argv[1] << " is there already. Next step: remove it\n";
    return 1;
  }
  makeHome(argv[1], *meetings, *seed);
  return 0;
}

}  // namespace
}  // namespace velta::bench

int main(int argc, char** argv) {
  try {
    return velta::bench::run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "make-home: " << error.what() << '\n';
    return 1;
  }
}
