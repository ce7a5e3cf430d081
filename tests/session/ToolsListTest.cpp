// What clients are told about the tools, held against the text that was agreed on.

#include <string>

#include <gtest/gtest.h>

#include "config/BuildConstants.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "support/DataHome.h"
#include "support/ServerProcess.h"

namespace velta {
namespace {

// tests/session/snapshots/tools-list.json is the whole answer, indented for reading.
TEST(ToolsList, IsTheOneThatWasAgreedOn) {
  const test::DataHome home;
  home.write("agents.json", R"({"agents":{"owner":{"tools":{"search_meetings":true,
      "read_notes":true,"read_transcripts":true,"process_recordings":true,"add_terms":true}}}})");
  test::ServerProcess server({.arguments = {"--client", "owner", "--admin-stats", "--no-reindex"},
                              .environment = home.environment()});
  const test::DataHome agreed(VELTA_SOURCE_DIR "/tests/session/snapshots");
  ASSERT_EQ(kMaskedAddress, "a***@example.com") << "the snapshot holds the default";
  EXPECT_EQ(server.ask(R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})"),
            writeCompact(parseJSON(agreed.read("tools-list.json"))));
}

}  // namespace
}  // namespace velta
