#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "json/JSON.h"

namespace velta {
namespace {

using Kind = JSON::Kind;

const std::string kLongText(1000, 'x');

// One value of every kind and of every way to hold it.
std::vector<JSON> oneOfEach() {
  return {nullptr,
          true,
          false,
          0,
          -7,
          std::numeric_limits<std::int64_t>::max(),
          0.0,
          2.5,
          "",
          "fourteen bytes",
          "fifteen  bytes.",
          kLongText,
          JSON::Array{},
          JSON::Array{1, "two", JSON::Array{3.0}},
          JSONObject{},
          JSONObject{{"a", 1}, {"b", JSONObject{{"c", kLongText}}}}};
}

std::string key(int number) { return std::to_string(number).insert(0, "key "); }

JSONObject objectOfSize(int count) {
  JSONObject object;
  for (int i = 0; i < count; ++i) object.set(key(i), i);
  return object;
}

TEST(JSON, IsSixteenBytesAndMovesWithoutFailing) {
  EXPECT_EQ(sizeof(JSON), 16U);
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<JSON>);
  EXPECT_TRUE(std::is_nothrow_move_assignable_v<JSON>);
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<JSONObject>);
}

TEST(JSON, EveryConstructorGivesItsKind) {
  EXPECT_EQ(JSON().kind(), Kind::null);
  EXPECT_EQ(JSON(nullptr).kind(), Kind::null);
  EXPECT_EQ(JSON(true).kind(), Kind::boolean);
  EXPECT_EQ(JSON(5).kind(), Kind::integer);
  EXPECT_EQ(JSON(5U).kind(), Kind::integer);
  EXPECT_EQ(JSON(std::size_t{5}).kind(), Kind::integer);
  EXPECT_EQ(JSON(5.0).kind(), Kind::number);
  EXPECT_EQ(JSON("text").kind(), Kind::string);
  EXPECT_EQ(JSON(std::string("text")).kind(), Kind::string);
  EXPECT_EQ(JSON(std::string_view("text")).kind(), Kind::string);
  EXPECT_EQ(JSON(JSON::Array{1}).kind(), Kind::array);
  EXPECT_EQ(JSON(JSONObject{}).kind(), Kind::object);
}

TEST(JSON, AnOptionalIsItsValueOrNull) {
  EXPECT_EQ(JSON(std::optional<std::string>("text")), JSON("text"));
  EXPECT_EQ(JSON(std::optional<int>(3)), JSON(3));
  EXPECT_EQ(JSON(std::optional<bool>(false)), JSON(false));
  EXPECT_TRUE(JSON(std::optional<double>()).isNull());
}

TEST(JSON, GivesItsPayloadToTheRightQuestionOnly) {
  for (const JSON& value : oneOfEach()) {
    EXPECT_EQ(value.isNull(), value.kind() == Kind::null);
    EXPECT_EQ(value.asBool().has_value(), value.kind() == Kind::boolean);
    EXPECT_EQ(value.asInt().has_value(), value.kind() == Kind::integer);
    EXPECT_EQ(value.asDouble().has_value(), value.kind() == Kind::number);
    EXPECT_EQ(value.asNumber().has_value(),
              value.kind() == Kind::integer || value.kind() == Kind::number);
    EXPECT_EQ(value.asString().has_value(), value.kind() == Kind::string);
    EXPECT_EQ(value.asArray() != nullptr, value.kind() == Kind::array);
    EXPECT_EQ(value.asObject() != nullptr, value.kind() == Kind::object);
  }
  EXPECT_EQ(JSON(true).asBool(), true);
  EXPECT_EQ(JSON(-7).asInt(), -7);
  EXPECT_EQ(JSON(2.5).asDouble(), 2.5);
  EXPECT_EQ(JSON(-7).asNumber(), -7.0);
  EXPECT_EQ(JSON(2.5).asNumber(), 2.5);
  EXPECT_EQ(JSON(JSON::Array{1, 2}).asArray()->size(), 2U);
}

TEST(JSON, StringsOfEveryLengthComeBackWhole) {
  for (std::size_t length = 0; length < 100; ++length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
    const JSON value(text);
    EXPECT_EQ(value.asString(), text);
    EXPECT_EQ(JSON(value).asString(), text);
    EXPECT_EQ(value, JSON(text));
    EXPECT_NE(value, JSON(text + "!"));
  }
}

