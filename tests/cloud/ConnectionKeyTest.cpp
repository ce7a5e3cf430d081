#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <system_error>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cloud/ConnectionKey.h"
#include "cloud/FakeService.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

using test::kTestKey;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

const std::string kSecondKey = "velta_pat_" + std::string(43, 'Z');
const std::string kKeyNextStep =
    "Next step: create a key on the web page 連接 AI and run `velta-mcp connect` (the binary "
    "inside "
    "Velta.app, see mcp/README.md)";

// The umask of the process, replaced for as long as the object lives.
class Umask {
 public:
  explicit Umask(mode_t mask) : old_(::umask(mask)) {}
  ~Umask() { ::umask(old_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t old_;
};

mode_t modeOf(const std::string& path) {
  struct stat info = {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777U;
}

class LoadKey : public testing::Test {
 protected:
  void writeKeyFile(std::string_view content, mode_t mode = 0600) {
    folder_.write("cloud-token", content);
    ASSERT_EQ(::chmod(path_.c_str(), mode), 0);
  }

  void setVariable(const std::string& value) { config_.env["VELTA_TOKEN"] = value; }

  void expectKey(const std::string& key, const std::string& source) const {
    const auto loaded = loadKey(config_);
    ASSERT_TRUE(std::holds_alternative<ConnectionKey>(loaded)) << std::get<NoKey>(loaded).reason;
    EXPECT_EQ(std::get<ConnectionKey>(loaded).key, key);
    EXPECT_EQ(std::get<ConnectionKey>(loaded).source, source);
  }

  void expectNoKey(const std::string& reason, bool isAbsent = false) const {
    const auto loaded = loadKey(config_);
    ASSERT_TRUE(std::holds_alternative<NoKey>(loaded));
    EXPECT_EQ(std::get<NoKey>(loaded).reason, reason);
    EXPECT_EQ(std::get<NoKey>(loaded).isAbsent, isAbsent);
  }

  std::string notInFile() const {
    return path_ + " does not hold a Velta connection key. " + kKeyNextStep;
  }

  TemporaryFolder folder_;
  Config config_{folder_.path(), {}};
  std::string path_ = folder_.file("cloud-token");
};

const std::string kNotInVariable =
    "env VELTA_TOKEN is not a Velta connection key (velta_pat_ plus 43 characters). " +
    kKeyNextStep;

TEST_F(LoadKey, WithoutVariableAndFileIsNotConnected) { expectNoKey("not connected", true); }

TEST_F(LoadKey, WithoutDataHomeIsNotConnected) {
  config_.home = folder_.file("nowhere/at all");
  expectNoKey("not connected", true);
}

TEST_F(LoadKey, TheFileIsTheSourceOfItsKey) {
  writeKeyFile(kTestKey + "\n");
  EXPECT_EQ(keyFile(config_), path_);
  expectKey(kTestKey, path_);
}

TEST_F(LoadKey, TheVariableWinsOverTheFile) {
  writeKeyFile(kTestKey + "\n");
  setVariable(kSecondKey);
  expectKey(kSecondKey, "env VELTA_TOKEN");
}

TEST_F(LoadKey, ABlankVariableFallsThroughToTheFile) {
  writeKeyFile(kTestKey + "\n");
  for (const char* blank : {"", " ", "\n", " \t\r\n ", "\u3000", "\u00A0\u2028"}) {
    setVariable(blank);
    expectKey(kTestKey, path_);
  }
}

TEST_F(LoadKey, ABlankVariableWithoutAFileIsNotConnected) {
  setVariable("  \n");
  expectNoKey("not connected", true);
}

TEST_F(LoadKey, ABadVariableIsNotOverriddenByAGoodFile) {
  writeKeyFile(kTestKey + "\n");
  for (const std::string& bad : {std::string("x"), kTestKey + "y", kTestKey.substr(0, 52),
                                 "Velta" + kTestKey.substr(5), kTestKey + " " + kTestKey}) {
    setVariable(bad);
    expectNoKey(kNotInVariable);
  }
}

TEST_F(LoadKey, SpaceAroundTheKeyIsTrimmed) {
  for (const std::string& given :
       {kTestKey, kTestKey + "\n", "  " + kTestKey + " \r\n\n", "\u3000" + kTestKey + "\u3000",
        "\t\u00A0" + kTestKey + "\u2029\n"}) {
    setVariable("");
    writeKeyFile(given);
    expectKey(kTestKey, path_);
    setVariable(given);
    expectKey(kTestKey, "env VELTA_TOKEN");
  }
}

TEST_F(LoadKey, WhatIsNoKeyIsRefusedFromEitherPlace) {
  const std::string rest = kTestKey.substr(10);
  for (const std::string& bad :
       {kTestKey.substr(0, 52), kTestKey + "a", "velta_pat_." + rest.substr(1),
        "velta_pat_+" + rest.substr(1), "velta_pat_" + rest.substr(0, 42) + "\u00E9",
        "velta_pat" + rest + "0", "VELTA_PAT_" + rest, rest, "velta_pat_" + rest + "\nmore",
        kTestKey.substr(0, 30) + "\n" + kTestKey.substr(30), std::string("velta_pat_")}) {
    setVariable("");
    writeKeyFile(bad);
    expectNoKey(notInFile());
    setVariable(bad);
    expectNoKey(kNotInVariable);
  }
}

TEST_F(LoadKey, AnEmptyFileHoldsNoKey) {
  writeKeyFile("");
  expectNoKey(notInFile());
}

TEST_F(LoadKey, AFileThatOthersMayTouchIsNotUsed) {
  for (const mode_t mode : std::initializer_list<mode_t>{0644, 0640, 0620, 0610, 0604, 0602, 0601,
                                                         0660, 0666, 0777, 0677}) {
    writeKeyFile(kTestKey + "\n", mode);
    expectNoKey(path_ +
                " can be read by other users of this Mac, so it is not used. Next step: run `chmod "
                "600 '" +
                path_ + "'`, or run `velta-mcp connect` again");
  }
}

TEST_F(LoadKey, AFileOfTheOwnerAloneIsUsedWhateverTheOwnerMay) {
  for (const mode_t mode : std::initializer_list<mode_t>{0600, 0400, 0700, 0500}) {
    writeKeyFile(kTestKey + "\n", mode);
    expectKey(kTestKey, path_);
    ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);  // to be written again
  }
}

TEST_F(LoadKey, ALooseFileIsNotEvenRead) {
  // A file that cannot be read says so only when its mode is looked at first.
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  ASSERT_EQ(::chmod(path_.c_str(), 0644), 0);
  EXPECT_THAT(std::get<NoKey>(loadKey(config_)).reason, HasSubstr("can be read by other users"));
}

TEST_F(LoadKey, ALinkHasTheModeOfItsTarget) {
  folder_.write("elsewhere", kTestKey);
  ASSERT_EQ(::chmod(folder_.file("elsewhere").c_str(), 0644), 0);
  std::filesystem::create_symlink("elsewhere", path_);
  EXPECT_THAT(std::get<NoKey>(loadKey(config_)).reason, HasSubstr("can be read by other users"));
  ASSERT_EQ(::chmod(folder_.file("elsewhere").c_str(), 0600), 0);
  expectKey(kTestKey, path_);
}

TEST_F(LoadKey, AFileThatIsNoUTF8CannotBeRead) {
  writeKeyFile(kTestKey + "\n\xFF");
  expectNoKey("cannot read " + path_);
}

TEST_F(LoadKey, AFolderCannotBeRead) {
  folder_.makeFolder("cloud-token");
  ASSERT_EQ(::chmod(path_.c_str(), 0700), 0);
  expectNoKey("cannot read " + path_);
}

TEST_F(LoadKey, APipeCannotBeReadAndHoldsNothingUp) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  expectNoKey("cannot read " + path_);
}

TEST_F(LoadKey, AFileWithoutTheRightToReadCannotBeRead) {
  if (::geteuid() == 0) GTEST_SKIP() << "root may read everywhere";
  writeKeyFile(kTestKey + "\n", 0200);
  expectNoKey("cannot read " + path_);
}

TEST_F(LoadKey, NothingIsKeptBetweenCalls) {
  writeKeyFile(kTestKey);
  expectKey(kTestKey, path_);
  writeKeyFile(kSecondKey);
  expectKey(kSecondKey, path_);
  std::filesystem::remove(path_);
  expectNoKey("not connected", true);
}

TEST_F(LoadKey, NoReasonShowsTheKey) {
  writeKeyFile(kTestKey + "\n", 0644);
  EXPECT_THAT(std::get<NoKey>(loadKey(config_)).reason, Not(HasSubstr("0123456789")));
  writeKeyFile(kTestKey + "+\n");
  EXPECT_THAT(std::get<NoKey>(loadKey(config_)).reason, Not(HasSubstr("0123456789")));
  setVariable(kTestKey + "+");
  EXPECT_THAT(std::get<NoKey>(loadKey(config_)).reason, Not(HasSubstr("0123456789")));
}

TEST(ConnectionKey, IsThePrefixAndExactly43Characters) {
  EXPECT_TRUE(isConnectionKey(kTestKey));
  EXPECT_TRUE(isConnectionKey("velta_pat_" + std::string(43, '-')));
  EXPECT_TRUE(isConnectionKey("velta_pat_" + std::string(43, '_')));
  EXPECT_FALSE(isConnectionKey("velta_pat_" + std::string(42, 'a')));
  EXPECT_FALSE(isConnectionKey("velta_pat_" + std::string(44, 'a')));
  EXPECT_FALSE(isConnectionKey(""));
}

TEST(ConnectionKey, IsTheWholeTextWithoutAnyLineFeed) {
  for (const std::string& text : {kTestKey + "\n", "\n" + kTestKey, kTestKey + " ", " " + kTestKey,
                                  kTestKey + "\r", kTestKey + std::string(1, '\0')}) {
    EXPECT_FALSE(isConnectionKey(text)) << testing::PrintToString(text);
  }
}

TEST(ConnectionKey, OtherLettersAndIllFormedBytesAreNone) {
  for (const char* last : {".", "+", "/", "=", " ", "\u00E9", "\uFF21", "\xFF", "\xE9"}) {
    EXPECT_FALSE(isConnectionKey("velta_pat_" + std::string(42, 'a') + last)) << last;
  }
}

class SaveKey : public testing::Test {
 protected:
  TemporaryFolder folder_;
  Config config_{folder_.path(), {}};
  std::string path_ = folder_.file("cloud-token");
};

TEST_F(SaveKey, WritesTheKeyAndOneLineFeed) {
  saveKey(config_, kTestKey);
  EXPECT_EQ(folder_.read("cloud-token"), kTestKey + "\n");
  EXPECT_EQ(std::get<ConnectionKey>(loadKey(config_)).key, kTestKey);
}

TEST_F(SaveKey, OnlyTheUserMayReadTheFileWhateverTheUmaskIs) {
  for (const mode_t mask : std::initializer_list<mode_t>{0000, 0022, 0077, 0777}) {
    {
      const Umask umask(mask);
      saveKey(config_, kTestKey);
    }
    EXPECT_EQ(modeOf(path_), 0600U) << mask;
    std::filesystem::remove(path_);
  }
}

TEST_F(SaveKey, TightensTheModeOfAnOldFile) {
  folder_.write("cloud-token", kSecondKey);
  ASSERT_EQ(::chmod(path_.c_str(), 0666), 0);
  saveKey(config_, kTestKey);
  EXPECT_EQ(modeOf(path_), 0600U);
  EXPECT_EQ(folder_.read("cloud-token"), kTestKey + "\n");
}

TEST_F(SaveKey, ReplacesTheFileAndDoesNotWriteIntoIt) {
  folder_.write("cloud-token", kSecondKey + "\n");
  std::filesystem::create_hard_link(path_, folder_.file("old"));
  saveKey(config_, kTestKey);
  EXPECT_EQ(folder_.read("old"), kSecondKey + "\n");  // a reader that had it open sees all of it
  EXPECT_EQ(folder_.read("cloud-token"), kTestKey + "\n");
}

TEST_F(SaveKey, CreatesTheDataHomeWithItsParents) {
  config_.home = folder_.file("a/b/home");
  saveKey(config_, kTestKey);
  EXPECT_EQ(folder_.read("a/b/home/cloud-token"), kTestKey + "\n");
}

TEST_F(SaveKey, LeavesNoTemporaryFile) {
  saveKey(config_, kTestKey);
  EXPECT_THAT(folder_.names(), ElementsAre("cloud-token"));
}

TEST_F(SaveKey, TheTemporaryFileIsNamedAfterTheProcess) {
  // A folder of that name cannot be taken away.
  const std::string name = ".cloud-token." + std::to_string(::getpid());
  folder_.makeFolder(name);
  try {
    saveKey(config_, kTestKey);
    ADD_FAILURE() << "saved";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::file_exists);
    EXPECT_THAT(error.what(), HasSubstr(folder_.file(name)));
  }
  EXPECT_THAT(folder_.names(), ElementsAre(name));
}

