// list-home HOME TIMES: how long the system takes to tell whether a data home changed: to list its
// recordings and look at their files. It prints nanoseconds as JSON, one number a time for each
// way.
//
//   glob_stat     glob(3) for the notes, stat(2) of notes.json, session.json and upload.json
//   glob_stat_one the same, stat(2) of notes.json alone
//   readdir_stat  readdir(3) of the folders instead of glob(3), stat(2) of all three
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <dirent.h>
#include <glob.h>
#include <sys/stat.h>

namespace {

std::size_t statOne(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 ? 1 : 0;
}

std::size_t statBeside(const std::string& notes) {
  const std::string folder = notes.substr(0, notes.rfind('/') + 1);
  return statOne(folder + "session.json") + statOne(folder + "upload.json");
}

std::vector<std::string> globbed(const std::string& home) {
  const std::string pattern = home + "/recordings/*/notes.json";
  std::vector<std::string> paths;
  glob_t found;
  if (::glob(pattern.c_str(), 0, nullptr, &found) == 0) {
    paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  }
  ::globfree(&found);
  return paths;
}

std::vector<std::string> listed(const std::string& home) {
  const std::string folder = home + "/recordings/";
  std::vector<std::string> paths;
  DIR* directory = ::opendir(folder.c_str());
  if (directory == nullptr) return paths;
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] != '.') paths.push_back(folder + entry->d_name + "/notes.json");
  }
  ::closedir(directory);
  return paths;
}

std::size_t globStat(const std::string& home) {
  std::size_t files = 0;
  for (const std::string& path : globbed(home)) files += statOne(path) + statBeside(path);
  return files;
}

std::size_t globStatOne(const std::string& home) {
  std::size_t files = 0;
  for (const std::string& path : globbed(home)) files += statOne(path);
  return files;
}

std::size_t readdirStat(const std::string& home) {
  std::size_t files = 0;
  for (const std::string& path : listed(home)) files += statOne(path) + statBeside(path);
  return files;
}

struct Way {
  const char* name;
  std::size_t (*run)(const std::string& home);
};
constexpr Way kWays[] = {
    {"glob_stat", globStat}, {"glob_stat_one", globStatOne}, {"readdir_stat", readdirStat}};

void measure(const Way& way, const std::string& home, int times) {
  std::printf("\"%s_ns\":[", way.name);
  std::size_t files = 0;
  for (int i = 0; i < times; ++i) {
    const auto start = std::chrono::steady_clock::now();
    files = way.run(home);
    const auto spent = std::chrono::steady_clock::now() - start;
    std::printf("%s%lld", i == 0 ? "" : ",",
                static_cast<long long>(
                    std::chrono::duration_cast<std::chrono::nanoseconds>(spent).count()));
  }
  std::printf("],\"%s_files\":%zu", way.name, files);
}

}  // namespace

int main(int argc, char** argv) {
  const int times = argc == 3 ? std::atoi(argv[2]) : 0;
  if (times <= 0) {
    std::fputs("usage: list-home HOME TIMES\n", stderr);
    return 2;
  }
  std::printf("{");
  for (const Way& way : kWays) {
    if (&way != kWays) std::printf(",");
    measure(way, argv[1], times);
  }
  std::printf("}\n");
  return 0;
}
