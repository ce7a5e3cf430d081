#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agents/Agents.h"
#include "support/TemporaryFolder.h"

namespace velta {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Agents over a data home of their own, with what they warned about.
struct AgentsHome {
  TemporaryFolder folder;
  Config config{folder.path(), {}};
  std::vector<std::string> lines;
  Warnings warnings{[this](std::string_view line) { lines.emplace_back(line); }};
  Agents agents{config, systemNow, warnings};

  void write(const std::string& content) const { folder.write("agents.json", content); }
  std::string brokenLine() const {
    return "meeting-notes MCP: " + folder.file("agents.json") +
           " is broken (top level must be {\"agents\": {\"<agent id>\": {...}}}); every agent "
           "gets the default permissions (search and read notes only). Next step: fix the file in "
           "Velta settings or delete it\n";
  }
};

// A home whose file gives the agent "a" this entry.
struct HomeOfOneAgent : AgentsHome {
  explicit HomeOfOneAgent(const std::string& entry) {
    write(R"({"agents": {"a": )" + entry + "}}");
  }
  AgentPermissions lookUp() const { return agents.lookUp("a"); }
};

std::vector<std::string_view> grantedNames(const AgentPermissions& permissions) {
  std::vector<std::string_view> names;
  for (const Permission& permission : kPermissions) {
    if (permissions.has(permission.name)) names.push_back(permission.name);
  }
  return names;
}

void expectDefaults(const AgentPermissions& permissions, std::string_view source) {
  EXPECT_THAT(grantedNames(permissions), ElementsAre("search_meetings", "read_notes"));
  EXPECT_EQ(permissions.scope, "all");
  EXPECT_TRUE(permissions.hidePrivate);
  EXPECT_EQ(permissions.source, source);
}

// The tables

TEST(Permissions, EachToolNeedsOne) {
  const struct {
    std::string_view tool;
    std::string_view permission;
  } table[] = {
      {"list_meetings", "search_meetings"},   {"search_transcripts", "search_meetings"},
      {"get_meeting", "read_notes"},          {"get_person", "read_notes"},
      {"get_transcript", "read_transcripts"}, {"process_recording", "process_recordings"},
      {"get_job", "process_recordings"},      {"add_term", "add_terms"},
  };
  for (const auto& [tool, permission] : table) {
    ASSERT_NE(permissionForTool(tool), nullptr) << tool;
    EXPECT_EQ(permissionForTool(tool)->name, permission) << tool;
  }
}

TEST(Permissions, AdminStatisticsAndUnknownToolsNeedNone) {
  for (const char* tool : {"velta_admin_stats", "", "List_Meetings", "search_meetings"}) {
    EXPECT_EQ(permissionForTool(tool), nullptr) << tool;
  }
}

TEST(Permissions, LabelsAreThoseOfTheSettings) {
  std::array<std::string_view, kPermissions.size()> labels;
  std::ranges::transform(kPermissions, labels.begin(), &Permission::label);
  EXPECT_THAT(labels, ElementsAre("Search meetings", "Read notes", "Read full transcripts",
                                  "Process recordings", "Add words to your word list"));
}

TEST(Permissions, UnknownNameIsNotGranted) {
  AgentPermissions permissions;
  permissions.granted.set();
  EXPECT_TRUE(permissions.has("add_terms"));
  EXPECT_FALSE(permissions.has("everything"));
  EXPECT_FALSE(permissions.has(""));
}

// The file

TEST(AgentsFile, MissingFileMeansTheDefaultsWithoutAWord) {
  const AgentsHome home;
  expectDefaults(home.agents.lookUp("claude-code"), "defaults (no agents.json)");
  expectDefaults(home.agents.lookUp(std::nullopt), "defaults (no agents.json)");
  EXPECT_THAT(home.lines, IsEmpty());
}

TEST(AgentsFile, UnreadableFileIsBrokenWithoutAWord) {
  const AgentsHome home;
  home.folder.makeFolder("agents.json");
  expectDefaults(home.agents.lookUp("a"), "defaults (agents.json broken)");
  EXPECT_THAT(home.lines, IsEmpty());
}

TEST(AgentsFile, DanglingLinkCountsAsMissing) {
  const AgentsHome home;
  fs::create_symlink("nowhere", home.folder.file("agents.json"));
  expectDefaults(home.agents.lookUp("a"), "defaults (no agents.json)");
}

TEST(AgentsFile, AnArrayIsBrokenAndSaidOnce) {
  const AgentsHome home;
  home.write("[]");
  for (const char* client : {"listed", "another", "listed"}) {
    expectDefaults(home.agents.lookUp(client), "defaults (agents.json broken)");
  }
  EXPECT_THAT(home.lines, ElementsAre(home.brokenLine()));
}

TEST(AgentsFile, EveryOtherTopLevelIsBrokenToo) {
  for (const char* content :
       {"", "{", "{}", "null", "\"agents\"", R"({"agents": []})", R"({"agents": null})",
        R"({"Agents": {}})", R"({"agents": {}} x)", R"({"agents": "a"})"}) {
    const AgentsHome home;
    home.write(content);
    expectDefaults(home.agents.lookUp("a"), "defaults (agents.json broken)");
    EXPECT_THAT(home.lines, ElementsAre(home.brokenLine())) << content;
  }
}

TEST(AgentsFile, VariableMovesItAndTheWarningNamesIt) {
  AgentsHome home;
  home.config.env["MEETING_MCP_AGENTS"] = home.folder.write("elsewhere/my agents.json", "[]");
  expectDefaults(home.agents.lookUp("a"), "defaults (agents.json broken)");
  ASSERT_EQ(home.lines.size(), 1U);
  EXPECT_THAT(home.lines.front(),
              ::testing::StartsWith("meeting-notes MCP: " +
                                    home.folder.file("elsewhere/my agents.json") + " is broken ("));
}

TEST(AgentsFile, EditTakesEffectOnTheNextLookUp) {
  const AgentsHome home;
  EXPECT_FALSE(home.agents.lookUp("a").has("add_terms"));
  home.write(R"({"agents": {"a": {"tools": {"add_terms": true}}}})");
  EXPECT_TRUE(home.agents.lookUp("a").has("add_terms"));
  fs::remove(home.folder.file("agents.json"));
  EXPECT_FALSE(home.agents.lookUp("a").has("add_terms"));
}

TEST(AgentsFile, UnlistedAgentHasTheDefaults) {
  const HomeOfOneAgent home(R"({"tools": {"add_terms": true}})");
  expectDefaults(home.agents.lookUp("b"), "defaults (agent not in agents.json)");
  expectDefaults(home.agents.lookUp("A"), "defaults (agent not in agents.json)");
  expectDefaults(home.agents.lookUp(std::nullopt), "defaults (agent not in agents.json)");
  EXPECT_THAT(home.lines, IsEmpty());
}

TEST(AgentsFile, WithoutAClientTheEntryOfTheEmptyIdIsUsed) {
  const AgentsHome home;
  home.write(R"({"agents": {"": {"scope": "last_30_days"}}})");
  EXPECT_EQ(home.agents.lookUp(std::nullopt).scope, "last_30_days");
  EXPECT_EQ(home.agents.lookUp("").scope, "last_30_days");
  EXPECT_EQ(home.agents.lookUp(std::nullopt).source, "agents.json");
}

TEST(AgentsFile, EntryThatIsNoObjectIsWarnedAbout) {
  for (const char* entry : {"true", "null", "[]", "\"all\""}) {
    const HomeOfOneAgent home(entry);
    expectDefaults(home.lookUp(), "defaults (entry broken)");
    EXPECT_THAT(home.lines,
                ElementsAre("meeting-notes MCP: agents.json: entry for 'a' is not an object; using "
                            "the defaults\n"));
  }
}

TEST(AgentsFile, ControlCharactersOfAnIdStayOnTheLine) {
  const AgentsHome home;
  home.write(R"({"agents": {"a\nb": 1}})");
  home.agents.lookUp("a\nb");
  EXPECT_THAT(home.lines,
              ElementsAre("meeting-notes MCP: agents.json: entry for 'a\uFFFDb' is not an object; "
                          "using the defaults\n"));
}

// An entry

TEST(AgentEntry, EmptyEntryIsTheDefaultsFromTheFile) {
  const HomeOfOneAgent home("{}");
  expectDefaults(home.lookUp(), "agents.json");
  EXPECT_THAT(home.lines, IsEmpty());
}

TEST(AgentEntry, WholeEntryIsRead) {
  const HomeOfOneAgent home(
      R"({"tools": {"read_transcripts": true, "read_notes": false, "add_terms": true},
          "scope": "tagged", "hide_private": false, "note": "ignored"})");
  const AgentPermissions permissions = home.lookUp();
  EXPECT_THAT(grantedNames(permissions),
              ElementsAre("search_meetings", "read_transcripts", "add_terms"));
  EXPECT_EQ(permissions.scope, "tagged");
  EXPECT_FALSE(permissions.hidePrivate);
  EXPECT_EQ(permissions.source, "agents.json");
  EXPECT_THAT(home.lines, IsEmpty());
}

