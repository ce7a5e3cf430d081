// An index that is refreshed after every change against one that is built anew from the same files.
#include <cstddef>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "index/Index.h"
#include "index/TestHome.h"

namespace velta {
namespace {

using test::TestHome;

// What an index shows of its meetings: by id the title, the key and the visibility.
std::map<std::string, std::tuple<std::string, std::string, std::string>> shownBy(
    const Index& index) {
  std::map<std::string, std::tuple<std::string, std::string, std::string>> shown;
  for (const auto& [id, entry] : index.entries()) {
    shown[id] = {entry.meeting->title, entry.key, entry.visibility};
  }
  return shown;
}

// A home of legacy records, whose ids can be chosen freely, that changes at random.
class ChangingHome : public TestHome {
 public:
  explicit ChangingHome(unsigned seed) : random_(seed) { configureAtRandom(); }

  void change() {
    switch (below(8)) {
      case 0:
        configureAtRandom();
        break;
      case 1:
        remove(folderName());
        break;
      case 2:
        renameAtRandom();
        break;
      default:
        write();
    }
  }

  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_);
  }

 private:
  std::string folderName() {
    return (below(2) == 0 ? "one" : "two") + std::string("/records/") + std::to_string(below(5));
  }

  // Few ids for many folders, so that they collide often.
  void write() {
    const std::string id = std::string(1, static_cast<char>('a' + below(4)));
    const std::string path =
        folder.write(folderName() + "/meeting.json",
                     R"({"id": ")" + id + R"(", "title": ")" + std::to_string(++writes_) + R"("})");
    touch(path, writes_);  // the clock of the file system may be too coarse for two writes
  }

  void renameAtRandom() {
    const std::string from = folderName();
    const std::string to = folderName();
    if (folder.has(from) && !folder.has(to)) {
      std::filesystem::create_directories(std::filesystem::path(folder.file(to)).parent_path());
      rename(from, to);
    }
  }

  std::string legacySource() {
    static const char* const kWords[] = {"private", "work", "shared"};
    return R"({"type": "legacy", "visibility": ")" + std::string(kWords[below(3)]) +
           R"(", "path": ")" + folder.file(below(2) == 0 ? "one" : "two") + R"("})";
  }

  void configureAtRandom() {
    std::string sources;
    for (std::size_t count = below(4); count > 0; --count) {
      sources += (sources.empty() ? "" : ", ") + legacySource();
    }
    configure(R"({"sources": [)" + sources + "]}");
  }

  std::mt19937 random_;
  int writes_ = 0;
};

TEST(RefreshDifferential, ShowsWhatAFreshIndexShowsAfterEveryChange) {
  std::size_t kept = 0;
  for (unsigned seed = 0; seed < 5; ++seed) {
    ChangingHome home(seed);
    for (int step = 0; step < 60; ++step) {
      for (std::size_t changes = home.below(3); changes > 0; --changes) home.change();
      const auto result = home.refresh();
      Index fresh(home.config, [&] { return home.now; });
      const auto expected = fresh.refresh(false);
      ASSERT_EQ(shownBy(home.index), shownBy(fresh)) << "seed " << seed << ", step " << step;
      ASSERT_EQ(result.errors, expected.errors);
      ASSERT_EQ(result.perSource, expected.perSource);
      ASSERT_EQ(result.meetings, expected.meetings);
      ASSERT_EQ(home.index.byKey(), fresh.byKey());
      kept += result.meetings - result.changed;
    }
  }
  EXPECT_GT(kept, 150u);  // the index did not simply read everything each time
}

}  // namespace
}  // namespace velta
