// Every file that the program writes, on a system that is out of something: no room, no right to
// write, no descriptors, no standard streams, or something else where a file ought to be.

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ios>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <sched.h>
#include <sys/mount.h>
#endif

#include "faults/Writes.h"
#include "support/Sanitized.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using test::callOf;
using test::Place;
using test::Reference;
using test::runProgram;
using test::ServerProcess;
using test::Tree;
using test::Write;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::Range;

std::string nameOfWrite(const testing::TestParamInfo<std::size_t>& one) {
  return test::writes()[one.param].name;
}

// A test for each way to write a file.
class EveryWrite : public testing::TestWithParam<std::size_t> {
 protected:
  const Write& write() const { return test::writes()[GetParam()]; }
};

INSTANTIATE_TEST_SUITE_P(Limits, EveryWrite, Range(std::size_t{0}, test::writes().size()),
                         nameOfWrite);

// --- limits of a process

TEST_P(EveryWrite, SizeLimitOfFilesLeavesOldOrNewAndEndsNothing) {
  const Reference reference(write());
  for (const std::string blocks : {"0", "1", "2"}) {
    SCOPED_TRACE("ulimit -f " + blocks);
    const Place place(write());
    // SIGXFSZ has its default here, which ends a program.
    const auto ending = place.runUnder("ulimit -f " + blocks);
    EXPECT_EQ(ending.signal, 0);
    reference.expectOldOrNew(place, /*killed=*/false);
    reference.expectClear(place, ending, std::strerror(EFBIG));
    reference.expectNextRunMendsIt(place);
  }
}

TEST_P(EveryWrite, FewDescriptorsLeaveOldOrNewAndEndNothing) {
#ifndef __linux__
  GTEST_SKIP() << "how many a program needs to be loaded is known of Linux only";
#endif
  const Reference reference(write());
  // With fewer the system cannot load the program, or the sanitizers' own look at memory fails,
  // which takes a pipe.
  constexpr int kFewest = test::kSanitized ? 7 : 4;
  for (int most = kFewest; most <= 9; ++most) {
    SCOPED_TRACE("ulimit -n " + std::to_string(most));
    const Place place(write());
    const auto ending = place.runUnder("ulimit -n " + std::to_string(most));
    EXPECT_EQ(ending.signal, 0);
    EXPECT_NE(ending.status, 127) << ending.output;
    EXPECT_THAT(ending.output, Not(HasSubstr("terminate called")));
    reference.expectOldOrNew(place, /*killed=*/false);
    // The web service may be out of reach for want of a descriptor, which is told otherwise.
    if (!place.service) reference.expectClear(place, ending, std::strerror(EMFILE));
    reference.expectNextRunMendsIt(place);
  }
}

// --- file systems

#ifdef __linux__

// Whether this process may mount what only it and its children see, and what goes with it.
bool mayMount() {
  static const bool may = ::unshare(CLONE_NEWNS) == 0 &&
                          ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return may;
}

// A file system in memory of 1 MiB.
class SmallDisk {
 public:
  explicit SmallDisk(std::string folder) : folder_(std::move(folder)) {
    if (::mount("none", folder_.c_str(), "tmpfs", 0, "size=1m") != 0)
      throw std::runtime_error("cannot mount: " + std::string(std::strerror(errno)));
  }
  ~SmallDisk() { ::umount2(folder_.c_str(), MNT_DETACH); }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  void setReadOnly(bool readOnly) const {
    unsigned long flags = MS_REMOUNT;
    if (readOnly) flags |= MS_RDONLY;
    if (::mount("none", folder_.c_str(), nullptr, flags, "size=1m") != 0)
      throw std::runtime_error("cannot remount: " + std::string(std::strerror(errno)));
  }

  // Leaves room for so many blocks of 4 KiB.
  void fill(int blocksLeft) const {
    std::ofstream(folder_ + "/spare", std::ios::binary) << std::string(4096 * blocksLeft, 's');
    std::ofstream filler(folder_ + "/filler", std::ios::binary);
    const std::string block(4096, 'f');
    while (filler.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) continue;
    filler.close();
    fs::remove(folder_ + "/spare");
  }
  void makeRoom() const { fs::remove(folder_ + "/filler"); }

 private:
  std::string folder_;
};

// The home on such a disk.
struct PlaceOnDisk {
  explicit PlaceOnDisk(const Write& write)
      : place(write, [this](const std::string& home) { disk.emplace(home); }) {}
  ~PlaceOnDisk() { disk.reset(); }  // before the folder that it is mounted on
  PlaceOnDisk(const PlaceOnDisk&) = delete;
  PlaceOnDisk& operator=(const PlaceOnDisk&) = delete;

  std::optional<SmallDisk> disk;
  Place place;
};

