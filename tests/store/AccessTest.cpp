#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "index/TestHome.h"
#include "store/Access.h"
#include "support/TimeZone.h"

namespace velta {
namespace {

using test::meetingOf;
using test::TestHome;

struct Shown {
  std::string visibility = "work";
  std::vector<std::string> tags = {};
  std::optional<std::string> date = std::nullopt;
};

Index::Entry entryOf(const Shown& shown) {
  Index::Entry entry;
  entry.visibility = shown.visibility;
  entry.tags = shown.tags;
  Meeting meeting;
  meeting.date = shown.date;
  entry.meeting = std::make_shared<const Meeting>(std::move(meeting));
  return entry;
}

// The access of an agent with everything open.
Access agent() {
  Access access;
  access.allowed = {"private", "work", "shared"};
  access.hidePrivate = false;
  return access;
}

TEST(Access, ShowsOnlyAllowedVisibilities) {
  Access access = agent();
  access.allowed = {"shared", "work"};
  EXPECT_TRUE(access.sees(entryOf({"work"})));
  EXPECT_TRUE(access.sees(entryOf({"shared"})));
  EXPECT_FALSE(access.sees(entryOf({"private"})));
  EXPECT_FALSE(access.sees(entryOf({"Work"})));
  access.allowed = {};
  EXPECT_FALSE(access.sees(entryOf({"work"})));
}

TEST(Access, PrivateTagHidesEvenUnderScopeAll) {
  Access access = agent();
  EXPECT_TRUE(access.sees(entryOf({"work", {"private"}})));
  access.hidePrivate = true;
  EXPECT_FALSE(access.sees(entryOf({"work", {"x", "private"}})));
  EXPECT_TRUE(access.sees(entryOf({"work", {"Private"}})));
}

TEST(Access, PrivateVisibilityAndPrivateTagAreSeparateControls) {
  Access access = agent();
  EXPECT_TRUE(access.sees(entryOf({"private"})));
  access.hidePrivate = true;
  EXPECT_TRUE(access.sees(entryOf({"private"})));
  EXPECT_FALSE(access.sees(entryOf({"private", {"private"}})));
}

TEST(Access, TaggedScopeShowsWhatIsTaggedForAgents) {
  Access access = agent();
  access.scope = "tagged";
  EXPECT_TRUE(access.sees(entryOf({"work", {"agents"}})));
  EXPECT_FALSE(access.sees(entryOf({"work", {"agent"}})));
}

TEST(Access, TaggedScopeHidesWhatIsTaggedAgentsAndPrivate) {
  Access access = agent();
  access.scope = "tagged";
  access.hidePrivate = true;
  EXPECT_FALSE(access.sees(entryOf({"work", {"agents", "private"}})));
}

TEST(Access, LastThirtyDaysShowsFromTheFirstDayOn) {
  Access access = agent();
  access.scope = "last_30_days";
  access.since = "2026-01-10";
  EXPECT_TRUE(access.sees(entryOf({"work", {}, "2026-01-10"})));
  EXPECT_TRUE(access.sees(entryOf({"work", {}, "2026-01-11"})));
  EXPECT_FALSE(access.sees(entryOf({"work", {}, "2026-01-09"})));
  EXPECT_FALSE(access.sees(entryOf({"work", {}, std::nullopt})));
}

TEST(Access, LastThirtyDaysWithoutAFirstDayHidesWhatWasEverHeld) {
  Access access = agent();
  access.scope = "last_30_days";
  EXPECT_FALSE(access.sees(entryOf({"work", {}, "2026-01-10"})));
}

TEST(Access, UnknownScopeShowsNothing) {
  Access access = agent();
  access.scope = "everything";
  EXPECT_FALSE(access.sees(entryOf({"work", {"agents"}, "2026-01-10"})));
}

TEST(Access, CallersThatAreNoAgentsAreBoundByVisibilitiesOnly) {
  Access access = agent();
  access.isAgent = false;
  access.scope = "tagged";
  access.hidePrivate = true;
  EXPECT_TRUE(access.sees(entryOf({"work", {"private"}})));
  access.allowed = {"shared"};
  EXPECT_FALSE(access.sees(entryOf({"work"})));
}

TEST(AccessForAgent, TakesScopeAndPrivacyFromThePermissions) {
  AgentPermissions permissions;
  permissions.scope = "tagged";
  permissions.hidePrivate = false;
  const Access access = Access::forAgent({"work"}, permissions, instantFromSeconds(0));
  EXPECT_EQ(access, (Access{{"work"}, "tagged", false, std::nullopt, true}));
}

TEST(AccessForAgent, CountsThirtyDaysBackInLocalTime) {
  const TimeZone taipei("Asia/Taipei");
  AgentPermissions permissions;
  permissions.scope = "last_30_days";
  // 2026-03-31T16:30:00Z is already April 1 in Taipei.
  const Access access = Access::forAgent({}, permissions, instantFromSeconds(1'774'974'600));
  EXPECT_EQ(access.since, "2026-03-02");
}

class NoneVisible : public testing::Test {
 protected:
  void insert(const std::string& visibility, std::vector<std::string> tags) {
    home_.index.insert(meetingOf(R"({"id": "m", "source": "recordings"})"), "/k", visibility,
                       std::move(tags), 0);
  }

  std::string message(const Access& access) const {
    return access.noneVisibleMessage(home_.index).value_or("something is visible");
  }

  TestHome home_;
};

constexpr const char* kAgentNextStep =
    ". Next step: if it should see more, the user widens this agent's scope in agents.json (Velta "
    "settings), tags meetings agents for the tagged scope, or changes its visibilities under "
    "clients in mcp-config.json";
constexpr const char* kClientNextStep =
    ". Next step: if this client should see them, change its entry under clients in "
    "mcp-config.json or mark specific meetings work/shared under visibility_overrides, then run "
    "the indexer";

TEST_F(NoneVisible, SaysNothingWhenAMeetingIsVisible) {
  insert("work", {});
  EXPECT_FALSE(agent().noneVisibleMessage(home_.index));
}

TEST_F(NoneVisible, TakesTheClientFormForAnEmptyIndexAndAnUnboundAgent) {
  EXPECT_EQ(message(agent()),
            std::string("No meetings are visible to this client. Its allowed visibilities are "
                        "['private', 'work', 'shared']") +
                kClientNextStep);
}

TEST_F(NoneVisible, SaysNoneForAnEmptyListEvenToABoundAgent) {
  Access access = agent();
  access.allowed = {};
  access.hidePrivate = true;
  EXPECT_EQ(
      message(access),
      std::string("No meetings are visible to this client. Its allowed visibilities are none") +
          kClientNextStep);
}

TEST_F(NoneVisible, NamesHiddenPrivateMeetingsUnderTheDefaults) {
  insert("work", {"private"});
  Access access;
  access.allowed = {"work", "shared"};
  EXPECT_EQ(message(access),
            std::string("No meetings are visible to this agent. Its allowed visibilities are "
                        "['work', 'shared'], its meeting scope is 'all' and meetings tagged "
                        "private are hidden") +
                kAgentNextStep);
}

TEST_F(NoneVisible, NamesTheScopeAlone) {
  insert("work", {});
  Access access = agent();
  access.scope = "tagged";
  EXPECT_EQ(message(access),
            std::string("No meetings are visible to this agent. Its allowed visibilities are "
                        "['private', 'work', 'shared'], its meeting scope is 'tagged'") +
                kAgentNextStep);
}

TEST_F(NoneVisible, TakesTheClientFormForCallersThatAreNoAgents) {
  insert("work", {});
  Access access = agent();
  access.isAgent = false;
  access.scope = "tagged";
  access.allowed = {"shared"};
  EXPECT_EQ(message(access),
            std::string(
                "No meetings are visible to this client. Its allowed visibilities are ['shared']") +
                kClientNextStep);
}

}  // namespace
}  // namespace velta
