#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/BuildConstants.h"
#include "config/Config.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "platform/Files.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::string_view kPlain = "Library/Application Support/MeetingNotes";

std::string containerName() {
  return "Library/Containers/" + std::string(kAppBundleIdentifier) + "/Data/" + std::string(kPlain);
}

// A data home that is `folder`, with the user's home below it.
Config configIn(const TemporaryFolder& folder) {
  return Config::fromEnvironment(
      {{"HOME", folder.file("user")}, {"MEETING_NOTES_HOME", folder.path()}});
}

JSONObject objectOf(const std::string& text) { return *parseJSON(text).asObject(); }

// resolveDataHome

TEST(DataHome, VariableNamesIt) {
  EXPECT_EQ(resolveDataHome({{"HOME", "/u"}, {"MEETING_NOTES_HOME", "/data/notes"}}),
            "/data/notes");
}

TEST(DataHome, MissingFolderThatTheVariableNamesIsUsed) {
  const TemporaryFolder user;
  user.makeFolder(kPlain);
  const std::string missing = user.file("not/there");
  EXPECT_EQ(resolveDataHome({{"HOME", user.path()}, {"MEETING_NOTES_HOME", missing}}), missing);
  EXPECT_FALSE(fileStatus(missing));
}

TEST(DataHome, TildeInTheVariableIsTheUsersHome) {
  EXPECT_EQ(resolveDataHome({{"HOME", "/u"}, {"MEETING_NOTES_HOME", "~/notes"}}), "/u/notes");
  EXPECT_EQ(resolveDataHome({{"HOME", "/u"}, {"MEETING_NOTES_HOME", "~"}}), "/u");
}

TEST(DataHome, RelativeValueCountsFromTheCurrentFolder) {
  EXPECT_EQ(resolveDataHome({{"HOME", "/u"}, {"MEETING_NOTES_HOME", "notes/"}}),
            joinPath(fs::current_path().string(), "notes"));
}

TEST(DataHome, EmptyVariableCountsAsUnset) {
  const TemporaryFolder user;
  EXPECT_EQ(resolveDataHome({{"HOME", user.path()}, {"MEETING_NOTES_HOME", ""}}),
            user.file(kPlain));
}

TEST(DataHome, PlainFolderIsChosenWhenNeitherExists) {
  const TemporaryFolder user;
  EXPECT_EQ(resolveDataHome({{"HOME", user.path()}}), user.file(kPlain));
  EXPECT_FALSE(user.has("Library"));
}

TEST(DataHome, ContainerIsChosenWhenItAloneExists) {
  const TemporaryFolder user;
  user.makeFolder(containerName());
  EXPECT_EQ(resolveDataHome({{"HOME", user.path()}}), user.file(containerName()));
}

TEST(DataHome, PlainFolderIsChosenWhenBothExist) {
  const TemporaryFolder user;
  user.makeFolder(containerName());
  user.makeFolder(kPlain);
  EXPECT_EQ(resolveDataHome({{"HOME", user.path()}}), user.file(kPlain));
}

TEST(DataHome, FileAtThePlainPathCountsAsExisting) {
  const TemporaryFolder user;
  user.makeFolder(containerName());
  user.write(kPlain, "a file");
  EXPECT_EQ(resolveDataHome({{"HOME", user.path()}}), user.file(kPlain));
}

TEST(DataHome, TrailingSlashOfTheUsersHomeMakesNoDifference) {
  const TemporaryFolder user;
  EXPECT_EQ(resolveDataHome({{"HOME", user.path() + "/"}}), user.file(kPlain));
}

// Paths

TEST(Config, FromEnvironmentKeepsTheEnvironment) {
  const Config config = Config::fromEnvironment(
      {{"HOME", "/u"}, {"MEETING_NOTES_HOME", "/data"}, {"VELTA_TOKEN", "secret"}});
  EXPECT_EQ(config.home, "/data");
  EXPECT_EQ(config.env.at("VELTA_TOKEN"), "secret");
  EXPECT_EQ(config.userHome(), "/u");
  EXPECT_EQ(config.configFile(), "/data/mcp-config.json");
}

TEST(AgentsFile, StandsInTheDataHome) {
  EXPECT_EQ((Config{"/data", {}}.agentsFile()), "/data/agents.json");
}