TEST_P(EveryWrite, FullDiskLeavesOldOrNewAndTellsIt) {
  if (!mayMount()) GTEST_SKIP() << "needs the right to mount";
  const Reference reference(write());
  for (const int left : {0, 1, 2}) {
    SCOPED_TRACE(std::to_string(left) + " blocks left");
    PlaceOnDisk on(write());
    on.disk->fill(left);
    const auto ending = on.place.run();
    EXPECT_EQ(ending.signal, 0);
    on.disk->makeRoom();
    reference.expectOldOrNew(on.place, /*killed=*/false);
    reference.expectClear(on.place, ending, std::strerror(ENOSPC));
    reference.expectNextRunMendsIt(on.place);
  }
}

TEST_P(EveryWrite, ReadOnlyDiskIsToldAndLeftAlone) {
  if (!mayMount()) GTEST_SKIP() << "needs the right to mount";
  const Reference reference(write());
  PlaceOnDisk on(write());
  const Tree before = on.place.tree();
  on.disk->setReadOnly(true);
  const auto ending = on.place.run();
  EXPECT_EQ(ending.signal, 0);
  EXPECT_EQ(on.place.tree(), before);
  reference.expectClear(on.place, ending, std::strerror(EROFS));
  on.disk->setReadOnly(false);
  reference.expectNextRunMendsIt(on.place);
}

#endif

// As an ordinary user, for root may write everywhere.
TEST_P(EveryWrite, FolderWithoutTheRightToWriteIsTold) {
  if (::geteuid() != 0) GTEST_SKIP() << "changes the user, which only root may";
  const std::string setpriv = "/usr/bin/setpriv";
  if (!fs::exists(setpriv)) GTEST_SKIP() << "needs setpriv";
  const Reference reference(write());
  const Place place(write());
  ASSERT_EQ(::chmod(place.root.path().c_str(), 0755), 0);
  for (const auto& entry : fs::recursive_directory_iterator(place.home)) {
    const bool isPrivate =
        (entry.status().permissions() & fs::perms::others_read) == fs::perms::none;
    if (!entry.is_regular_file() || !isPrivate) continue;
    ASSERT_EQ(::chown(entry.path().c_str(), 65534, 65534), 0);  // it is the user's own
  }
  const Tree before = place.tree();
  ServerProcess::Options options = place.options();
  options.program = setpriv;
  options.arguments = {"--reuid=65534", "--regid=65534", "--clear-groups", VELTA_BINARY};
  options.arguments.insert(options.arguments.end(), write().arguments.begin(),
                           write().arguments.end());
  const auto ending = runProgram(options, write().input(place));
  EXPECT_EQ(ending.signal, 0);
  EXPECT_EQ(place.tree(), before);
  reference.expectClear(place, ending, std::strerror(EACCES));
}

// --- standard streams

// `redirection` of a shell instead of the pipe.
ServerProcess::Options redirected(const Place& place, const std::string& redirection) {
  ServerProcess::Options options = place.options();
  options.program = "/bin/sh";
  options.arguments = {"-c", "exec \"$0\" \"$@\" " + redirection, VELTA_BINARY};
  options.arguments.insert(options.arguments.end(), place.write.arguments.begin(),
                           place.write.arguments.end());
  return options;
}

TEST_P(EveryWrite, GoesOnWithoutStandardError) {
  const Reference reference(write());
  for (const std::string redirection : {"2>&-", "2>/dev/full"}) {
    SCOPED_TRACE(redirection);
    const Place place(write());
    const auto ending = runProgram(redirected(place, redirection), write().input(place));
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.errors, "");
    EXPECT_THAT(ending.output, HasSubstr(write().claim));
    // Nothing that was meant for standard error got into a file that took its place.
    reference.expectOldOrNew(place, /*killed=*/false);
    reference.expectClear(place, ending, "nothing");
  }
}

TEST_P(EveryWrite, OutputThatNobodyTakesSpoilsNoFile) {
  const Reference reference(write());
  for (const std::string redirection :
       {">&-", ">/dev/full", "<&-", ">&- 2>&-", "<&- >&- 2>&-", "</dev/null >/dev/full 2>&-"}) {
    SCOPED_TRACE(redirection);
    const Place place(write());
    const auto ending = runProgram(redirected(place, redirection), write().input(place));
    EXPECT_EQ(ending.signal, 0);
    EXPECT_THAT(ending.status, testing::AnyOf(0, 1));
    reference.expectOldOrNew(place, /*killed=*/false);
    reference.expectNextRunMendsIt(place);
  }
}

// --- something else in the place of a file

struct Obstacle {
  std::string write;  // by its name
  std::string path;   // what stands in its place: a folder, or a file where a folder ought to be
  bool isFolder;
  std::string told;  // HOME stands for the data home
};

