#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/FileLock.h"
#include "platform/Files.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// errno of the failure of `action`, 0 when it does not fail.
template <class Action>
int failureOf(Action action) {
  try {
    action();
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

mode_t modeOf(const std::string& path) { return fileStatus(path).value().permissions; }

// Runs `body` in a process of its own; its exit status, or -1 when a signal ended it.
template <class Body>
int statusInChild(Body body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  int status = 0;
  if (::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

class Umask {
 public:
  explicit Umask(mode_t mask) : old_(::umask(mask)) {}
  ~Umask() { ::umask(old_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t old_;
};

// fileStatus

TEST(FileStatus, NothingThereIsAbsent) {
  const TemporaryFolder folder;
  EXPECT_FALSE(fileStatus(folder.file("missing")));
  EXPECT_FALSE(fileStatus(""));
}

TEST(FileStatus, FileBelowAFileIsAbsent) {
  const TemporaryFolder folder;
  EXPECT_FALSE(fileStatus(folder.write("file", "x") + "/below"));
}

TEST(FileStatus, TellsFilesFromFolders) {
  const TemporaryFolder folder;
  EXPECT_TRUE(fileStatus(folder.path()).value().isDirectory);
  EXPECT_FALSE(fileStatus(folder.write("file", "x")).value().isDirectory);
}

TEST(FileStatus, SymbolicLinksAreFollowed) {
  const TemporaryFolder folder;
  fs::create_directory_symlink(folder.makeFolder("target"), folder.file("link"));
  fs::create_symlink("nowhere", folder.file("dangling"));
  EXPECT_TRUE(fileStatus(folder.file("link")).value().isDirectory);
  EXPECT_FALSE(fileStatus(folder.file("dangling")));
}

TEST(FileStatus, ModificationTimeHasFractions) {
  const TemporaryFolder folder;
  const std::string path = folder.write("file", "x");
  const timespec times[2] = {{1700000000, 0}, {1700000000, 250000000}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  EXPECT_DOUBLE_EQ(fileStatus(path).value().modified, 1700000000.25);
}

TEST(FileStatus, PermissionsAreTheLowTwelveBits) {
  const TemporaryFolder folder;
  const std::string path = folder.write("file", "x");
  ASSERT_EQ(::chmod(path.c_str(), 01640), 0);
  EXPECT_EQ(modeOf(path), 01640U);
}

// readFile

TEST(ReadFile, GivesEveryByteBack) {
  const TemporaryFolder folder;
  const std::string bytes("a\0b\r\n\xFF", 6);
  EXPECT_EQ(readFile(folder.write("file", bytes)), bytes);
}

TEST(ReadFile, EmptyFileIsEmptyText) {
  const TemporaryFolder folder;
  EXPECT_EQ(readFile(folder.write("file", "")), "");
}

TEST(ReadFile, FolderFails) {
  const TemporaryFolder folder;
  EXPECT_EQ(failureOf([&] { readFile(folder.path()); }), EISDIR);
}

TEST(ReadFile, MissingFileFailsAndNamesThePath) {
  const TemporaryFolder folder;
  const std::string path = folder.file("missing");
  EXPECT_EQ(failureOf([&] { readFile(path); }), ENOENT);
  try {
    readFile(path);
  } catch (const std::system_error& error) {
    EXPECT_THAT(error.what(), HasSubstr(path));
  }
}

TEST(ReadFile, BytesAreThoseOfTheText) {
  const TemporaryFolder folder;
  const std::string bytes = std::string(100'000, 'x') + '\0';
  const FileBytes read = readFileBytes(folder.write("file", bytes));
  EXPECT_EQ(read.view(), bytes);
  EXPECT_EQ(readFileBytes(folder.write("empty", "")).view(), "");
  EXPECT_EQ(failureOf([&] { readFileBytes(folder.path()); }), EISDIR);
  EXPECT_EQ(failureOf([&] { readFileBytes(folder.file("missing")); }), ENOENT);
}

TEST(ReadFile, TakesNoMoreRoomThanTheFileNeeds) {
  const TemporaryFolder folder;
  const std::size_t size = 1'000'000;
  const std::string text = readFile(folder.write("big", std::string(size, 'x')));
  EXPECT_EQ(text.size(), size);
  EXPECT_LT(text.capacity(), size + size / 2);
}

TEST(ReadFile, FileWithoutASizeIsReadToItsEnd) {
  // /proc files say size 0 and hold text all the same.
  if (!fileStatus("/proc/self/maps")) GTEST_SKIP() << "no /proc here";
  EXPECT_GT(readFile("/proc/self/maps").size(), 1000U);
}

// createDirectories

TEST(CreateDirectories, MakesMissingParents) {
  const TemporaryFolder folder;
  createDirectories(folder.file("a/b/c"));
  EXPECT_TRUE(fs::is_directory(folder.file("a/b/c")));
}

TEST(CreateDirectories, ExistingFolderIsFine) {
  const TemporaryFolder folder;
  EXPECT_NO_THROW(createDirectories(folder.path()));
  EXPECT_NO_THROW(createDirectories(folder.path() + "/"));
  EXPECT_NO_THROW(createDirectories("/"));
  EXPECT_NO_THROW(createDirectories("."));
}

TEST(CreateDirectories, TrailingSlashMeansTheSameFolder) {
  const TemporaryFolder folder;
  createDirectories(folder.file("a/b/"));
  EXPECT_TRUE(fs::is_directory(folder.file("a/b")));
}

TEST(FileStatus, TellsALinkFromItsTarget) {
  const TemporaryFolder folder;
  folder.write("file", "x");
  std::filesystem::create_symlink("file", folder.file("link"));
  EXPECT_FALSE(fileStatus(folder.file("file"))->isLink);
  EXPECT_TRUE(fileStatus(folder.file("link"))->isLink);
}

TEST(LeadsElsewhere, OnlyLinksOutOfTheirDirectoryDo) {
  const TemporaryFolder folder;
  folder.write("record/real", "x");
  folder.write("outside", "x");
  const auto link = [&](const std::string& target, const std::string& name) {
    std::filesystem::create_symlink(target, folder.file(name));
    return folder.file(name);
  };
  EXPECT_FALSE(leadsElsewhere(folder.file("record/real")));
  EXPECT_FALSE(leadsElsewhere(folder.file("record/nothing")));
  EXPECT_FALSE(leadsElsewhere(link("real", "record/beside")));
  EXPECT_FALSE(leadsElsewhere(link(folder.file("record/beside"), "record/again")));
  folder.write("record/below/it", "x");
  EXPECT_FALSE(leadsElsewhere(link("below/it", "record/in")));
  folder.write("record2", "x");
  EXPECT_TRUE(leadsElsewhere(link("../record2", "record/nextDoor")));
  EXPECT_TRUE(leadsElsewhere(link("../outside", "record/out")));
  EXPECT_TRUE(leadsElsewhere(link("out", "record/outByTwo")));
  EXPECT_TRUE(leadsElsewhere(link("nowhere", "record/dangling")));
  // Where the directory itself is reached through a link, its files are still beside each other.
  link("record", "other");
  EXPECT_FALSE(leadsElsewhere(folder.file("other/beside")));
  EXPECT_TRUE(leadsElsewhere(folder.file("other/out")));
}

TEST(CreateDirectories, LinkToAFolderIsFine) {
  const TemporaryFolder folder;
  fs::create_directory_symlink(folder.makeFolder("target"), folder.file("link"));
  createDirectories(folder.file("link"));
  createDirectories(folder.file("link/below"));
  EXPECT_TRUE(fs::is_directory(folder.file("target/below")));
}

TEST(CreateDirectories, FileInTheWayFails) {
  const TemporaryFolder folder;
  folder.write("file", "x");
  EXPECT_EQ(failureOf([&] { createDirectories(folder.file("file")); }), ENOTDIR);
  EXPECT_EQ(failureOf([&] { createDirectories(folder.file("file/below")); }), ENOTDIR);
}

// writeFileAtomically

TEST(WriteFileAtomically, CreatesTheFileAndItsFolder) {
  const TemporaryFolder folder;
  writeFileAtomically(folder.file("new/folder/file"), "content");
  EXPECT_EQ(folder.read("new/folder/file"), "content");
}

TEST(WriteFileAtomically, ReplacesTheWholeContent) {
  const TemporaryFolder folder;
  const std::string path = folder.write("file", "a long old content");
  writeFileAtomically(path, "new");
  EXPECT_EQ(folder.read("file"), "new");
}

TEST(WriteFileAtomically, LeavesNothingBeside) {
  const TemporaryFolder folder;
  writeFileAtomically(folder.file("file"), "a");
  writeFileAtomically(folder.file("file"), "b");
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST(WriteFileAtomically, WritesANewFileAndNotIntoTheOldOne) {
  const TemporaryFolder folder;
  const std::string path = folder.write("file", "old");
  fs::create_hard_link(path, folder.file("second name"));
  writeFileAtomically(path, "new");
  EXPECT_EQ(folder.read("second name"), "old");
}

TEST(WriteFileAtomically, LinkedFileStaysLinked) {
  const TemporaryFolder folder;
  folder.write("real/file", "old");
  fs::create_symlink("real/file", folder.file("relative"));
  fs::create_symlink(folder.file("relative"), folder.file("absolute"));
  writeFileAtomically(folder.file("absolute"), "new");
  EXPECT_TRUE(fs::is_symlink(folder.file("absolute")));
  EXPECT_TRUE(fs::is_symlink(folder.file("relative")));
  EXPECT_EQ(folder.read("real/file"), "new");
}

TEST(WriteFileAtomically, RelativeLinkCountsFromWhereItReallyStands) {
  const TemporaryFolder folder;
  folder.write("store/file", "old");
  folder.makeFolder("store/inner");
  fs::create_symlink("../file", folder.file("store/inner/link"));
  fs::create_directory_symlink("store/inner", folder.file("shortcut"));
  writeFileAtomically(folder.file("shortcut/link"), "new");
  EXPECT_EQ(folder.read("store/file"), "new");
  EXPECT_FALSE(folder.has("file"));
}

TEST(WriteFileAtomically, DanglingLinkGetsItsTarget) {
  const TemporaryFolder folder;
  fs::create_symlink("later/file", folder.file("link"));
  writeFileAtomically(folder.file("link"), "new");
  EXPECT_EQ(folder.read("later/file"), "new");
  EXPECT_TRUE(fs::is_symlink(folder.file("link")));
}

TEST(WriteFileAtomically, RefusesATargetThatIsNoRegularFile) {
  const TemporaryFolder folder;
  const std::string fifo = folder.file("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  fs::create_symlink(fifo, folder.file("link"));
  for (const std::string& path : {fifo, folder.file("link")}) {
    EXPECT_THROW(writeFileAtomically(path, "new"), std::system_error);
  }
  EXPECT_TRUE(fs::is_fifo(fifo));
}

// A process number that no process has.
pid_t deadProcess() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return child;
}

TEST(RemoveStaleTemporaries, TakesThoseOfDeadProcessesAway) {
  const TemporaryFolder folder;
  const std::string dead = std::to_string(deadProcess());
  folder.write(".velta-" + dead + "-0.tmp", "half");
  folder.write(".velta-" + std::to_string(::getpid()) + "-7.tmp", "under way");
  folder.write(".velta-x.tmp", "not ours");
  folder.write("velta-" + dead + "-0.tmp", "not ours");
  removeStaleTemporaries(folder.path());
  EXPECT_FALSE(fs::exists(folder.file(".velta-" + dead + "-0.tmp")));
  EXPECT_TRUE(fs::exists(folder.file(".velta-" + std::to_string(::getpid()) + "-7.tmp")));
  EXPECT_TRUE(fs::exists(folder.file(".velta-x.tmp")));
  EXPECT_TRUE(fs::exists(folder.file("velta-" + dead + "-0.tmp")));
}

// Its writer may have a number that means nothing here, as in another container.
TEST(RemoveStaleTemporaries, LeavesThoseThatAreLocked) {
  const TemporaryFolder folder;
  const std::string path =
      folder.write(".velta-" + std::to_string(deadProcess()) + "-0.tmp", "under way");
  const FileLock lock(path, std::chrono::milliseconds(0));
  removeStaleTemporaries(folder.path());
  EXPECT_TRUE(fs::exists(path));
}

// After a restart, and in a container, the writer's number belongs to another process.
TEST(RemoveStaleTemporaries, OldOnesThatNobodyLocksGoWhoeverHasTheNumber) {
  const TemporaryFolder folder;
  const std::string self = std::to_string(::getpid());
  for (const std::string name : {"1", "2"}) {
    const std::string path = folder.write(".velta-" + self + "-" + name + ".tmp", "half");
    fs::last_write_time(path, fs::last_write_time(path) - std::chrono::hours(1));
  }
  const FileLock lock(folder.file(".velta-" + self + "-2.tmp"), std::chrono::milliseconds(0));
  removeStaleTemporaries(folder.path());
  EXPECT_THAT(folder.names(), ElementsAre(".velta-" + self + "-2.tmp"));
}

TEST(RemoveStaleTemporaries, TakesOnlyFilesOfItsPrefixDirectlyInTheFolder) {
  const TemporaryFolder folder;
  const std::string dead = std::to_string(deadProcess());
  folder.write(".key." + dead, "half");
  folder.write(".key." + dead + "x", "half");
  folder.write(".keys." + dead, "kept");
  folder.write(".velta-" + dead + "-0.tmp", "kept");
  folder.write("below/.key." + dead, "kept");
  folder.makeFolder(".key." + dead + "-folder");
  fs::create_symlink(folder.write("target", "kept"), folder.file(".key." + dead + "-link"));
  removeStaleTemporaries(folder.path(), ".key.");
  EXPECT_THAT(folder.names(),
              UnorderedElementsAre(".keys." + dead, ".velta-" + dead + "-0.tmp", "below", "target",
                                   ".key." + dead + "-folder", ".key." + dead + "-link"));
  EXPECT_TRUE(folder.has("below/.key." + dead));
}

TEST(RemoveStaleTemporaries, FolderThatIsNotThereIsNoFailure) {
  const TemporaryFolder folder;
  removeStaleTemporaries(folder.file("missing"));
  removeStaleTemporaries(folder.write("file", ""));
}

TEST(DirectoriesOfLinkedFiles, AreThoseOfTheFilesAtTheEnd) {
  const TemporaryFolder folder;
  const std::string home = folder.makeFolder("home");
  folder.write("elsewhere/file", "");
  folder.write("home/plain", "");
  folder.makeFolder("elsewhere/folder");
  fs::create_symlink("../elsewhere/file", home + "/relative");
  fs::create_symlink(folder.file("elsewhere/file"), home + "/absolute");
  fs::create_symlink("plain", home + "/within");
  fs::create_symlink("relative", home + "/chain");
  fs::create_symlink("loop", home + "/loop");
  fs::create_symlink(folder.file("elsewhere/folder"), home + "/folder");
  fs::create_symlink(folder.file("later/file"), home + "/dangling");
  std::vector<std::string> canonical;
  for (const std::string& directory : directoriesOfLinkedFiles(home))
    canonical.push_back(fs::weakly_canonical(directory));
  EXPECT_THAT(canonical, UnorderedElementsAre(folder.file("elsewhere"), folder.file("elsewhere"),
                                              folder.file("later")))
      << "once by its name and once by way of the home";
  EXPECT_THAT(directoriesOfLinkedFiles(folder.file("missing")), IsEmpty());
}

TEST(WriteFileAtomically, FailureNamesTheFileAndNotTheTemporaryOne) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file");
  const int status = statusInChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {0, 0};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    try {
      writeFileAtomically(path, "x");
    } catch (const std::system_error& error) {
      return error.what() == "write " + path + ": " + error.code().message() ? 0 : 1;
    }
    return 2;
  });
  EXPECT_EQ(status, 0);
}

TEST(WriteFileAtomicallyFrom, LeavesTheFileAndNothingBeside) {
  const TemporaryFolder folder;
  folder.makeFolder("new");
  writeFileAtomicallyFrom(folder.path(), folder.file("new/file"), "bytes");
  EXPECT_EQ(folder.read("new/file"), "bytes");
  EXPECT_THAT(folder.names(), ElementsAre("new"));
}

TEST(WriteFileAtomicallyFrom, FailureNamesTheFileAndLeavesNothing) {
  const TemporaryFolder folder;
  try {
    writeFileAtomicallyFrom(folder.path(), folder.file("missing/file"), "bytes");
    FAIL() << "did not throw";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_THAT(error.what(), HasSubstr(folder.file("missing/file")));
  }
  EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(WriteFileAtomically, LoopOfLinksFails) {
  const TemporaryFolder folder;
  fs::create_symlink("b", folder.file("a"));
  fs::create_symlink("a", folder.file("b"));
  EXPECT_EQ(failureOf([&] { writeFileAtomically(folder.file("a"), "x"); }), ELOOP);
}

TEST(WriteFileAtomically, GivenPermissionsHoldWhateverTheUmask) {
  const TemporaryFolder folder;
  const Umask umask(0777);
  writeFileAtomically(folder.file("secret"), "key", 0600);
  writeFileAtomically(folder.file("open"), "text", 0666);
  EXPECT_EQ(modeOf(folder.file("secret")), 0600U);
  EXPECT_EQ(modeOf(folder.file("open")), 0666U);
}

TEST(WriteFileAtomically, GivenPermissionsReplaceTheOldOnes) {
  const TemporaryFolder folder;
  const std::string path = folder.write("file", "old");
  ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
  writeFileAtomically(path, "new", 0600);
  EXPECT_EQ(modeOf(path), 0600U);
}

TEST(WriteFileAtomically, OldPermissionsAreKept) {
  const TemporaryFolder folder;
  const std::string path = folder.write("file", "old");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  writeFileAtomically(path, "new");
  EXPECT_EQ(modeOf(path), 0640U);
}

TEST(WriteFileAtomically, NewFileIs0644LessTheUmask) {
  const TemporaryFolder folder;
  const Umask umask(0027);
  writeFileAtomically(folder.file("file"), "x");
  EXPECT_EQ(modeOf(folder.file("file")), 0640U);
}

// Nothing that appears in the folder while a secret is written is ever readable by others.
TEST(WriteFileAtomically, GivenPermissionsHoldFromTheFirstInstant) {
  const TemporaryFolder folder;
  const Umask umask(0);
  const pid_t writer = ::fork();
  if (writer == 0) {
    const std::string bytes(2'000'000, 'k');
    for (int i = 0; i < 40; ++i) writeFileAtomically(folder.file("secret"), bytes, 0600);
    ::_exit(0);
  }
  int status = 0;
  std::size_t seen = 0;
  while (::waitpid(writer, &status, WNOHANG) == 0) {
    for (const std::string& name : folder.names()) {
      const auto file = fileStatus(folder.file(name));
      if (!file) continue;
      ++seen;
      ASSERT_EQ(file->permissions, 0600U) << name;
    }
  }
  EXPECT_EQ(status, 0);
  EXPECT_GT(seen, 0U);
}

// A reader at any moment sees one whole content.
TEST(WriteFileAtomically, ReaderNeverSeesAMixture) {
  const TemporaryFolder folder;
  const std::string path = folder.write("file", std::string(100'000, 'a'));
  const pid_t writer = ::fork();
  if (writer == 0) {
    for (int i = 0; i < 60; ++i) {
      writeFileAtomically(path, std::string(100'000, i % 2 == 0 ? 'b' : 'a'));
    }
    ::_exit(0);
  }
  int status = 0;
  while (::waitpid(writer, &status, WNOHANG) == 0) {
    const std::string text = readFile(path);
    ASSERT_EQ(text.size(), 100'000U);
    ASSERT_EQ(text.find_first_not_of(text.front()), std::string::npos);
  }
  EXPECT_EQ(status, 0);
}

TEST(WriteFileAtomically, FolderAtTheTargetFailsAndLeavesNothingBeside) {
  const TemporaryFolder folder;
  folder.makeFolder("target");
  EXPECT_EQ(failureOf([&] { writeFileAtomically(folder.file("target"), "x"); }), EISDIR);
  EXPECT_THAT(folder.names(), ElementsAre("target"));
}

TEST(WriteFileAtomically, TooLongANameFailsAndLeavesNothingBeside) {
  const TemporaryFolder folder;
  const std::string name(300, 'n');
  EXPECT_EQ(failureOf([&] { writeFileAtomically(folder.file(name), "x"); }), ENAMETOOLONG);
  EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(WriteFileAtomically, FileWhereTheFolderShouldBeFails) {
  const TemporaryFolder folder;
  folder.write("file", "kept");
  EXPECT_EQ(failureOf([&] { writeFileAtomically(folder.file("file/below"), "x"); }), ENOTDIR);
  EXPECT_EQ(folder.read("file"), "kept");
}

TEST(WriteFileAtomically, FullDiskKeepsTheOldFileAndLeavesNothingBeside) {
  const TemporaryFolder folder;
  const std::string path = folder.write("file", "old");
  // A limit on the size of files stands for a disk that fills up half way.
  const int status = statusInChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {4096, 4096};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return failureOf([&] { writeFileAtomically(path, std::string(100'000, 'x')); });
  });
  EXPECT_EQ(status, EFBIG);
  EXPECT_EQ(folder.read("file"), "old");
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST(WriteFileAtomically, ManyThreadsEachLeaveAWholeFile) {
  const TemporaryFolder folder;
  std::vector<std::thread> writers;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    writers.emplace_back([&folder, letter] {
      for (int i = 0; i < 20; ++i) {
        writeFileAtomically(folder.file("file"), std::string(10'000, letter));
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  const std::string text = folder.read("file");
  EXPECT_EQ(text, std::string(10'000, text.front()));
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

// appendLineToFile

TEST(AppendLineToFile, CreatesTheFileWithItsPermissions) {
  const TemporaryFolder folder;
  const Umask umask(0022);
  appendLineToFile(folder.file("log"), "a\n", 0600);
  EXPECT_EQ(folder.read("log"), "a\n");
  EXPECT_EQ(modeOf(folder.file("log")), 0600U);
}

TEST(AppendLineToFile, KeepsWhatIsThereAndItsPermissions) {
  const TemporaryFolder folder;
  const std::string path = folder.write("log", "a\n");
  ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
  appendLineToFile(path, "b\n", 0600);
  EXPECT_EQ(folder.read("log"), "a\nb\n");
  EXPECT_EQ(modeOf(path), 0644U);
}

TEST(AppendLineToFile, FullDeviceFails) {
  if (!fileStatus("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  EXPECT_EQ(failureOf([] { appendLineToFile("/dev/full", "a\n", 0600); }), ENOSPC);
}

TEST(AppendLineToFile, MissingFolderFails) {
  const TemporaryFolder folder;
  EXPECT_EQ(failureOf([&] { appendLineToFile(folder.file("no/log"), "a\n", 0600); }), ENOENT);
}

TEST(AppendLineToFile, FolderAtTheTargetFails) {
  const TemporaryFolder folder;
  EXPECT_EQ(failureOf([&] { appendLineToFile(folder.path(), "a\n", 0600); }), EISDIR);
}

TEST(AppendLineToFile, EndsALastLineThatWasCutShort) {
  const TemporaryFolder folder;
  const std::string path = folder.write("log", "whole\n{\"half");
  appendLineToFile(path, "next\n", 0600);
  EXPECT_EQ(folder.read("log"), "whole\n{\"half\nnext\n");
}

// errno of appending a line to `path` when no file may be longer than 10 bytes.
int failureToAppendWithinTenBytes(const std::string& path, const std::string& line) {
  return statusInChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {10, 10};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return failureOf([&] { appendLineToFile(path, line, 0600); });
  });
}

TEST(AppendLineToFile, ALineThatDoesNotFitIsTakenBackAndTellsItsOwnCause) {
  const TemporaryFolder folder;
  const std::string path = folder.write("log", "whole\n");
  EXPECT_EQ(failureToAppendWithinTenBytes(path, "longer than that\n"), EFBIG);
  EXPECT_EQ(folder.read("log"), "whole\n");
  appendLineToFile(path, "next\n", 0600);
  EXPECT_EQ(folder.read("log"), "whole\nnext\n");
}

TEST(AppendLineToFile, ALineThatDoesNotFitBehindOneThatWasCutShortLeavesThatAsItWas) {
  const TemporaryFolder folder;
  const std::string path = folder.write("log", "half");
  EXPECT_EQ(failureToAppendWithinTenBytes(path, "longer than that\n"), EFBIG);
  EXPECT_EQ(folder.read("log"), "half");
}

// Whether others have written since cannot be told without the lock.
TEST(AppendLineToFile, WithoutTheLockNothingIsTakenBack) {
  const TemporaryFolder folder;
  const std::string path = folder.write("log", "whole\n");
  const FileLock lock(path, std::chrono::milliseconds(0));
  EXPECT_EQ(failureToAppendWithinTenBytes(path, "longer than that\n"), EFBIG);
  EXPECT_EQ(folder.read("log"), "whole\nlong");
}

TEST(AppendLineToFile, FifoWithoutReaderFailsAtOnce) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.file("log").c_str(), 0600), 0);
  EXPECT_EQ(failureOf([&] { appendLineToFile(folder.file("log"), "a\n", 0600); }), ENXIO);
}

TEST(ReadFile, WhatIsNoRegularFileIsRefusedAtOnce) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.file("fifo").c_str(), 0600), 0);
  EXPECT_EQ(failureOf([&] { readFile(folder.file("fifo")); }), ENOTSUP);
  EXPECT_EQ(failureOf([] { readFile("/dev/zero"); }), ENOTSUP);
}

// globPaths

TEST(GlobPaths, FindsSortedByBytes) {
  const TemporaryFolder folder;
  for (const char* name : {"b/notes.json", "a/notes.json", "B/notes.json", "é/notes.json"}) {
    folder.write(name, "{}");
  }
  EXPECT_THAT(globPaths(folder.file("*/notes.json")),
              ElementsAre(folder.file("B/notes.json"), folder.file("a/notes.json"),
                          folder.file("b/notes.json"), folder.file("é/notes.json")));
}

TEST(GlobPaths, NothingFoundIsAnEmptyList) {
  const TemporaryFolder folder;
  EXPECT_THAT(globPaths(folder.file("*")), IsEmpty());
  EXPECT_THAT(globPaths(folder.file("missing/*/notes.json")), IsEmpty());
  EXPECT_THAT(globPaths(""), IsEmpty());
}

TEST(GlobPaths, FolderThatCannotBeListedIsAnObstacle) {
  const TemporaryFolder folder;
  ASSERT_EQ(::symlink("a", folder.file("a").c_str()), 0);  // a link to itself is no folder to open
  std::error_code obstacle;
  EXPECT_THAT(globPaths(folder.file("a/*/notes.json"), &obstacle), IsEmpty());
  EXPECT_EQ(obstacle.value(), ELOOP);
}

TEST(GlobPaths, FolderThatIsNotThereIsNoObstacle) {
  const TemporaryFolder folder;
  folder.write("file", "");
  std::error_code obstacle;
  const std::string tooLong = std::string(300, 'x') + "/*";
  for (const std::string& pattern :
       {std::string("missing/*"), std::string("missing/*/notes.json"), std::string("file/*"),
        std::string("file/*/notes.json"), tooLong})
    EXPECT_THAT(globPaths(folder.file(pattern), &obstacle), IsEmpty()) << pattern;
  EXPECT_FALSE(obstacle) << obstacle.message();
}

TEST(GlobPaths, FolderThatMayNotBeListedIsAnObstacleAndHidesNoOther) {
  constexpr uid_t kOther = 65534;  // root may list everything, and so stops being root
  const TemporaryFolder folder;
  folder.write("closed/a/notes.json", "{}");
  const std::string open = folder.write("open/a/notes.json", "{}");
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(folder.file("closed").c_str(), 0000), 0);
  const bool isRoot = ::geteuid() == 0;
  if (isRoot) {
    ASSERT_EQ(::seteuid(kOther), 0);
  }
  std::error_code obstacle;
  const auto found = globPaths(folder.file("*/*/notes.json"), &obstacle);
  if (isRoot) {
    ASSERT_EQ(::seteuid(0), 0);
  }
  ::chmod(folder.file("closed").c_str(), 0755);
  EXPECT_THAT(found, ElementsAre(open));
  EXPECT_EQ(obstacle.value(), EACCES);
}

TEST(GlobPaths, HiddenFoldersNeedADot) {
  const TemporaryFolder folder;
  folder.write(".hidden/notes.json", "{}");
  EXPECT_THAT(globPaths(folder.file("*/notes.json")), IsEmpty());
  EXPECT_THAT(globPaths(folder.file(".h*/notes.json")),
              ElementsAre(folder.file(".hidden/notes.json")));
}

TEST(GlobPaths, OddNamesAreFound) {
  const TemporaryFolder folder;
  std::vector<std::string> expected;
  for (const char* name : {"10-12 會議", "a\nb", "[1]", "it's \"q\"", "back\\slash", "trailing ",
                           "星*", "-rf", "emoji 👩‍👩‍👧", "ends in \\", "{a,b}"}) {
    expected.push_back(folder.write(std::string(name) + "/notes.json", "{}"));
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(globPaths(folder.file("*/notes.json")), expected);
}

#ifndef __APPLE__  // whose file system refuses such names
TEST(GlobPaths, NameThatIsNotUTF8IsFound) {
  const TemporaryFolder folder;
  const std::string path = folder.write("not\xFFutf8/notes.json", "{}");
  EXPECT_THAT(globPaths(folder.file("*/notes.json")), ElementsAre(path));
}
#endif

TEST(EscapeForGlob, EscapedFolderFindsOnlyItself) {
  const TemporaryFolder folder;
  for (const char* name :
       {"a[b]", "ab", "a*", "ax", "a?", "back\\slash", "b]", "[", "[]", "[!a]"}) {
    const std::string path = folder.write(std::string(name) + "/x/notes.json", "{}");
    EXPECT_THAT(globPaths(escapeForGlob(folder.file(name)) + "/*/notes.json"), ElementsAre(path))
        << name;
  }
}

TEST(EscapeForGlob, PlainTextIsUnchanged) {
  EXPECT_EQ(escapeForGlob("/Users/王/Application Support"), "/Users/王/Application Support");
  EXPECT_EQ(escapeForGlob(""), "");
}

// Paths

TEST(HomeDirectory, VariableWins) {
  EXPECT_EQ(homeDirectory({{"HOME", "/some/where"}}), "/some/where");
}

TEST(HomeDirectory, EmptyOrMissingVariableAsksThePasswordDatabase) {
  const std::string home = homeDirectory({});
  EXPECT_TRUE(home.starts_with('/'));
  EXPECT_EQ(homeDirectory({{"HOME", ""}}), home);
}

TEST(ExpandTilde, StandsForTheHome) {
  EXPECT_EQ(expandTilde("~", "/home/a"), "/home/a");
  EXPECT_EQ(expandTilde("~/notes", "/home/a"), "/home/a/notes");
  EXPECT_EQ(expandTilde("~/", "/home/a"), "/home/a/");
}

TEST(ExpandTilde, NamesAnotherUser) {
  const std::string own = expandTilde("~root/notes", "/home/a");
  EXPECT_TRUE(own.starts_with('/'));
  EXPECT_TRUE(own.ends_with("/notes"));
  EXPECT_EQ(own.find("/home/a"), std::string::npos);
}

TEST(ExpandTilde, AnythingElseIsUnchanged) {
  for (const char* path : {"", "/a/~", "a~", "./~", "notes", "~no-such-user-here/x", "\\~"}) {
    EXPECT_EQ(expandTilde(path, "/home/a"), path);
  }
}

TEST(AbsolutePath, EmptyAndDotComponentsGo) {
  EXPECT_EQ(absolutePath("/a//b/./c/"), "/a/b/c");
  EXPECT_EQ(absolutePath("/"), "/");
  EXPECT_EQ(absolutePath("//./"), "/");
  EXPECT_EQ(absolutePath("/a/../b"), "/a/../b");
  EXPECT_EQ(absolutePath("./x"), fs::current_path().string() + "/x");
  EXPECT_EQ(absolutePath("."), fs::current_path().string());
}

TEST(AbsolutePath, RelativePathStartsAtTheCurrentFolder) {
  const std::string current = fs::current_path();
  EXPECT_EQ(absolutePath("notes/a"), joinPath(current, "notes/a"));
  EXPECT_EQ(absolutePath("notes/"), joinPath(current, "notes"));
}

TEST(AbsolutePath, AbsolutePathLosesOnlyTrailingSlashes) {
  EXPECT_EQ(absolutePath("/a/b"), "/a/b");
  EXPECT_EQ(absolutePath("/a/b///"), "/a/b");
  EXPECT_EQ(absolutePath("/"), "/");
  EXPECT_EQ(absolutePath("//"), "/");
}

TEST(JoinPath, PutsOneSlashBetween) {
  EXPECT_EQ(joinPath("/a", "b"), "/a/b");
  EXPECT_EQ(joinPath("/a/", "b"), "/a/b");
  EXPECT_EQ(joinPath("/", "b"), "/b");
}

TEST(ParentPath, IsEverythingBeforeTheLastSlash) {
  EXPECT_EQ(parentPath("/a/b"), "/a");
  EXPECT_EQ(parentPath("a/b"), "a");
  EXPECT_EQ(parentPath("/a"), "/");
  EXPECT_EQ(parentPath("a"), ".");
}

TEST(LastComponent, IsEverythingAfterTheLastSlash) {
  EXPECT_EQ(lastComponent("/a/b"), "b");
  EXPECT_EQ(lastComponent("b"), "b");
  EXPECT_EQ(lastComponent("/a/"), "");
}

// --- createNewDirectory, isExecutableFile
// ----------------------------------------------------------

TEST(CreateNewDirectory, SaysWhetherItMadeIt) {
  const TemporaryFolder folder;
  EXPECT_TRUE(createNewDirectory(folder.file("new")));
  EXPECT_TRUE(fs::is_directory(folder.file("new")));
  EXPECT_FALSE(createNewDirectory(folder.file("new")));
  EXPECT_FALSE(createNewDirectory(folder.write("file", "")));
  fs::create_symlink("/nowhere", folder.file("dangling"));
  EXPECT_FALSE(createNewDirectory(folder.file("dangling")));
}

TEST(CreateNewDirectory, OtherFailuresThrow) {
  const TemporaryFolder folder;
  EXPECT_EQ(failureOf([&] { createNewDirectory(folder.file("missing/new")); }), ENOENT);
  folder.write("file", "");
  EXPECT_EQ(failureOf([&] { createNewDirectory(folder.file("file/new")); }), ENOTDIR);
}

TEST(CreateNewDirectory, OfSeveralAtOnceOneMakesIt) {
  const TemporaryFolder folder;
  std::atomic<int> made{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread)
    threads.emplace_back([&] {
      for (int number = 0; number < 100; ++number)
        if (createNewDirectory(folder.file(std::to_string(number)))) ++made;
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(made, 100);
}

TEST(IsExecutableFile, OnlyAFileWithThePermissionIs) {
  const TemporaryFolder folder;
  const std::string program = folder.write("program", "");
  EXPECT_FALSE(isExecutableFile(program));
  fs::permissions(program, fs::perms::owner_all);
  EXPECT_TRUE(isExecutableFile(program));
  fs::create_symlink(program, folder.file("link"));
  EXPECT_TRUE(isExecutableFile(folder.file("link")));
  EXPECT_FALSE(isExecutableFile(folder.path()));
  EXPECT_FALSE(isExecutableFile(folder.file("missing")));
}

// --- readFileEnd
// -----------------------------------------------------------------------------------

// The last `lines` pieces of `text` between line feeds, found the plain way.
std::string endOf(const std::string& text, std::size_t lines) {
  std::vector<std::string> pieces(1);
  for (const char c : text) {
    if (c == '\n') {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
    }
  }
  std::string end;
  const std::size_t first = pieces.size() - std::min(lines, pieces.size());
  for (std::size_t i = first; i < pieces.size(); ++i) {
    if (i != first) end += '\n';
    end += pieces[i];
  }
  return end;
}

TEST(ReadFileEnd, AgreesWithAPlainSplit) {
  std::mt19937 random(20261012);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts every time
  const auto below = [&](std::size_t limit) { return random() % limit; };
  const TemporaryFolder folder;
  for (int round = 0; round < 200; ++round) {
    // Short texts with many line feeds up to long ones with few, around the size of the first read.
    std::string text(below(round % 2 == 0 ? 60 : 70000), 'x');
    const std::size_t feeds = below(30);
    for (std::size_t feed = 0; feed < feeds && !text.empty(); ++feed)
      text[below(text.size())] = '\n';
    if (round % 3 == 0) text += '\n';
    const std::string path = folder.write("log", text);
    for (const std::size_t lines : {1U, 2U, 15U})
      EXPECT_EQ(readFileEnd(path, lines, std::size_t{1} << 20U), endOf(text, lines))
          << "round " << round << ", lines " << lines;
  }
}

TEST(ReadFileEnd, LineFeedOnEitherSideOfTheFirstReadIsFound) {
  constexpr std::size_t kFirstRead = std::size_t{16} * 1024;
  const TemporaryFolder folder;
  for (std::size_t length = kFirstRead - 2; length <= kFirstRead + 2; ++length) {
    const std::string path = folder.write("log", "before\n" + std::string(length, 'x'));
    EXPECT_EQ(readFileEnd(path, 1, std::size_t{1} << 20U), std::string(length, 'x')) << length;
  }
}

TEST(ReadFileEnd, LongLinesAreCutAtACharacter) {
  const TemporaryFolder folder;
  std::string text;
  for (int count = 0; count < 10; ++count) text += "會";  // three bytes each
  const std::string path = folder.write("log", text);
  EXPECT_EQ(readFileEnd(path, 1, 30), text);
  EXPECT_EQ(readFileEnd(path, 1, 9), "會會會");
  EXPECT_EQ(readFileEnd(path, 1, 8), "會會");
  EXPECT_EQ(readFileEnd(path, 1, 7), "會會");
  EXPECT_EQ(readFileEnd(path, 1, 2), "");
  EXPECT_EQ(readFileEnd(folder.write("log", "a\nbcd"), 2, 4), "\nbcd");
}

TEST(ReadFileEnd, OfAnEmptyFileIsEmpty) {
  const TemporaryFolder folder;
  EXPECT_EQ(readFileEnd(folder.write("log", ""), 15, 100), "");
}

TEST(ReadFileEnd, WhatIsNoRegularFileThrows) {
  const TemporaryFolder folder;
  const auto failure = [](const std::string& path) {
    return failureOf([&] { readFileEnd(path, 15, 100); });
  };
  EXPECT_EQ(failure(folder.path()), EISDIR);
  EXPECT_EQ(failure(folder.file("missing")), ENOENT);
  EXPECT_EQ(failure("/dev/null"), ENOTSUP);
  ASSERT_EQ(::mkfifo(folder.file("fifo").c_str(), 0600), 0);
  EXPECT_EQ(failure(folder.file("fifo")), ENOTSUP);
}

// --- paths with a NUL byte ----------------------------------------------------------------------

TEST(PathWithANULByte, NamesNothing) {
  const TemporaryFolder folder;
  const std::string path = folder.write("file", "x") + '\0' + "rest";
  EXPECT_FALSE(fileStatus(path).has_value());
  EXPECT_EQ(failureOf([&] { readFile(path); }), ENOENT);
  EXPECT_THAT(globPaths(path), testing::IsEmpty());
}

}  // namespace
}  // namespace velta
