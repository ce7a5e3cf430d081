#include <gtest/gtest.h>

#include "cli/CommandLine.h"

namespace velta {
namespace {

using Options = CLI::Options;

TEST(CommandLine, NothingGivenServesWithTheDefaults) {
  const Options options = CLI::parse({});
  EXPECT_EQ(options, Options());
  EXPECT_TRUE(options.reindex);
  EXPECT_FALSE(options.client);
}

TEST(CommandLine, EveryArgumentHasItsEffect) {
  EXPECT_EQ(CLI::parse({"--client", "x"}), Options{.client = "x"});
  EXPECT_EQ(CLI::parse({"--client=x"}), Options{.client = "x"});
  EXPECT_EQ(CLI::parse({"--admin-stats"}), Options{.adminStats = true});
  EXPECT_EQ(CLI::parse({"--no-reindex"}), Options{.reindex = false});
  EXPECT_EQ(CLI::parse({"--http"}), Options{.http = true});
  EXPECT_EQ(CLI::parse({"connect"}), Options{.action = "connect"});
  EXPECT_EQ(CLI::parse({"--version"}), Options{.version = true});
  EXPECT_EQ(CLI::parse({"-V"}), Options{.version = true});
  EXPECT_EQ(CLI::parse({"--help"}), Options{.help = true});
  EXPECT_EQ(CLI::parse({"-h"}), Options{.help = true});
}

TEST(CommandLine, ClientWithoutAValueIsNoClient) {
  EXPECT_EQ(CLI::parse({"--client"}), Options());
  EXPECT_EQ(CLI::parse({"--client=x", "--client"}), Options());
}

TEST(CommandLine, ClientTakesWhateverFollows) {
  EXPECT_EQ(CLI::parse({"--client", "--admin-stats"}), Options{.client = "--admin-stats"});
  EXPECT_EQ(CLI::parse({"--client", ""}), Options{.client = ""});
}

TEST(CommandLine, ClientWithAnEqualsSignMayBeEmpty) {
  EXPECT_EQ(CLI::parse({"--client="}), Options{.client = ""});
  EXPECT_EQ(CLI::parse({"--client=a=b"}), Options{.client = "a=b"});
}

TEST(CommandLine, LaterClientReplacesAnEarlierOne) {
  EXPECT_EQ(CLI::parse({"--client", "a", "--client=b"}), Options{.client = "b"});
  EXPECT_EQ(CLI::parse({"--client=b", "--client", "a"}), Options{.client = "a"});
}

TEST(CommandLine, PortAndAllowHostAreSwallowedWithTheirValues) {
  EXPECT_EQ(CLI::parse({"--port", "3000", "--allow-host", "x"}), Options());
  EXPECT_EQ(CLI::parse({"--port", "--help", "--http"}), Options{.http = true});
  EXPECT_EQ(CLI::parse({"--allow-host"}), Options());
}

TEST(CommandLine, StatusThenDisconnectIsDisconnect) {
  EXPECT_EQ(CLI::parse({"status", "disconnect"}), Options{.action = "disconnect"});
}

TEST(CommandLine, EverythingElseIsUnknownInItsOrder) {
  EXPECT_EQ(CLI::parse({"-x", "--Client", "", "--port=3", "serve", "--help"}),
            (Options{.help = true, .unknown = {"-x", "--Client", "", "--port=3", "serve"}}));
}

}  // namespace
}  // namespace velta