const std::vector<Obstacle>& obstacles() {
  static const std::vector<Obstacle> all = {
      {"ActivityLog", "activity.jsonl", true,
       "could not write the activity log HOME/activity.jsonl (Is a directory); calls still run"},
      {"ActivityLogElsewhere", "else", false,
       "could not write the activity log HOME/else/where/activity.jsonl (Not a directory)"},
      {"NewConfiguration", "mcp-config.json", true, ""},
      {"NewDictionary", "dictionary.json", true,
       "could not save HOME/dictionary.json: Is a directory. Nothing was changed. Next step: "},
      {"Recording", "recordings", false,
       "Error executing tool process_recording: create directory HOME/recordings: Not a directory"},
      {"Recording", "jobs", false,
       "Error executing tool process_recording: The pipeline is running, but its job record could "
       "not be saved, so get_job will not find it. Do not start it again; the meeting appears in "
       "list_meetings when it is done. Cause: create directory HOME/jobs: Not a directory"},
      {"WebCache", "velta-mcp-cloud-cache.json", true,
       "web meetings: the cache could not be written (Is a directory)"},
      {"ConnectionKey", "cloud-token", true,
       "Not saved: could not write HOME/cloud-token: Is a directory"},
  };
  return all;
}

std::string withHome(std::string text, const std::string& home) {
  for (std::size_t at = text.find("HOME"); at != std::string::npos; at = text.find("HOME"))
    text.replace(at, 4, home);
  return text;
}

TEST(Obstacles, AreNamedAndKept) {
  for (const Obstacle& obstacle : obstacles()) {
    SCOPED_TRACE(obstacle.write + " " + obstacle.path);
    const auto write = std::ranges::find(test::writes(), obstacle.write, &Write::name);
    ASSERT_NE(write, test::writes().end());
    const Place place(*write);
    fs::remove_all(place.home + "/" + obstacle.path);
    place.put(obstacle.path + (obstacle.isFolder ? "/kept" : ""), "kept");
    const Tree before = place.tree();
    const auto ending = place.run();
    EXPECT_EQ(ending.signal, 0);
    EXPECT_THAT(ending.output + ending.errors, HasSubstr(withHome(obstacle.told, place.home)));
    const Tree after = place.tree();
    for (const auto& [name, content] : before) {
      const auto found = after.find(name);
      ASSERT_NE(found, after.end()) << name;
      EXPECT_TRUE(found->second == content || name.ends_with("activity.jsonl")) << name;
    }
    for (const auto& [name, content] : after) EXPECT_THAT(name, Not(HasSubstr(".velta"))) << name;
  }
}

// A home that is a file, that a link leads nowhere to, or whose parent is a file.
TEST(HomeThatIsNone, IsToldByEveryWriteAndKept) {
  const auto homes = std::vector<std::pair<std::string, std::string>>{
      {"file", "Not a directory"}, {"file/below", "Not a directory"}, {"loop", "Too many levels"}};
  for (const Write& write : test::writes()) {
    if (write.name != "NewDictionary" && write.name != "Recording" &&
        write.name != "ConnectionKey" && write.name != "Disconnect")
      continue;
    for (const auto& [home, cause] : homes) {
      SCOPED_TRACE(write.name + " in " + home);
      Place place(write);
      place.put("file", "kept");
      place.link("loop", "loop");
      place.environment["MEETING_MCP_AGENTS"] = place.home + "/agents.json";
      place.environment["MEETING_NOTES_HOME"] = place.home + "/" + home;
      const auto ending = place.run();
      EXPECT_EQ(ending.signal, 0);
      const std::string said = ending.output + ending.errors;
      if (write.name == "Disconnect") {
        EXPECT_EQ(ending.output, "No saved key on this Mac\n");
      } else {
        EXPECT_THAT(said, HasSubstr(place.home + "/" + home));
        EXPECT_THAT(said, testing::AnyOf(HasSubstr(cause), HasSubstr("Not a directory")));
      }
      EXPECT_EQ(place.root.read("home/file"), "kept");
    }
  }
}

TEST(HomeThatIsNone, DanglingLinkIsNotReplaced) {
  const auto& writes = test::writes();
  const auto write = std::ranges::find(writes, "NewDictionary", &Write::name);
  Place place(*write);
  place.link("link", "not/there");
  place.environment["MEETING_MCP_AGENTS"] = place.home + "/agents.json";
  place.environment["MEETING_NOTES_HOME"] = place.home + "/link";
  const auto ending = place.run();
  EXPECT_EQ(ending.signal, 0);
  EXPECT_THAT(ending.output, HasSubstr("could not save " + place.home + "/link/dictionary.json"));
  EXPECT_TRUE(fs::is_symlink(place.home + "/link"));
}

// --- the tests' own means

TEST(ServerProcess, ProgramThatCannotStartLeavesNoFileAndNoDescriptor) {
  const auto descriptors = [] {
    int count = 0;
    for (int descriptor = 0; descriptor < 256; ++descriptor)
      count += ::fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    return count;
  };
  const int before = descriptors();
  for (const auto errors : {ServerProcess::Errors::kept, ServerProcess::Errors::unread,
                            ServerProcess::Errors::closed}) {
    EXPECT_THROW(ServerProcess({.errors = errors, .program = "/no/such/program"}),
                 std::runtime_error);
  }
  EXPECT_EQ(descriptors(), before);
}

}  // namespace
}  // namespace velta