TEST(AgentTools, OnlyARealTrueGrants) {
  for (const char* value : {"\"yes\"", "1", "1.0", "null", "[true]", "{}", "false", "\"true\""}) {
    const HomeOfOneAgent home(std::string(R"({"tools": {"read_transcripts": )") + value +
                              R"(, "read_notes": )" + value + "}}");
    EXPECT_THAT(grantedNames(home.lookUp()), ElementsAre("search_meetings")) << value;
    EXPECT_THAT(home.lines, IsEmpty()) << value;
  }
}

TEST(AgentTools, UnknownNameIsWarnedAboutAndChangesNothing) {
  const HomeOfOneAgent home(R"({"tools": {"Read_Notes": false, "add_terms": true}})");
  EXPECT_THAT(grantedNames(home.lookUp()),
              ElementsAre("search_meetings", "read_notes", "add_terms"));
  EXPECT_THAT(home.lines,
              ElementsAre("meeting-notes MCP: agents.json: unknown permission 'Read_Notes' for 'a' "
                          "ignored; valid: search_meetings, read_notes, read_transcripts, "
                          "process_recordings, add_terms\n"));
}

TEST(AgentTools, WarningsComeInTheOrderOfTheFile) {
  const HomeOfOneAgent home(R"({"scope": 1, "tools": {"z": 1, "a": 1}})");
  home.lookUp();
  ASSERT_EQ(home.lines.size(), 3U);
  EXPECT_THAT(home.lines[0], ::testing::HasSubstr("unknown permission 'z'"));
  EXPECT_THAT(home.lines[1], ::testing::HasSubstr("unknown permission 'a'"));
  EXPECT_THAT(home.lines[2], ::testing::HasSubstr("scope ''"));
}

