#include <gtest/gtest.h>

#include "tq/platform/base/exception.h"
#include "tq/platform/base/value.h"

using namespace tq;

TEST(Value, NilAnswersNothing) {
  Value nil;
  EXPECT_TRUE(nil.isNil());
  EXPECT_FALSE(nil.boolValue());
  EXPECT_EQ(nil.integerValue(), 0);
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

TEST(Value, ArrayIndexOutOfRangeRaisesRangeException) {
  Array a{1, 2};
  try {
    (void)a.objectAtIndex(2);
    FAIL() << "no exception";
  } catch (const Exception& e) {
    EXPECT_EQ(e.name(), String(NSRangeException));
  }
  EXPECT_TRUE(Array().firstObject().isNil());
}
