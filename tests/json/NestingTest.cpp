// Nesting is bounded by memory alone: every operation on a value up to a million levels deep must
// do with a stack that a recursion of a few hundred levels would overflow.
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>
#include <pthread.h>

#include "json/JSON.h"
#include "json/JSONParser.h"
#include "json/JSONWriter.h"
#include "support/Sanitized.h"

namespace velta {
namespace {

// Levels: so many do not fit the stack below however little each of them took.
constexpr std::size_t kMany = test::kSanitized ? 100000 : 1000000;
constexpr std::size_t kStackSize = 262144;

// Runs `work` in a thread with a small stack.
void runOnSmallStack(std::function<void()> work) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kStackSize), 0);
  const auto start = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, &attributes, start, &work), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  ASSERT_EQ(pthread_attr_destroy(&attributes), 0);
}

std::string repeat(std::string_view piece, std::size_t count) {
  std::string text;
  text.reserve(piece.size() * count);
  for (std::size_t i = 0; i < count; ++i) text += piece;
  return text;
}

// What is repeated on both sides of an innermost value, and how often.
struct Shape {
  std::string name;
  std::string open;
  std::string close;
  std::size_t count;
};

class Nesting : public testing::TestWithParam<Shape> {
 protected:
  static std::string text(std::string_view inner) {
    const Shape& shape = GetParam();
    return repeat(shape.open, shape.count) + std::string(inner) + repeat(shape.close, shape.count);
  }
};

TEST_P(Nesting, EveryLevelIsReadWrittenCopiedComparedAndFreed) {
  const std::string bytes = text("1");
  const std::string otherBytes = text("2");
  runOnSmallStack([&] {
    const JSON value = parseJSON(bytes);
    EXPECT_TRUE(writeCompact(value) == bytes);
    EXPECT_TRUE(JSON(value) == value);
    JSON other = parseJSON(otherBytes);
    EXPECT_FALSE(other == value);
    other = value;
    EXPECT_TRUE(other == value);
  });
}

TEST_P(Nesting, EveryLevelIsWrittenWithLineBreaks) {
  const std::string bytes = text("1");
  runOnSmallStack([&] {
    const std::string indented = writeIndented(parseJSON(bytes), 0);
    EXPECT_TRUE(writeCompact(parseJSON(indented)) == bytes);
  });
}

TEST_P(Nesting, AFaultInTheDepthFreesWhatWasBuilt) {
  const std::string bytes = text("x");
  runOnSmallStack([&] { EXPECT_THROW(parseJSON(bytes), JSONParseError); });
}

INSTANTIATE_TEST_SUITE_P(, Nesting,
                         testing::Values(Shape{"Arrays", "[", "]", kMany},
                                         Shape{"Objects", R"({"a":)", "}", kMany},
                                         Shape{"Alternating", R"([{"a":)", "}]", kMany / 2},
                                         Shape{"WithChildrenBefore", "[0,[[]],", "]", kMany / 10},
                                         Shape{"WithChildrenAfter", "[", ",[[]],0]", kMany / 10},
                                         Shape{"ObjectsWithChildrenAround", R"({"x":[[1]],"a":)",
                                               R"(,"y":{"z":[]}})", kMany / 10}),
                         [](const auto& shape) { return shape.param.name; });

// A binary tree: every container but the leaves has two containers inside.
TEST(BranchingNesting, AWideTreeIsFreedInFull) {
  JSON tree = JSON::Array{};
  for (int i = 0; i < 14; ++i) {
    JSON copy = tree;
    tree = i % 2 == 0 ? JSON(JSON::Array{std::move(tree), std::move(copy)})
                      : JSON(JSONObject{{"a", std::move(tree)}, {"b", std::move(copy)}});
  }
  const JSON copy = tree;
  EXPECT_TRUE(copy == tree);
}

}  // namespace
}  // namespace velta