TEST_F(SaveKey, TakesAwayWhatWasCutOffBefore) {
  folder_.write(".cloud-token.1", kSecondKey);
  folder_.write(".cloud-token." + std::to_string(::getpid()), kSecondKey);
  folder_.write("cloud-token.1", "something else");
  saveKey(config_, kTestKey);
  EXPECT_THAT(folder_.names(), UnorderedElementsAre("cloud-token", "cloud-token.1"));
  EXPECT_EQ(folder_.read("cloud-token"), kTestKey + "\n");
}

TEST_F(SaveKey, WhatWasCutOffIsFoundWhateverTheHomeIsCalled) {
  config_.home = folder_.makeFolder("a[b]*?c");
  folder_.write("a[b]*?c/.cloud-token.1", kSecondKey);
  folder_.write("ab-c/.cloud-token.1", kSecondKey);
  removeUnfinishedKeys(config_);
  EXPECT_FALSE(folder_.has("a[b]*?c/.cloud-token.1"));
  EXPECT_TRUE(folder_.has("ab-c/.cloud-token.1"));
}

TEST_F(SaveKey, FollowsALinkSoThatItStaysOne) {
  folder_.write("kept/key", kSecondKey + "\n");
  std::filesystem::create_symlink("kept/key", path_);
  saveKey(config_, kTestKey);
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_EQ(folder_.read("kept/key"), kTestKey + "\n");
  EXPECT_EQ(modeOf(path_), 0600U);
  EXPECT_THAT(folder_.names(), UnorderedElementsAre("cloud-token", "kept"));
}

