#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "meetings/TextBlock.h"

namespace velta {
namespace {

TextBlock blockOf(std::initializer_list<std::string_view> texts) {
  TextBlock block;
  for (const auto text : texts) block.append(text);
  return block;
}

TEST(TextBlock, GivesBackEveryTextWithoutItsLineFeed) {
  const TextBlock block = blockOf({"one", "", "三", "four\n"});
  ASSERT_EQ(block.size(), 4U);
  EXPECT_EQ(block[0], "one");
  EXPECT_EQ(block[1], "");
  EXPECT_EQ(block[2], "三");
  EXPECT_EQ(block[3], "four\n");
}

TEST(TextBlock, BytesHoldAllTextsEachWithItsLineFeed) {
  EXPECT_EQ(blockOf({"a", "", "b\nc"}).bytes(), "a\n\nb\nc\n");
}

TEST(TextBlock, TextAtFindsTheTextOfEveryByteItsLineFeedIncluded) {
  const TextBlock block = blockOf({"ab", "", "c\nd"});
  const std::size_t expected[] = {0, 0, 0, 1, 2, 2, 2, 2};
  ASSERT_EQ(block.bytes().size(), std::size(expected));
  for (std::size_t i = 0; i < std::size(expected); ++i)
    EXPECT_EQ(block.textAt(i), expected[i]) << i;
}

TEST(TextBlock, BeginOfTheTextAroundAByteIsThatOfItsText) {
  for (const TextBlock& block :
       {blockOf({"ab", "", "c\nd", "\n", "e"}), blockOf({"ab", "", "c"})}) {
    for (std::size_t i = 0; i < block.bytes().size(); ++i)
      EXPECT_EQ(block.beginOfTextAround(i), block.begin(block.textAt(i))) << i;
  }
}

TEST(TextBlock, FindsItsTextsAcrossItsLandmarks) {
  TextBlock block;
  std::string bytes;
  for (std::size_t i = 0; i < 100; ++i) {
    const std::string text(i % 7 == 0 ? 300 * i : i % 5, 'x');  // also longer than a byte tells
    EXPECT_EQ(block.begin(i), bytes.size());
    block.append(text);
    bytes += text + "\n";
    EXPECT_EQ(block[i], text);
    EXPECT_EQ(block.textAt(bytes.size() - 1), i);
  }
  EXPECT_EQ(block.bytes(), bytes);
}

TEST(TextBlock, BeginOfTheTextAfterTheLastIsTheEndOfTheBytes) {
  const TextBlock block = blockOf({"ab", "c"});
  EXPECT_EQ(block.begin(0), 0U);
  EXPECT_EQ(block.begin(1), 3U);
  EXPECT_EQ(block.begin(2), block.bytes().size());
}

TEST(TextBlock, IsEmptyAfterClear) {
  TextBlock block = blockOf({"a"});
  EXPECT_FALSE(block.empty());
  block.clear();
  EXPECT_TRUE(block.empty());
  EXPECT_EQ(block.size(), 0U);
  EXPECT_EQ(block.bytes(), "");
  block.append("b");
  EXPECT_EQ(block[0], "b");
}

TEST(TextBlock, KeepsItsTextsWhenRoomIsGivenBack) {
  TextBlock block = blockOf({"a", "b"});
  block.shrinkToFit();
  EXPECT_EQ(block[0], "a");
  EXPECT_EQ(block[1], "b");
}

}  // namespace
}  // namespace velta
