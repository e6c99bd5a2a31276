#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/raised.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/base/value.h"

using namespace tq;

TEST(Value, NilAnswersNothing) {
  Value nil;
  EXPECT_TRUE(nil.stringValue().isNil());
  EXPECT_TRUE(nil.dictionaryValue().objectForKey(u"x").isNil());
  EXPECT_TRUE(Value(String()).isNil()) << "a nil string makes a nil value";
}

TEST(Value, NumbersCompareByValueAcrossKinds) {
  EXPECT_EQ(Value(1), Value(1.0));
  EXPECT_EQ(Value(true), Value(1));
  EXPECT_NE(Value(2), Value(true));
  EXPECT_NE(Value(u"1"), Value(1));
}

TEST(Value, DictionariesCompareDeeplyAndKeepInsertionOrder) {
  Dictionary a{{u"b", 1}, {u"a", Array{u"x", Data{1, 2}}}};
  Dictionary b{{u"a", Array{u"x", Data{1, 2}}}, {u"b", 1}};
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.allKeys(), (std::vector<String>{u"b", u"a"}));
  EXPECT_NE(a, a.dictionaryBySettingObject(u"b", 2));
  MutableDictionary m(a);
  m.setObject(Value(), u"b");
  EXPECT_EQ(m.count(), 1u);
  EXPECT_EQ(m.allKeys(), (std::vector<String>{u"a"}));
}

TEST(Value, DictionariesOfAnySizeAnswerLikeAnOrderedModel) {
  // Small dictionaries are scanned, larger ones indexed: both must answer every key, keep insertion
  // order and stay right while they grow past the index and shrink back below it.
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> keyOf(0, 23), action(0, 3);
  MutableDictionary m;
  std::vector<std::pair<std::string, int>> model;  // insertion order, as the dictionary keeps it
  for (int step = 0; step < 600; ++step) {
    const std::string key = "k" + std::to_string(keyOf(rng));
    auto at = std::find_if(model.begin(), model.end(), [&](const auto& e) { return e.first == key; });
    if (action(rng) == 0) {
      m.removeObjectForKey(String::fromUTF8(key));
      if (at != model.end()) model.erase(at);
    } else {
      m.setObject(Value(step), String::fromUTF8(key));
      if (at != model.end()) {
        at->second = step;
      } else {
        model.emplace_back(key, step);
      }
    }
    const Dictionary d = m.copy();
    ASSERT_EQ(d.count(), model.size()) << "step " << step;
    std::vector<String> keys;
    for (const auto& [k, v] : model) {
      keys.push_back(String::fromUTF8(k));
      ASSERT_EQ(d.objectForKey(String::fromUTF8(k)).integerValue(), v) << k << " at step " << step;
    }
    ASSERT_EQ(d.allKeys(), keys) << "step " << step;
    ASSERT_TRUE(d.objectForKey(u"absent").isNil());
    ASSERT_EQ(d, Dictionary(std::vector<Dictionary::Entry>(d.entries().rbegin(), d.entries().rend())));
  }
}

TEST(Value, ArrayIndexOutOfRangeRaisesRangeException) {
  Array a{1, 2};
  tq::test::raisedReason([&] { (void)a.objectAtIndex(2); }, NSRangeException);
  EXPECT_TRUE(Array().firstObject().isNil());
}