TEST(AgentsFile, VariableMovesIt) {
  EXPECT_EQ((Config{"/data", {{"MEETING_MCP_AGENTS", "/etc/agents"}}}.agentsFile()), "/etc/agents");
}

TEST(AgentsFile, TildeInTheVariableIsTheUsersHome) {
  const Config config{"/data", {{"HOME", "/u"}, {"MEETING_MCP_AGENTS", "~/a/agents.json"}}};
  EXPECT_EQ(config.agentsFile(), "/u/a/agents.json");
}

TEST(AgentsFile, EmptyVariableCountsAsUnset) {
  EXPECT_EQ((Config{"/data", {{"MEETING_MCP_AGENTS", ""}}}.agentsFile()), "/data/agents.json");
}

TEST(Visibilities, ExactlyThreeAreKnown) {
  EXPECT_THAT(kKnownVisibilities, ElementsAre("private", "work", "shared"));
  for (const std::string_view word : kKnownVisibilities) EXPECT_TRUE(isKnownVisibility(word));
  for (const char* word : {"", "Private", "public", "work ", "all"}) {
    EXPECT_FALSE(isKnownVisibility(word)) << word;
  }
}

// defaultConfigFile

TEST(DefaultConfig, IsWrittenAsUsersReadIt) {
  const Config config{"/data", {}};
  EXPECT_EQ(writeIndented(config.defaultConfigFile(), 2), R"({
  "_note": "Meeting notes MCP config. Edit sources and clients here. clients: a listed --client name gets exactly that list; a name not listed sees everything; no --client gets default_client_visibilities. See mcp/config.example.json in the repo.",
  "sources": [
    {
      "type": "recordings",
      "glob": "/data/recordings/*/notes.json",
      "visibility": "private"
    }
  ],
  "clients": {
    "claude-code": [
      "private",
      "work",
      "shared"
    ],
    "claude-desktop": [
      "private",
      "work",
      "shared"
    ]
  },
  "default_client_visibilities": [
    "shared"
  ],
  "visibility_overrides": {},
  "tag_overrides": {},
  "stale_after_hours": 72,
  "cloud": {
    "enabled": true,
    "visibility": "private",
    "refresh_seconds": 120
  }
})");
}

TEST(DefaultConfig, SourceFindsMeetingsInAHomeWithPatternCharacters) {
  const TemporaryFolder folder;
  for (const char* name : {"plain", "[a-z]*", "what?", "back\\slash", "會議 [1]"}) {
    const std::string home = folder.makeFolder(name);
    const std::string notes =
        folder.write(std::string(name) + "/recordings/2026-10-12/notes.json", "{}");
    const JSONObject file = Config{home, {}}.defaultConfigFile();
    const JSON& source = file.getArray("sources")->front();
    EXPECT_THAT(globPaths(std::string(*source.asObject()->getString("glob"))), ElementsAre(notes));
  }
}

// loadConfigFile

TEST(LoadConfig, FreshHomeGetsTheDefaultFile) {
  const TemporaryFolder folder;
  const Config config{folder.file("not/yet/there"), {}};
  const JSONObject loaded = config.loadConfigFile(true);
  EXPECT_EQ(loaded, config.defaultConfigFile());
  EXPECT_EQ(folder.read("not/yet/there/mcp-config.json"), writeIndented(loaded, 2));
  EXPECT_THAT(loaded.keys(),
              ElementsAre("_note", "sources", "clients", "default_client_visibilities",
                          "visibility_overrides", "tag_overrides", "stale_after_hours", "cloud"));
  EXPECT_EQ(loaded.getInt("stale_after_hours"), 72);
}

TEST(LoadConfig, WithoutWriteDefaultNothingIsWritten) {
  const TemporaryFolder folder;
  const Config config{folder.file("home"), {}};
  EXPECT_EQ(config.loadConfigFile(false), config.defaultConfigFile());
  EXPECT_FALSE(folder.has("home"));
}

TEST(LoadConfig, WrittenDefaultLoadsAsItself) {
  const TemporaryFolder folder;
  const Config config = configIn(folder);
  const JSONObject first = config.loadConfigFile(true);
  EXPECT_EQ(config.loadConfigFile(false), first);
}