TEST(JSON, StringsMayHoldNUL) {
  const std::string_view text("a\0b", 3);
  EXPECT_EQ(JSON(text).asString(), text);
  EXPECT_NE(JSON(std::string_view("a\0", 2)), JSON("a"));
}

TEST(JSON, EqualsItsCopyAndNothingElse) {
  const std::vector<JSON> values = oneOfEach();
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t j = 0; j < values.size(); ++j) {
      EXPECT_EQ(values[i] == JSON(values[j]), i == j) << i << " and " << j;
    }
  }
}

TEST(JSON, IntegersAndDoublesAreNeverEqual) {
  EXPECT_NE(JSON(1), JSON(1.0));
  EXPECT_NE(JSON(0), JSON(false));
  EXPECT_EQ(JSON(0.0), JSON(-0.0));
}

TEST(JSON, NaNEqualsNothing) {
  const JSON nan(std::nan(""));
  EXPECT_NE(nan, nan);
  EXPECT_NE(JSON(JSON::Array{nan}), JSON(JSON::Array{nan}));
}

TEST(JSON, DifferencesDeepInsideCount) {
  const auto nested = [](int inner) {
    return JSON(JSON::Array{1, JSONObject{{"a", JSON::Array{JSONObject{{"b", inner}}, 2}}}, 3});
  };
  EXPECT_EQ(nested(1), nested(1));
  EXPECT_NE(nested(1), nested(2));
}

TEST(JSON, ACopyIsDeep) {
  JSON value = JSONObject{{"list", JSON::Array{1, JSONObject{{"text", kLongText}}}}};
  const JSON copy = value;
  (*value.asObject()->get("list")->asArray())[1].asObject()->set("text", "changed");
  EXPECT_NE(value, copy);
  EXPECT_EQ(*copy.asObject()->getArray("list")->at(1).asObject()->getString("text"), kLongText);
}

TEST(JSON, AMovedFromValueIsNull) {
  for (JSON& value : oneOfEach()) {
    const JSON copy = value;
    const JSON moved = std::move(value);
    EXPECT_EQ(moved, copy);
    EXPECT_TRUE(value.isNull());  // NOLINT(bugprone-use-after-move): it is the fact under test
  }
}

TEST(JSON, CanBeAssignedAPartOfItself) {
  JSON value = JSON::Array{JSON::Array{kLongText, 2}, 3};
  value = std::move((*value.asArray())[0]);
  EXPECT_EQ(value, JSON(JSON::Array{kLongText, 2}));
  value = (*value.asArray())[0];
  EXPECT_EQ(value, JSON(kLongText));
  const JSON& same = value;
  value = same;
  EXPECT_EQ(value, JSON(kLongText));
}

TEST(JSON, CanBePutIntoItself) {
  JSON value = JSON::Array{1};
  value.asArray()->push_back(value);
  EXPECT_EQ(value, JSON(JSON::Array{1, JSON::Array{1}}));
}

