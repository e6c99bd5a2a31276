// KeyPattern's answers against the C library's own: every pattern compiled with regcomp here and
// run over the key with regexec, a match counting when it covers the whole key. The shortcuts
// (".*", literal patterns, the literal start) must never answer otherwise.
#include <gtest/gtest.h>
#include <regex.h>

#include <string>
#include <vector>

#include "tq/platform/store/key_pattern.h"

using namespace tq;

namespace {

bool reference(const std::string& pattern, const std::string& key) {
  regex_t re;
  if (regcomp(&re, pattern.c_str(), REG_EXTENDED) != 0) return false;
  regmatch_t m;
  bool whole = regexec(&re, key.c_str(), 1, &m, 0) == 0 && m.rm_so == 0 && static_cast<std::size_t>(m.rm_eo) == key.size();
  regfree(&re);
  return whole;
}

}  // namespace

TEST(KeyPattern, AnswersAsTheExpressionDoes) {
  const std::vector<std::string> patterns = {
      ".*", "State:/Network/Global/IPv4", "State:/Network/Interface/[^/]+/Link", "State:/.*/AirPort",
      "State:/Network/(Interface/[^/]+/Link|Global/IPv4)", "Setup:/Network/Service/[^/]+/Interface",
      "ab*c", "ab+c", "ab?c", "ab{2}c", "a|State:.*", "(a|b)c", "[|]x", "[]a]x", "a\\.b", "^State:.*",
      "State:.*$", "x)|(.*", "\xc3\xa9t\xc3\xa9.*", "\xc3\xa9", "", ".", "a.*", "(.*)", ".*x",
  };
  const std::vector<std::string> keys = {
      "", "a", "x", "ac", "abc", "abbc", "bc", "|x", "]x", "ax", "a.b", "aXb",
      "State:/Network/Global/IPv4", "State:/Network/Global/IPv4x", "State:/Network/Interface/eth0/Link",
      "State:/Network/Interface/eth0/IPv4", "State:/Network/Interface/a/b/Link", "State:/Network/Interface/wl0/AirPort",
      "Setup:/Network/Service/eth0/Interface", "State:", std::string("a\0b", 3), std::string("State:\0x", 8),
      "\xc3\xa9t\xc3\xa9", "\xc3\xa9", "\xc3\xa9t\xc3\xa9 x", "n\\xff",
  };
  for (const std::string& p : patterns) {
    auto compiled = KeyPattern::compile(String::fromUTF8(p));
    regex_t probe;
    bool valid = regcomp(&probe, p.c_str(), REG_EXTENDED) == 0;
    if (valid) regfree(&probe);
    ASSERT_EQ(compiled != nullptr, valid) << p;
    if (!compiled) continue;
    for (const std::string& k : keys) {
      bool expected = reference(p, k);
      EXPECT_EQ(compiled->matches(k), expected) << "pattern " << p << ", key " << k;
      if (k.find('\0') == std::string::npos) {  // a key with U+0000 is checked on its own below
        EXPECT_EQ(compiled->matches(String::fromUTF8(k)), expected) << "pattern " << p << ", key " << k;
      }
    }
  }
}

TEST(KeyPattern, KeysHoldingANulCharacterAsTheCLibrarySeesThem) {
  // The C library reads a key up to U+0000, so no whole-key match reaches past it.
  const char16_t withNul[] = {u'a', 0, u'b'};
  String key = String::withCharacters(withNul, 3);
  for (const char16_t* p : {u".*", u"a.*", u"a"}) EXPECT_FALSE(KeyPattern::compile(p)->matches(key)) << String(p);
}
