#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/BuildConstants.h"
#include "json/JSONWriter.h"
#include "server/ToolSchemas.h"

namespace velta {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

AgentPermissions granting(unsigned long bits) {
  AgentPermissions permissions;
  permissions.granted = bits;
  return permissions;
}

AgentPermissions everything() { return granting((1UL << kPermissions.size()) - 1); }

const ToolSchemas::Def& tool(const ToolSchemas& schemas, std::string_view name) {
  for (const ToolSchemas::Def& def : schemas.all())
    if (def.name == name) return def;
  throw std::out_of_range(std::string(name));
}

TEST(ToolSchemas, NothingGrantedListsNothing) {
  EXPECT_THAT(ToolSchemas::visible(granting(0), false), IsEmpty());
  EXPECT_THAT(ToolSchemas().list({}), IsEmpty());
}

TEST(ToolSchemas, AdminToolIsListedOnlyWithAdminStatsAndThenLast) {
  EXPECT_THAT(ToolSchemas::visible(everything(), false),
              ElementsAreArray(kToolNames.begin(), kToolNames.end() - 1));
  EXPECT_THAT(ToolSchemas::visible(everything(), true), ElementsAreArray(kToolNames));
  EXPECT_THAT(ToolSchemas::visible(granting(0), true), ElementsAre("velta_admin_stats"));
}

TEST(ToolSchemas, EveryToolButTheAdminToolNeedsAPermissionWithALabel) {
  for (const std::string_view name : kToolNames) {
    const Permission* needed = permissionForTool(name);
    EXPECT_EQ(needed == nullptr, name == kAdminTool) << name;
    if (needed) {
      EXPECT_FALSE(needed->label.empty()) << name;
    }
  }
}

TEST(ToolSchemas, EachPermissionShowsItsTools) {
  const std::vector<ToolNames> expected = {{"list_meetings", "search_transcripts"},
                                           {"get_meeting", "get_person"},
                                           {"get_transcript"},
                                           {"process_recording", "get_job"},
                                           {"add_term"}};
  for (std::size_t i = 0; i < kPermissions.size(); ++i)
    EXPECT_EQ(ToolSchemas::visible(granting(1UL << i), false), expected[i]) << kPermissions[i].name;
}

TEST(ToolSchemas, ListedToolHasItsFiveKeysInOrder) {
  const ToolSchemas schemas;
  const ToolNames all(kToolNames.begin(), kToolNames.end());
  const JSON::Array list = schemas.list(all);
  ASSERT_EQ(list.size(), kToolNames.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    const JSONObject& listed = *list[i].asObject();
    EXPECT_THAT(listed.keys(),
                ElementsAre("annotations", "description", "inputSchema", "name", "outputSchema"));
    EXPECT_EQ(listed.getString("name"), kToolNames[i]);
  }
}

TEST(ToolSchemas, ListKeepsTheOrderOfTheCatalogue) {
  const JSON::Array list = ToolSchemas().list({"get_job", "list_meetings"});
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].asObject()->getString("name"), "list_meetings");
}

TEST(ToolSchemas, InputSchemaKeepsTheKeyOrderOfEveryForm) {
  const ToolSchemas schemas;
  EXPECT_EQ(
      writeCompact(tool(schemas, "search_transcripts").inputSchema),
      R"({"properties":{"date_from":{"anyOf":[{"type":"string"},{"type":"null"}],"default":null,)"
      R"("title":"Date From"},"date_to":{"anyOf":[{"type":"string"},{"type":"null"}],)"
      R"("default":null,"title":"Date To"},"include_digest":{"default":true,)"
      R"("title":"Include Digest","type":"boolean"},"limit":{"default":20,"title":"Limit",)"
      R"("type":"integer"},"query":{"title":"Query","type":"string"},"speaker":{"anyOf":)"
      R"([{"type":"string"},{"type":"null"}],"default":null,"title":"Speaker"}},)"
      R"("required":["query"],"title":"search_transcriptsArguments","type":"object"})");
  EXPECT_EQ(writeCompact(tool(schemas, "get_meeting").inputSchema),
            R"({"properties":{"id":{"title":"Id","type":"string"},"sections":{"anyOf":[{"items":)"
            R"({"type":"string"},"type":"array"},{"type":"null"}],"default":null,)"
            R"("title":"Sections"}},"required":["id"],"title":"get_meetingArguments",)"
            R"("type":"object"})");
  EXPECT_EQ(writeCompact(tool(schemas, "add_term").inputSchema),
            R"({"properties":{"right":{"title":"Right","type":"string"},"tier":{"default":"hint",)"
            R"("title":"Tier","type":"string"},"wrong":{"title":"Wrong","type":"string"}},)"
            R"("required":["wrong","right"],"title":"add_termArguments","type":"object"})");
}

TEST(ToolSchemas, SchemaOfAToolThatRequiresNothingNamesNoRequiredArguments) {
  EXPECT_EQ(writeCompact(tool(ToolSchemas(), "velta_admin_stats").inputSchema),
            R"({"properties":{"days":{"default":30,"title":"Days","type":"integer"}},)"
            R"("title":"velta_admin_statsArguments","type":"object"})");
}

TEST(ToolSchemas, PropertiesStandInAscendingOrder) {
  const ToolSchemas schemas;
  for (const ToolSchemas::Def& def : schemas.all()) {
    const auto names = def.inputSchema.getObject("properties")->keys();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end())) << def.name;
  }
}

TEST(ToolSchemas, OutputSchemaIsAnOpenObject) {
  EXPECT_EQ(writeCompact(tool(ToolSchemas(), "get_job").outputSchema),
            R"({"additionalProperties":true,"title":"get_jobDictOutput","type":"object"})");
}

TEST(ToolSchemas, AnnotationsAreFourBooleansInOrder) {
  EXPECT_EQ(writeCompact(tool(ToolSchemas(), "process_recording").annotations),
            R"({"destructiveHint":true,"idempotentHint":false,"openWorldHint":true,)"
            R"("readOnlyHint":false})");
}

TEST(ToolSchemas, AdminDescriptionShowsTheMaskedAddress) {
  EXPECT_THAT(tool(ToolSchemas(), "velta_admin_stats").description,
              HasSubstr("MASKED email only (like " + std::string(kMaskedAddress) + "), sign-up"));
}

}  // namespace
}  // namespace velta