TEST(AgentTools, ToolsThatAreNoObjectAreWarnedAbout) {
  for (const char* tools : {"[]", "\"all\"", "true", "5"}) {
    const HomeOfOneAgent home(std::string(R"({"tools": )") + tools + "}");
    expectDefaults(home.lookUp(), "agents.json");
    EXPECT_THAT(home.lines, ElementsAre("meeting-notes MCP: agents.json: tools for 'a' is not an "
                                        "object; using the default tools\n"));
  }
}

TEST(AgentTools, NullToolsAreTheDefaultsWithoutAWord) {
  const HomeOfOneAgent home(R"({"tools": null})");
  expectDefaults(home.lookUp(), "agents.json");
  EXPECT_THAT(home.lines, IsEmpty());
}

TEST(AgentScope, EachScopeIsTaken) {
  for (const char* scope : {"all", "tagged", "last_30_days"}) {
    const HomeOfOneAgent home(std::string(R"({"scope": ")") + scope + "\"}");
    EXPECT_EQ(home.lookUp().scope, scope);
    EXPECT_THAT(home.lines, IsEmpty());
  }
}

std::string scopeWarning(const std::string& scope) {
  return "meeting-notes MCP: agents.json: scope '" + scope +
         "' for 'a' is not one of all, tagged, last_30_days; using 'tagged', the narrowest\n";
}

TEST(AgentScope, UnknownScopeFallsToTheNarrowest) {
  for (const char* scope : {"ALL", "", "all ", "last_7_days"}) {
    const HomeOfOneAgent home(std::string(R"({"scope": ")") + scope + "\"}");
    EXPECT_EQ(home.lookUp().scope, "tagged");
    EXPECT_THAT(home.lines, ElementsAre(scopeWarning(scope)));
  }
}

TEST(AgentScope, ScopeThatIsNoTextFallsToTheNarrowest) {
  for (const char* scope : {"30", "null", "[\"all\"]", "true"}) {
    const HomeOfOneAgent home(std::string(R"({"scope": )") + scope + "}");
    EXPECT_EQ(home.lookUp().scope, "tagged") << scope;
    EXPECT_THAT(home.lines, ElementsAre(scopeWarning(""))) << scope;
  }
}

TEST(AgentPrivacy, OnlyARealFalseShowsPrivateMeetings) {
  EXPECT_FALSE(HomeOfOneAgent(R"({"hide_private": false})").lookUp().hidePrivate);
  for (const char* value : {"true", "0", "null", "\"false\"", "[]", "0.0"}) {
    const HomeOfOneAgent home(std::string(R"({"hide_private": )") + value + "}");
    EXPECT_TRUE(home.lookUp().hidePrivate) << value;
    EXPECT_THAT(home.lines, IsEmpty());
  }
}

TEST(Agents, DefectIsReportedOnceAndNotAgainOnEveryCall) {
  const HomeOfOneAgent home(R"({"tools": {"fly": true}, "scope": "ALL"})");
  for (int i = 0; i < 5; ++i) home.lookUp();
  EXPECT_EQ(home.lines.size(), 2U);
}

}  // namespace
}  // namespace velta
