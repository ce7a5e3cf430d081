#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "index/FoldedText.h"
#include "index/Index.h"
#include "index/TestHome.h"

namespace velta {
namespace {

using test::meetingOf;
using test::TestHome;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

Meeting meetingWith(const std::string& id, const std::string& more = "") {
  return meetingOf(R"({"id": ")" + id + R"(", "source": "recordings")" + more + "}");
}

void insert(Index& index, const std::string& id, const std::string& key,
            const std::string& more = "") {
  index.insert(meetingWith(id, more), key, "work", {"tag"}, 5);
}

std::vector<std::string> idsOf(const std::vector<Index::Card>& cards) {
  std::vector<std::string> ids;
  for (const Index::Card& card : cards) ids.push_back(card.entry->meeting->id);
  return ids;
}

class IndexInsert : public testing::Test {
 protected:
  TestHome home_;
  Index& index_ = home_.index;
};

TEST_F(IndexInsert, KeepsWhatItIsGivenAndPreparesTheSearch) {
  insert(index_, "m", "/k", R"(, "title": "Weekly SYNC", "people": [{"name": "Amy"}],
                               "verdict": "Go", "notes": {"decisions": ["Sign", 5],
                                                          "open_questions": ["When"]})");
  const Index::Entry* entry = index_.find("m");
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->visibility, "work");
  EXPECT_THAT(entry->tags, ElementsAre("tag"));
  EXPECT_EQ(entry->key, "/k");
  EXPECT_EQ(entry->mtime, 5);
  EXPECT_EQ(entry->order, 1u);
  EXPECT_EQ(entry->decisionCount, 2u);
  EXPECT_EQ(entry->openQuestionCount, 1u);
  for (const std::string word : {"sync", "go", "sign"})
    EXPECT_TRUE(QueryToken({word}).mayBeIn(entry->bodySignature.view())) << word;
  EXPECT_FALSE(QueryToken({"押金"}).mayBeIn(entry->bodySignature.view()));
}

TEST_F(IndexInsert, MovesAMeetingToItsNewKey) {
  insert(index_, "m", "/old");
  insert(index_, "m", "/new");
  EXPECT_THAT(index_.byKey(), UnorderedElementsAre(Pair("/new", "m")));
  EXPECT_EQ(home_.entry("m").key, "/new");
}

TEST_F(IndexInsert, DropsTheMeetingThatAKeyHeldBefore) {
  insert(index_, "first", "/k");
  insert(index_, "second", "/k");
  EXPECT_EQ(index_.find("first"), nullptr);
  EXPECT_THAT(index_.byKey(), UnorderedElementsAre(Pair("/k", "second")));
}

TEST_F(IndexInsert, SwapsTwoMeetingsWithoutLosingOne) {
  insert(index_, "a", "/1");
  insert(index_, "b", "/2");
  insert(index_, "b", "/1");
  insert(index_, "a", "/2");
  EXPECT_THAT(index_.byKey(), UnorderedElementsAre(Pair("/1", "b"), Pair("/2", "a")));
}

TEST_F(IndexInsert, GivesAMeetingReadAgainALargerOrder) {
  insert(index_, "a", "/1");
  insert(index_, "b", "/2");
  insert(index_, "a", "/1");
  EXPECT_EQ(home_.entry("a").order, 3u);
  EXPECT_EQ(home_.entry("b").order, 2u);
}

TEST_F(IndexInsert, FindsNothingForAnUnknownId) { EXPECT_EQ(index_.find("nobody"), nullptr); }

TEST_F(IndexInsert, SortsNewestFirstByDateStartAndOrder) {
  insert(index_, "undated", "/1");
  insert(index_, "undated started", "/2", R"(, "started_at": "2026-01-01T09:00:00")");
  insert(index_, "old", "/3", R"(, "date": "2025-12-31")");
  insert(index_, "no start", "/4", R"(, "date": "2026-01-01")");
  insert(index_, "early", "/5", R"(, "date": "2026-01-01", "started_at": "2026-01-01T09:00:00")");
  insert(index_, "late", "/6", R"(, "date": "2026-01-01", "started_at": "2026-01-01T10:00:00")");
  insert(index_, "late too", "/7",
         R"(, "date": "2026-01-01", "started_at": "2026-01-01T10:00:00")");
  EXPECT_THAT(idsOf(index_.newestFirst()), ElementsAre("late", "late too", "early", "no start",
                                                       "old", "undated started", "undated"));
}

TEST_F(IndexInsert, SortsAnewAfterAChange) {
  EXPECT_THAT(index_.newestFirst(), IsEmpty());
  insert(index_, "a", "/1", R"(, "date": "2026-01-01")");
  EXPECT_THAT(idsOf(index_.newestFirst()), ElementsAre("a"));
  insert(index_, "b", "/2", R"(, "date": "2026-01-02")");
  EXPECT_THAT(idsOf(index_.newestFirst()), ElementsAre("b", "a"));
  insert(index_, "c", "/1");
  EXPECT_THAT(idsOf(index_.newestFirst()), ElementsAre("b", "c"));
}

}  // namespace
}  // namespace velta