TEST(LoadConfig, AnythingButAnObjectIsReplaced) {
  for (const char* content : {"[]", "\"text\"", "{broken", "", "null", "{} trailing", "12"}) {
    const TemporaryFolder folder;
    const Config config = configIn(folder);
    folder.write("mcp-config.json", content);
    EXPECT_EQ(config.loadConfigFile(false), config.defaultConfigFile()) << content;
    EXPECT_EQ(folder.read("mcp-config.json"), content);
    EXPECT_EQ(config.loadConfigFile(true), config.defaultConfigFile()) << content;
    EXPECT_EQ(folder.read("mcp-config.json"), writeIndented(config.defaultConfigFile(), 2));
  }
}

TEST(LoadConfig, EmptyObjectIsKeptAndLoadsAsTheFullDefault) {
  const TemporaryFolder folder;
  const Config config = configIn(folder);
  folder.write("mcp-config.json", "{}");
  EXPECT_EQ(config.loadConfigFile(true), config.defaultConfigFile());
  EXPECT_EQ(folder.read("mcp-config.json"), "{}");
}

TEST(LoadConfig, MissingKeysAreAppendedInTheOrderOfTheDefault) {
  const TemporaryFolder folder;
  folder.write("mcp-config.json", R"({"cloud": {}, "mine": 1, "clients": {"a": []}})");
  const JSONObject loaded = configIn(folder).loadConfigFile(true);
  EXPECT_THAT(loaded.keys(), ElementsAre("cloud", "mine", "clients", "_note", "sources",
                                         "default_client_visibilities", "visibility_overrides",
                                         "tag_overrides", "stale_after_hours"));
}

TEST(LoadConfig, PresentKeysKeepTheirValueWhateverItsKind) {
  const TemporaryFolder folder;
  folder.write("mcp-config.json",
               R"({"sources": "none", "clients": 3, "stale_after_hours": null, "cloud": {}})");
  const JSONObject loaded = configIn(folder).loadConfigFile(true);
  EXPECT_EQ(*loaded.get("sources"), JSON("none"));
  EXPECT_EQ(*loaded.get("clients"), JSON(3));
  EXPECT_TRUE(loaded.get("stale_after_hours")->isNull());
  EXPECT_EQ(*loaded.get("cloud"), JSON(JSONObject()));
}

TEST(LoadConfig, UsersFileIsNeverRewrittenWhileItIsAnObject) {
  const TemporaryFolder folder;
  const std::string content = " { \"clients\" : {} }\n\n";
  folder.write("mcp-config.json", content);
  configIn(folder).loadConfigFile(true);
  EXPECT_EQ(folder.read("mcp-config.json"), content);
}

TEST(LoadConfig, EditTakesEffectOnTheNextLoad) {
  const TemporaryFolder folder;
  const Config config = configIn(folder);
  folder.write("mcp-config.json", R"({"stale_after_hours": 1})");
  EXPECT_EQ(config.loadConfigFile(false).getInt("stale_after_hours"), 1);
  folder.write("mcp-config.json", R"({"stale_after_hours": 2})");
  EXPECT_EQ(config.loadConfigFile(false).getInt("stale_after_hours"), 2);
}

TEST(LoadConfig, FolderInPlaceOfTheFileGivesTheDefault) {
  const TemporaryFolder folder;
  folder.makeFolder("mcp-config.json");
  const Config config = configIn(folder);
  EXPECT_EQ(config.loadConfigFile(true), config.defaultConfigFile());
  EXPECT_THAT(folder.names(), ElementsAre("mcp-config.json"));
}

TEST(LoadConfig, HomeThatCannotBeMadeGivesTheDefault) {
  const TemporaryFolder folder;
  const Config config{folder.write("file", "x") + "/home", {}};
  EXPECT_EQ(config.loadConfigFile(true), config.defaultConfigFile());
  EXPECT_EQ(folder.read("file"), "x");
}

TEST(LoadConfig, LinkedFileStaysLinkedWhenItIsReplaced) {
  const TemporaryFolder folder;
  folder.write("dotfiles/config.json", "broken");
  fs::create_symlink("dotfiles/config.json", folder.file("mcp-config.json"));
  const Config config = configIn(folder);
  config.loadConfigFile(true);
  EXPECT_TRUE(fs::is_symlink(folder.file("mcp-config.json")));
  EXPECT_EQ(objectOf(folder.read("dotfiles/config.json")), config.defaultConfigFile());
}

