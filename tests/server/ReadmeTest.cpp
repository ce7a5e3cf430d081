// The table of tools in README.md stands between two marks and says what the catalogue says.
//
// With VELTA_UPDATE_README set in the environment the table is written anew; read the difference
// before it is committed.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "agents/Agents.h"
#include "platform/Files.h"
#include "server/ToolSchemas.h"

namespace velta {
namespace {

const std::string kReadme = VELTA_SOURCE_DIR "/README.md";
constexpr std::string_view kBegin = "<!-- tools: written by ReadmeTest from the catalogue -->\n";
constexpr std::string_view kEnd = "<!-- end of tools -->\n";

std::string code(std::string_view text) { return "`" + std::string(text) + "`"; }

std::string permissionOf(std::string_view tool) {
  if (tool == kAdminTool) return "started with `--admin-stats`";
  const Permission* needed = permissionForTool(tool);
  return needed != nullptr ? code(needed->name) : "none";
}

bool isRequired(const JSONObject& schema, std::string_view argument) {
  const JSON::Array* required = schema.getArray("required");
  return required != nullptr && std::any_of(required->begin(), required->end(), [&](const JSON& r) {
           return r.asString() == argument;
         });
}

// The required arguments in bold and before the others, each kind in the order of the schema.
std::string argumentsOf(const JSONObject& schema) {
  std::string required;
  std::string optional;
  const JSONObject* properties = schema.getObject("properties");
  if (properties == nullptr) return "";
  for (const std::string& name : properties->keys()) {
    if (isRequired(schema, name)) {
      required += ", **" + code(name) + "**";
    } else {
      optional += ", " + code(name);
    }
  }
  const std::string all = required + optional;
  return all.empty() ? "" : all.substr(2);
}

// The first sentence. One that begins with a word in capitals is a warning: what the tool does
// stands in the next, which is taken up to its details.
std::string firstSentenceOf(std::string_view description) {
  const bool isWarning = description.size() > 1 && description[1] >= 'A' && description[1] <= 'Z';
  std::size_t end = description.find(". ");
  if (isWarning && end != std::string_view::npos)
    end = std::min(description.find(". ", end + 2), description.find(": ", end + 2));
  return std::string(description.substr(0, end));
}

std::string table() {
  std::string rows =
      "| tool | permission | arguments | what it does |\n"
      "|---|---|---|---|\n";
  const ToolSchemas catalogue;
  for (const ToolSchemas::Def& tool : catalogue.all()) {
    rows += "| " + code(tool.name) + " | " + permissionOf(tool.name) + " | " +
            argumentsOf(tool.inputSchema) + " | " + firstSentenceOf(tool.description) + " |\n";
  }
  return rows;
}

struct Place {
  std::size_t begin;
  std::size_t size;
};

// Where the table stands in README.md; npos when a mark is missing.
Place placeOfTable(std::string_view readme) {
  const std::size_t mark = readme.find(kBegin);
  if (mark == std::string_view::npos) return {std::string_view::npos, 0};
  const std::size_t begin = mark + kBegin.size();
  const std::size_t end = readme.find(kEnd, begin);
  if (end == std::string_view::npos) return {std::string_view::npos, 0};
  return {begin, end - begin};
}

TEST(Readme, TableOfToolsSaysWhatTheCatalogueSays) {
  std::string readme = readFile(kReadme);
  const Place place = placeOfTable(readme);
  ASSERT_NE(place.begin, std::string::npos) << "a mark of the table is missing";
  if (std::getenv("VELTA_UPDATE_README") != nullptr) {
    writeFileAtomically(kReadme, readme.replace(place.begin, place.size, table()));
  } else {
    EXPECT_EQ(readme.substr(place.begin, place.size), table())
        << "run server_tests once with VELTA_UPDATE_README=1";
  }
}

TEST(Readme, RequiredArgumentsAreMarkedAndComeFirst) {
  const ToolSchemas catalogue;
  EXPECT_EQ(argumentsOf(catalogue.all().at(3).inputSchema),
            "**`id`**, `from_sec`, `limit`, `to_sec`");
}

TEST(Readme, WarningIsFollowedByWhatTheToolDoes) {
  EXPECT_EQ(firstSentenceOf("Does one thing: well. And more."), "Does one thing: well");
  EXPECT_EQ(firstSentenceOf("CHANGES DATA: ask first. Adds a word. And more."),
            "CHANGES DATA: ask first. Adds a word");
  EXPECT_EQ(firstSentenceOf("READ ONLY. Numbers: many. And more."), "READ ONLY. Numbers");
  EXPECT_EQ(firstSentenceOf("No stop at the end"), "No stop at the end");
}

TEST(Readme, OnlyTheAdminToolNeedsAnArgumentOfTheProgram) {
  EXPECT_EQ(permissionOf(kAdminTool), "started with `--admin-stats`");
  EXPECT_EQ(permissionOf("get_transcript"), "`read_transcripts`");
}

}  // namespace
}  // namespace velta
