// Every code path the CPU can run must give exactly what the plain path gives, and the plain path
// what the step-by-step algorithms give; also where replacements make surrogates meet.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <random>

#include "tq/foundation/string_code_paths.h"
#include "tq/foundation/string_extensions.h"

using namespace tq;

namespace {

// The algorithms as written, on the base operations (quadratic where they are). The substitution
// loop replaces the first member and searches again from the start; nullopt when it has not ended
// after `rounds` replacements.
std::optional<String> loopAsWritten(const String& self, const String& sub, const CharacterSet& set, int rounds = 10000) {
  Range r = self.rangeOfCharacterFromSet(set);
  if (!r.found()) return self;
  MutableString m(self);
  for (; r.found(); r = m.copy().rangeOfCharacterFromSet(set)) {
    if (rounds-- == 0) return std::nullopt;
    m.replaceCharactersInRange(r, sub);
  }
  return m.copy();
}

String referenceSubstitute(const String& self, const String& sub, const CharacterSet& set) {
  return *loopAsWritten(self, sub, set);
}

String units(std::initializer_list<unichar> list) { return String::withCharacters(list.begin(), list.size()); }

String referenceRemoveLineBreaks(const String& self) {
  if (!self.rangeOfString(u"\n").found() && !self.rangeOfString(u"\r").found()) return self;
  MutableString m(self);
  m.replaceOccurrencesOfString(u"\n", u" ", LiteralSearch, Range{0, m.length()});
  m.replaceOccurrencesOfString(u"\r", u" ", LiteralSearch, Range{0, m.length()});
  return m.copy();
}

String referenceReduce(const String& self) {
  const CharacterSet& ws = CharacterSet::whitespaceCharacterSet();
  MutableString m;
  bool inRun = false;
  for (unichar c : self.view()) {
    if (ws.characterIsMember(c)) {
      if (!inRun) m.appendCharacter(u' ');
      inRun = true;
    } else {
      m.appendCharacter(c);
      inRun = false;
    }
  }
  return m.copy();
}

String referenceTrim(const String& self) {
  CharacterSet notWs = CharacterSet::whitespaceCharacterSet().invertedSet();
  Range first = self.rangeOfCharacterFromSet(notWs);
  if (!first.found()) return String::empty();
  Range last = self.rangeOfCharacterFromSet(notWs, BackwardsSearch);
  if (first.location == 0 && last.max() == self.length()) return self;
  return self.substringWithRange({first.location, last.max() - first.location});
}

const char16_t kAlphabet[] = {u'a',    u'b',    u' ',    u'\t',   u'\n',   u'\r',   0x00A0, 0x3000, 0x2000, 0x200A,
                              0x200B, 0x1680, 0x202F, 0x205F, 0x00E9, 0x0120, 0x01FF, 0x8000, 0xD83D, 0xFFFF,
                              0x0085, 0x2028, u'|',   0x1FFF, 0x200C, 0x3001, 0x00FF, 0x0100, 0xDE00, 0xDE01,
                              0xDBFF, 0xDC00, 0x0303, 0x0707, 0x0450, 0x0A0A, 0xD800};

std::vector<String> sampleInputs() {
  std::vector<String> inputs;
  std::mt19937 rng(20240611);
  for (int i = 0; i < 600; ++i) {
    std::size_t len = rng() % 160;
    // Mostly prose-like or mostly whitespace, to reach both the fast and the slow branches.
    bool spacey = i % 3 == 0;
    std::u16string s;
    for (std::size_t k = 0; k < len; ++k) {
      unsigned pick = rng() % 100;
      if (!spacey && pick < 70) {
        s += static_cast<char16_t>(u'a' + rng() % 26);
      } else {
        s += kAlphabet[rng() % std::size(kAlphabet)];
      }
    }
    inputs.emplace_back(s);
  }
  // One special unit at, around and across each vector boundary, and whitespace runs spanning them.
  for (char16_t special : {u'\n', u'\r', u'\t', u' ', char16_t(0x3000), char16_t(0x00A0), char16_t(0x2005), u'|'}) {
    for (std::size_t pos : {0, 1, 14, 15, 16, 17, 31, 32, 33, 63, 64, 65, 95}) {
      std::u16string s(97, u'x');
      s[pos] = special;
      inputs.emplace_back(s);
      s.assign(pos + 1, u'x');
      s[pos] = special;
      inputs.emplace_back(s);
      std::u16string run(130, u'y');
      for (std::size_t k = pos; k < pos + 5 && k < run.size(); ++k) run[k] = special;
      inputs.emplace_back(run);
    }
  }
  // Surrogate pairs straddling each vector boundary, and a member's high half before another low one.
  for (std::size_t pos : {0, 14, 15, 16, 30, 31, 32, 62, 63, 64, 95}) {
    std::u16string s(97, u'x');
    s[pos] = 0xD83D;
    s[pos + 1] = 0xDE00;
    inputs.emplace_back(s);
    s[pos + 1] = 0xDE01;
    inputs.emplace_back(s);
    s[pos] = 0xDE00;  // a lone low half, then another lone one
    inputs.emplace_back(s);
  }
  inputs.emplace_back(std::u16string(100, u' '));
  inputs.emplace_back(std::u16string(64, char16_t(0x3000)) + u"z" + std::u16string(33, u'\t'));
  inputs.emplace_back(String::empty());
  return inputs;
}

struct SetCase {
  CharacterSet set;
  String substitute;
};

std::vector<SetCase> setCases() {
  return {
      {CharacterSet::characterSetWithCharactersInString(u"\t|"), u" "},
      {CharacterSet::characterSetWithCharactersInString(u"\u00E9"), u"e\u0301"},
      {CharacterSet::characterSetWithCharactersInString(u"a\u0120\u01FF"), u""},
      {CharacterSet::characterSetWithCharactersInString(u"\u3000\uFFFF\u8000"), u"[]"},
      {CharacterSet::whitespaceCharacterSet(), u"_"},
      {CharacterSet::whitespaceCharacterSet().invertedSet(), u" "},
      {CharacterSet::characterSetWithRange({0x7F, 3}), u"?"},
      // More blocks with members than the vector tables list, and blocks that are wholly members.
      {CharacterSet::characterSetWithCharactersInString(u"\u0101\u0202\u0303\u0404\u0450\u0505\u0606\u0707\u0A0A|"), u"#"},
      {CharacterSet::characterSetWithRange({0x00F0, 0x0420}), u"~"},
      // Characters above U+FFFF and lone surrogates.
      {CharacterSet::characterSetWithCharactersInString(u"\U0001F600|"), u"?"},
      {CharacterSet::characterSetWithCharactersInString(u"\U0001F600|"), u"<>"},
      {CharacterSet::characterSetWithCharactersInString(u"\xD83D\xDE01\t"), u"?"},
      {CharacterSet::characterSetWithRange({0xDBFF, 0x10}), u"@"},
  };
}

class StringCodePaths : public ::testing::TestWithParam<StringCodePath> {
 protected:
  void SetUp() override {
    saved_ = currentStringCodePath();
    auto paths = availableStringCodePaths();
    if (std::find(paths.begin(), paths.end(), GetParam()) == paths.end()) {
      GTEST_SKIP() << "this CPU cannot run the " << stringCodePathName(GetParam()) << " path";
    }
  }
  void TearDown() override { setStringCodePath(saved_); }
  StringCodePath saved_ = StringCodePath::Plain;
};

TEST_P(StringCodePaths, GiveTheAlgorithmsResults) {
  setStringCodePath(GetParam());
  ASSERT_EQ(currentStringCodePath(), GetParam());
  // Reducing the empty string still gives a new string.
  EXPECT_FALSE(stringByReducingWhitespaces(String::empty()).isIdenticalTo(String::empty()));
  auto sets = setCases();
  for (const String& in : sampleInputs()) {
    ASSERT_EQ(stringByReducingWhitespaces(in), referenceReduce(in)) << in;
    String lb = stringByRemovingLineBreaks(in);
    ASSERT_EQ(lb, referenceRemoveLineBreaks(in)) << in;
    ASSERT_EQ(lb.isIdenticalTo(in), referenceRemoveLineBreaks(in).isIdenticalTo(in)) << in;
    String trimmed = stringByRemovingSurroundingWhitespace(in);
    ASSERT_EQ(trimmed, referenceTrim(in)) << in;
    ASSERT_EQ(trimmed.isIdenticalTo(in), referenceTrim(in).isIdenticalTo(in)) << in;
    for (const SetCase& c : sets) {
      String sub = stringWithSubstitute(in, c.substitute, c.set);
      ASSERT_EQ(sub, referenceSubstitute(in, c.substitute, c.set)) << in;
      ASSERT_EQ(sub.isIdenticalTo(in), referenceSubstitute(in, c.substitute, c.set).isIdenticalTo(in)) << in;
    }
  }
}

TEST_P(StringCodePaths, InputsAtEveryOffsetOfAnUnalignedBuffer) {
  // Substrings starting at every offset put the vector loads on every alignment; the tails of every
  // length exercise the scalar and masked ends.
  setStringCodePath(GetParam());
  String base(u"  lorem\t\tipsum \u3000 dolor\r\nsit\u00A0amet,\u2003\u2003consectetur  \t adipiscing\nelit  ");
  for (UInteger from = 0; from < 20; ++from) {
    for (UInteger len = 0; from + len <= base.length(); len += 3) {
      String in = base.substringWithRange({from, len});
      ASSERT_EQ(stringByReducingWhitespaces(in), referenceReduce(in)) << from << "+" << len;
      ASSERT_EQ(stringByRemovingLineBreaks(in), referenceRemoveLineBreaks(in));
      ASSERT_EQ(stringByRemovingSurroundingWhitespace(in), referenceTrim(in));
    }
  }
}

TEST_P(StringCodePaths, LongTextsDenseWithMembers) {
  // Hundreds of members, pairs among them, so that the batches of found members fill and restart
  // at every vector alignment; the substitutes change the length both ways.
  setStringCodePath(GetParam());
  std::mt19937 rng(5);
  const char16_t pieces[][3] = {u"|", u"ab", u"\U0001F600", u"\U0001F601", u"\t", u"\u3001", u"x"};
  std::u16string text;
  while (text.size() < 3000) text += pieces[rng() % std::size(pieces)];
  const CharacterSet sets[] = {CharacterSet::characterSetWithCharactersInString(u"|\U0001F600"),
                               CharacterSet::characterSetWithCharactersInString(u"|\t\u3001")};
  for (UInteger from : {0, 1, 7, 31}) {
    String in = String(text).substringFromIndex(from);
    if (in.length() && in.characterAtIndex(0) >= 0xDC00 && in.characterAtIndex(0) <= 0xDFFF) continue;
    for (const CharacterSet& set : sets) {
      for (const String& sub : {String(u"?"), String(u""), String(u"<->")}) {
        ASSERT_EQ(stringWithSubstitute(in, sub, set), referenceSubstitute(in, sub, set)) << from;
      }
    }
  }
}

TEST_P(StringCodePaths, SubstitutionAgreesWithTheLoopOnTextsOfHalves) {
  setStringCodePath(GetParam());
  // Short texts of two high and two low halves, members and others, every set and substitute of
  // a few units: wherever the loop as written ends, the result is the same, also where deletions
  // or substitutes make halves meet into a character (which is then a member or not).
  const unichar alphabet[] = {0xD83D, 0xD83E, 0xDE00, 0xDE01, '|', 'a'};
  const String sets[] = {u"|\U0001F600", u"|\U0001F600\U0001F901", units({'|', 0xDE00}), units({'|', 0xD83D}),
                         units({'|', 0xDE00, 0xD83E}), u"|"};
  std::mt19937 rng(30);
  int compared = 0;
  for (int round = 0; round < 20000; ++round) {
    std::u16string text, sub;
    for (std::size_t n = rng() % 9; n; --n) text += alphabet[rng() % std::size(alphabet)];
    for (std::size_t n = rng() % 4; n; --n) sub += alphabet[rng() % std::size(alphabet)];
    const CharacterSet set = CharacterSet::characterSetWithCharactersInString(sets[rng() % std::size(sets)]);
    if (String(sub).rangeOfCharacterFromSet(set).found()) continue;  // refused: the loop would not end
    const std::optional<String> expected = loopAsWritten(String(text), String(sub), set);
    if (!expected) continue;
    ++compared;
    ASSERT_EQ(stringWithSubstitute(String(text), String(sub), set), *expected) << "round " << round;
  }
  EXPECT_GT(compared, 5000);
}

INSTANTIATE_TEST_SUITE_P(All, StringCodePaths,
                         ::testing::Values(StringCodePath::Plain, StringCodePath::AVX2, StringCodePath::AVX512),
                         [](const auto& info) { return std::string(info.param == StringCodePath::AVX512 ? "AVX512"
                                                                    : info.param == StringCodePath::AVX2 ? "AVX2"
                                                                                                          : "Plain"); });

TEST(StringCodePathChoice, BestPathIsTheDefaultAndPlainAlwaysRuns) {
  auto paths = availableStringCodePaths();
  ASSERT_FALSE(paths.empty());
  EXPECT_EQ(paths.front(), StringCodePath::Plain);
  EXPECT_EQ(currentStringCodePath(), paths.back());
}

}  // namespace

namespace {

// TQ_ISA is read once per process, so each case runs in a new one (a death-test child).
void expectPathUnder(const char* isa, StringCodePath expected) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  setenv("TQ_ISA", isa, 1);
  EXPECT_EXIT(std::exit(currentStringCodePath() == expected ? 0 : 1), ::testing::ExitedWithCode(0), "") << isa;
  unsetenv("TQ_ISA");
}

TEST(StringCodePathChoice, TheEnvironmentLimitsThePath) {
  auto paths = availableStringCodePaths();
  expectPathUnder("plain", StringCodePath::Plain);
  expectPathUnder("SSSE3", StringCodePath::Plain);
  expectPathUnder("avx2", paths.size() > 1 ? StringCodePath::AVX2 : StringCodePath::Plain);
  expectPathUnder("avx512", paths.back());
  expectPathUnder("no-such-isa", paths.back());
}

}  // namespace