TEST(LoadConfig, HomeWithBytesThatAreNotUTF8StillGivesValidText) {
  const Config config{"/data/\xFFhome", {}};
  const JSONObject source = *config.loadConfigFile(false).getArray("sources")->front().asObject();
  EXPECT_EQ(source.getString("glob"), "/data/\uFFFDhome/recordings/*/notes.json");
}

// clientVisibilities

std::vector<std::string> visibilitiesFor(const std::string& file,
                                         const std::optional<std::string>& client) {
  const TemporaryFolder folder;
  folder.write("mcp-config.json", file);
  return configIn(folder).clientVisibilities(client);
}

TEST(ClientVisibilities, ListedClientGetsItsKnownWordsInOrderWithDuplicates) {
  const std::string file = R"({"clients": {"claude-code": ["work", "unknown", 3, "work"]}})";
  EXPECT_THAT(visibilitiesFor(file, "claude-code"), ElementsAre("work", "work"));
  EXPECT_THAT(visibilitiesFor(file, "other"), ElementsAre("private", "work", "shared"));
  EXPECT_THAT(visibilitiesFor(file, std::nullopt), ElementsAre("shared"));
}

TEST(ClientVisibilities, OrderIsTheFilesOwn) {
  EXPECT_THAT(visibilitiesFor(R"({"clients": {"a": ["shared", "private"]}})", "a"),
              ElementsAre("shared", "private"));
}

TEST(ClientVisibilities, ListedClientMayGetNothing) {
  EXPECT_THAT(visibilitiesFor(R"({"clients": {"a": []}})", "a"), IsEmpty());
  EXPECT_THAT(visibilitiesFor(R"({"clients": {"a": ["Private", null, ["work"]]}})", "a"),
              IsEmpty());
}

TEST(ClientVisibilities, ValueThatIsNoArraySeesEverything) {
  for (const char* value : {"\"work\"", "null", "{}", "true"}) {
    EXPECT_THAT(visibilitiesFor(std::string(R"({"clients": {"a": )") + value + "}}", "a"),
                ElementsAre("private", "work", "shared"));
  }
}

TEST(ClientVisibilities, WithoutAClientsObjectEveryNameSeesEverything) {
  for (const char* clients : {"[]", "null", "\"a\""}) {
    EXPECT_THAT(visibilitiesFor(std::string(R"({"clients": )") + clients + "}", "a"),
                ElementsAre("private", "work", "shared"));
  }
}

TEST(ClientVisibilities, ClientsOfTheUserReplaceTheDefaultOnes) {
  EXPECT_THAT(visibilitiesFor(R"({"clients": {}})", "claude-code"),
              ElementsAre("private", "work", "shared"));
}

TEST(ClientVisibilities, NamesAreCaseSensitive) {
  EXPECT_THAT(visibilitiesFor(R"({"clients": {"claude-code": ["work"]}})", "Claude-Code"),
              ElementsAre("private", "work", "shared"));
}

TEST(ClientVisibilities, NoClientGetsTheConfiguredDefault) {
  const std::string file = R"({"default_client_visibilities": ["work", "nonsense", "private"]})";
  EXPECT_THAT(visibilitiesFor(file, std::nullopt), ElementsAre("work", "private"));
}

TEST(ClientVisibilities, EmptyNameCountsAsNoClient) {
  const std::string file = R"({"clients": {"": ["private"]}, "default_client_visibilities": []})";
  EXPECT_THAT(visibilitiesFor(file, ""), IsEmpty());
}

TEST(ClientVisibilities, EmptyDefaultListGivesNothingAndAMissingOneShared) {
  EXPECT_THAT(visibilitiesFor(R"({"default_client_visibilities": []})", std::nullopt), IsEmpty());
  EXPECT_THAT(visibilitiesFor("{}", std::nullopt), ElementsAre("shared"));
}

TEST(ClientVisibilities, DefaultListThatIsNoArrayCountsAsShared) {
  EXPECT_THAT(visibilitiesFor(R"({"default_client_visibilities": "private"})", std::nullopt),
              ElementsAre("shared"));
}

TEST(ClientVisibilities, LookUpWritesTheDefaultFile) {
  const TemporaryFolder folder;
  EXPECT_THAT(configIn(folder).clientVisibilities("claude-code"),
              ElementsAre("private", "work", "shared"));
  EXPECT_TRUE(folder.has("mcp-config.json"));
}

}  // namespace
}  // namespace velta