TEST_F(SaveKey, AFailureThrowsAndLeavesNothing) {
  folder_.makeFolder("cloud-token/full");  // nothing can be renamed over it
  EXPECT_THROW(saveKey(config_, kTestKey), std::system_error);
  EXPECT_THAT(folder_.names(), ElementsAre("cloud-token"));
  EXPECT_TRUE(folder_.has("cloud-token/full"));
}

TEST_F(SaveKey, AHomeThatCannotBeMadeThrows) {
  folder_.write("plain", "");
  config_.home = folder_.file("plain/home");
  EXPECT_THROW(saveKey(config_, kTestKey), std::system_error);
  EXPECT_THAT(folder_.names(), ElementsAre("plain"));
}

TEST(WithoutKey, MasksEveryPieceOfEightOrMoreCharacters) {
  struct Case {
    std::string text;
    std::string masked;
  };
  const std::string first7 = kTestKey.substr(0, 7);
  const std::vector<Case> cases = {
      {"", ""},
      {"nothing of it", "nothing of it"},
      {kTestKey, "***"},
      {"<" + kTestKey + ">", "<***>"},
      {kTestKey + kTestKey, "******"},
      {kTestKey + " " + kTestKey, "*** ***"},
      {"Bearer " + kTestKey.substr(0, 8) + "!", "Bearer ***!"},
      {"Bearer " + first7 + "!", "Bearer " + first7 + "!"},
      {"end " + kTestKey.substr(45), "end ***"},
      {"end " + kTestKey.substr(46), "end " + kTestKey.substr(46)},
      {"mid " + kTestKey.substr(20, 8) + " dle", "mid *** dle"},
      {"mid " + kTestKey.substr(20, 7) + " dle", "mid " + kTestKey.substr(20, 7) + " dle"},
      {kTestKey.substr(0, 52) + "y", "***y"},
      {"中" + kTestKey + "文", "中***文"},
      {first7 + kTestKey, first7 + "***"},
  };
  for (const Case& c : cases) EXPECT_EQ(withoutKey(c.text, kTestKey), c.masked) << c.text;
}

TEST(WithoutKey, AShortKeyIsMaskedAsAWhole) {
  EXPECT_EQ(withoutKey("some text", "text"), "some ***");
  EXPECT_EQ(withoutKey("some tex", "text"), "some tex");
}

TEST(WithoutKey, AnEmptyKeyMasksNothing) { EXPECT_EQ(withoutKey("some text", ""), "some text"); }

}  // namespace
}  // namespace velta
