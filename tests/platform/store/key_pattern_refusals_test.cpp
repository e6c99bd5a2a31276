// Patterns the store refuses because the C library could not match them in time linear in the key.
#include <gtest/gtest.h>

#include <string>

#include "tq/platform/store/key_pattern.h"

using namespace tq;

TEST(KeyPatternRefusals, BackReferencesAreRefusedWithTheReason) {
  struct Case {
    const char* pattern;
    const char* reason;  // empty: compiled
  } cases[] = {
      {"(a)\\1", "not supported: back-references such as \\1 cannot be matched in time linear in the key"},
      {"[\\1]x", ""},    // a backslash and a digit in a bracket expression
      {"a\\\\1", ""},    // an escaped backslash, then the digit
      {"\\1", "not a valid extended regular expression (Invalid back reference)"},
  };
  for (const Case& c : cases) {
    std::string why;
    auto compiled = KeyPattern::compile(String::fromUTF8(c.pattern), &why);
    EXPECT_EQ(compiled == nullptr, *c.reason != '\0') << c.pattern;
    EXPECT_EQ(why, c.reason) << c.pattern;
  }
  // What is compiled answers as the C library does.
  auto bracket = KeyPattern::compile(u"[\\1]x");
  EXPECT_TRUE(bracket->matches(std::string("1x")));
  EXPECT_TRUE(bracket->matches(std::string("\\x")));
  EXPECT_FALSE(bracket->matches(std::string("\\1x")));
  auto escaped = KeyPattern::compile(u"a\\\\1");
  EXPECT_TRUE(escaped->matches(std::string("a\\1")));
}