TEST(JSON, IntegerValueTakesWholeDoublesBelow1e15) {
  EXPECT_EQ(JSON(7).integerValue(), 7);
  EXPECT_EQ(JSON(std::numeric_limits<std::int64_t>::min()).integerValue(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(JSON(7.0).integerValue(), 7);
  EXPECT_EQ(JSON(-0.0).integerValue(), 0);
  EXPECT_EQ(JSON(-999999999999999.0).integerValue(), -999999999999999);
  for (const double number : {1e15, -1e15, 7.5, std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    EXPECT_EQ(JSON(number).integerValue(), std::nullopt) << number;
  }
  for (const JSON& value : {JSON("7"), JSON(true), JSON(), JSON(JSON::Array{7})}) {
    EXPECT_EQ(value.integerValue(), std::nullopt);
  }
}

TEST(JSON, EmptyAndZeroAreNotTruthy) {
  for (const JSON& value : {JSON(), JSON(false), JSON(0), JSON(0.0), JSON(-0.0), JSON(""),
                            JSON(JSON::Array{}), JSON(JSONObject{})}) {
    EXPECT_FALSE(value.truthy());
  }
  for (const JSON& value :
       {JSON(true), JSON(-1), JSON(0.1), JSON(std::nan("")), JSON("0"), JSON(kLongText),
        JSON(JSON::Array{nullptr}), JSON(JSONObject{{"a", nullptr}})}) {
    EXPECT_TRUE(value.truthy());
  }
}

TEST(JSONObject, KeepsTheOrderOfFirstSetting) {
  JSONObject object;
  object.set("b", 1);
  object.set("a", 2);
  object.set("b", 3);
  EXPECT_EQ(object.keys(), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(object, (JSONObject{{"b", 3}, {"a", 2}}));
}

TEST(JSONObject, ARepeatedKeyOfAListKeepsItsPlaceAndTakesTheLastValue) {
  const JSONObject object{{"a", 1}, {"b", 2}, {"a", 3}};
  EXPECT_EQ(object, (JSONObject{{"a", 3}, {"b", 2}}));
}

TEST(JSONObject, OrderTakesPartInEquality) {
  EXPECT_NE((JSONObject{{"a", 1}, {"b", 2}}), (JSONObject{{"b", 2}, {"a", 1}}));
  EXPECT_NE(JSON(JSONObject{{"a", 1}, {"b", 2}}), JSON(JSONObject{{"b", 2}, {"a", 1}}));
  EXPECT_NE((JSONObject{{"a", 1}}), (JSONObject{{"a", 1}, {"b", 2}}));
}

TEST(JSONObject, ErasingTakesTheKeyOutAndSettingItAgainPutsItLast) {
  JSONObject object{{"a", 1}, {"b", 2}, {"c", 3}};
  object.erase("missing");
  EXPECT_EQ(object.size(), 3U);
  object.erase("a");
  EXPECT_FALSE(object.has("a"));
  object.set("a", 4);
  EXPECT_EQ(object, (JSONObject{{"b", 2}, {"c", 3}, {"a", 4}}));
}

TEST(JSONObject, GettersMergeAbsentAndOfAnotherKind) {
  const JSONObject object{{"bool", true},           {"int", 5},
                          {"double", 2.5},          {"text", "x"},
                          {"list", JSON::Array{1}}, {"object", JSONObject{}}};
  EXPECT_EQ(object.getBool("bool"), true);
  EXPECT_EQ(object.getInt("int"), 5);
  EXPECT_EQ(object.getNumber("int"), 5.0);
  EXPECT_EQ(object.getNumber("double"), 2.5);
  EXPECT_EQ(object.getString("text"), "x");
  EXPECT_EQ(object.getArray("list")->size(), 1U);
  EXPECT_TRUE(object.getObject("object")->empty());
  for (const char* key : {"missing", "text"}) {
    EXPECT_EQ(object.getBool(key), std::nullopt);
    EXPECT_EQ(object.getInt(key), std::nullopt);
    EXPECT_EQ(object.getNumber(key), std::nullopt);
    EXPECT_EQ(object.getArray(key), nullptr);
    EXPECT_EQ(object.getObject(key), nullptr);
  }
  EXPECT_EQ(object.getString("int"), std::nullopt);
  EXPECT_EQ(object.getInt("double"), std::nullopt);
}

TEST(JSONObject, IteratesInOrderOverKeysAndValues) {
  const JSONObject object{{"b", 1}, {"a", kLongText}};
  std::vector<std::pair<std::string, JSON>> seen;
  for (const auto& [key, value] : object) seen.emplace_back(key, value);
  EXPECT_EQ(seen, (std::vector<std::pair<std::string, JSON>>{{"b", 1}, {"a", kLongText}}));
}

TEST(JSONObject, ValuesCanBeChangedWhileIterating) {
  JSONObject object{{"a", 1}, {"b", 2}};
  for (const auto& [key, value] : object) value = std::string(key);
  EXPECT_EQ(object, (JSONObject{{"a", "a"}, {"b", "b"}}));
}

TEST(JSONObject, LongKeysAreFoundLikeShortOnes) {
  JSONObject object;
  object.set(kLongText, 1);
  object.set(kLongText + "y", 2);
  object.set(kLongText, 3);
  EXPECT_EQ(object.size(), 2U);
  EXPECT_EQ(object.getInt(kLongText), 3);
}

// A list of members whose every operation walks over all of them.
class NaiveObject {
 public:
  void set(const std::string& key, const JSON& value) {
    const auto found = find(key);
    if (found != members_.end()) {
      found->second = value;
    } else {
      members_.emplace_back(key, value);
    }
  }
  void erase(const std::string& key) {
    const auto found = find(key);
    if (found != members_.end()) members_.erase(found);
  }
  const std::vector<std::pair<std::string, JSON>>& members() const { return members_; }

 private:
  std::vector<std::pair<std::string, JSON>>::iterator find(const std::string& key) {
    return std::ranges::find(members_, key, &std::pair<std::string, JSON>::first);
  }
  std::vector<std::pair<std::string, JSON>> members_;
};

TEST(JSONObject, AgreesWithAListOfMembersAfterEveryChange) {
  std::mt19937 random(7);
  for (const unsigned keys : {3U, 20U, 60U}) {
    JSONObject object;
    NaiveObject naive;
    for (int step = 0; step < 600; ++step) {
      const std::string key = std::string(random() % 20, 'k') + std::to_string(random() % keys);
      if (random() % 3 == 0) {
        object.erase(key);
        naive.erase(key);
      } else {
        const JSON value = std::string(random() % 30, 'v');
        object.set(key, value);
        naive.set(key, value);
      }
      if (step % 50 == 0) object = JSONObject(object);
      std::vector<std::pair<std::string, JSON>> seen;
      for (const auto& [name, value] : object) seen.emplace_back(name, value);
      ASSERT_EQ(seen, naive.members());
      for (const auto& [name, value] : naive.members()) ASSERT_EQ(*object.get(name), value);
    }
  }
}

// Sizes on both sides of the point from which on keys are hashed, and of the table's growth.
class JSONObjectOfSize : public testing::TestWithParam<int> {};

TEST_P(JSONObjectOfSize, FindsEveryKeyAndNoOther) {
  const JSONObject object = objectOfSize(GetParam());
  EXPECT_EQ(object.size(), static_cast<std::size_t>(GetParam()));
  for (int i = 0; i < GetParam(); ++i) EXPECT_EQ(object.getInt(key(i)), i);
  EXPECT_FALSE(object.has(key(GetParam())));
  EXPECT_FALSE(object.has(""));
}

TEST_P(JSONObjectOfSize, ResettingKeepsThePlace) {
  JSONObject object = objectOfSize(GetParam());
  const std::vector<std::string> keys = object.keys();
  for (int i = GetParam() - 1; i >= 0; --i) object.set(key(i), -i);
  EXPECT_EQ(object.keys(), keys);
  for (int i = 0; i < GetParam(); ++i) EXPECT_EQ(object.getInt(key(i)), -i);
}

TEST_P(JSONObjectOfSize, ErasingEveryOtherLeavesTheRestInOrder) {
  JSONObject object = objectOfSize(GetParam());
  std::vector<std::string> left;
  for (int i = 0; i < GetParam(); ++i) {
    if (i % 2 == 0) {
      object.erase(key(i));
    } else {
      left.push_back(key(i));
    }
  }
  EXPECT_EQ(object.keys(), left);
  for (int i = 0; i < GetParam(); ++i) EXPECT_EQ(object.has(key(i)), i % 2 == 1);
  object.set(key(0), "again");
  left.push_back(key(0));
  EXPECT_EQ(object.keys(), left);
}

TEST_P(JSONObjectOfSize, CopiesAndMovedObjectsFindTheirKeys) {
  const JSONObject object = objectOfSize(GetParam());
  const JSON nested = JSON::Array{object};
  JSON copy = nested;
  EXPECT_EQ(copy, nested);
  JSONObject moved = std::move(*(*copy.asArray())[0].asObject());
  EXPECT_EQ(moved, object);
  moved.set("more", 1);
  for (int i = 0; i < GetParam(); ++i) EXPECT_EQ(moved.getInt(key(i)), i);
  EXPECT_EQ(moved.getInt("more"), 1);
}

INSTANTIATE_TEST_SUITE_P(, JSONObjectOfSize,
                         testing::Values(0, 1, 2, 15, 16, 17, 31, 32, 33, 1000));

}  // namespace
}  // namespace velta
