// Substitution where replacements make surrogates meet, and the reduction of the empty string:
// every code path against the loop as written (replace the first member, search again from the
// start), on the base string operations.
#include <gtest/gtest.h>

#include <optional>
#include <random>

#include "tq/foundation/string_code_paths.h"
#include "tq/foundation/string_extensions.h"

using namespace tq;

namespace {

// The loop itself; nullopt when it has not ended after `rounds` replacements.
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

String units(std::initializer_list<unichar> list) { return String::withCharacters(list.begin(), list.size()); }

class SubstitutionJoins : public ::testing::TestWithParam<StringCodePath> {
 protected:
  void SetUp() override {
    saved_ = currentStringCodePath();
    auto paths = availableStringCodePaths();
    if (std::find(paths.begin(), paths.end(), GetParam()) == paths.end()) GTEST_SKIP() << "not on this CPU";
    setStringCodePath(GetParam());
  }
  void TearDown() override { setStringCodePath(saved_); }
  StringCodePath saved_ = StringCodePath::Plain;
};

TEST_P(SubstitutionJoins, HalvesThatMeetAreOneCharacter) {
  const unichar H = 0xD83D, L = 0xDE00;  // U+1F600
  const CharacterSet barAndGrin = CharacterSet::characterSetWithCharactersInString(u"|\U0001F600");
  const CharacterSet barAndLow = CharacterSet::characterSetWithCharactersInString(units({'|', L}));
  struct Case {
    const char* what;
    String text, substitute;
    const CharacterSet& set;
    String expected;
  } cases[] = {
      {"a deletion joins the halves, and the pair they form is deleted too", units({H, '|', L}), u"", barAndGrin,
       u""},
      {"a lone low surrogate in the set is not the second half of a joined pair", units({H, '|', L}), u"", barAndLow,
       units({H, L})},
      {"a substitute ending in a high surrogate forms the member and is placed again", units({'|', L}), units({H}),
       barAndGrin, units({H})},
      {"a substitute beginning with a low surrogate forms it behind a high one", units({'a', H, '|', 'b'}), units({L}),
       barAndGrin, u"a\xDE00" u"b"},
      {"deletions in a row join across all of them", units({H, '|', '|', L, 'x'}), u"", barAndGrin, u"x"},
  };
  for (const Case& c : cases) {
    const String got = stringWithSubstitute(c.text, c.substitute, c.set);
    EXPECT_EQ(got, c.expected) << c.what;
    EXPECT_EQ(got, *loopAsWritten(c.text, c.substitute, c.set)) << c.what;
  }
}

TEST_P(SubstitutionJoins, AgreesWithTheLoopOnTextsOfHalves) {
  // Short texts of two high and two low halves, members and others, every set and substitute of
  // a few units: wherever the loop as written ends, the result is the same.
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

TEST_P(SubstitutionJoins, ReducingTheEmptyStringGivesANewString) {
  const String empty = String::empty();
  const String reduced = stringByReducingWhitespaces(empty);
  EXPECT_EQ(reduced, empty);
  EXPECT_FALSE(reduced.isIdenticalTo(empty));
  EXPECT_FALSE(reduced.isIdenticalTo(String(u"")));
}

INSTANTIATE_TEST_SUITE_P(All, SubstitutionJoins,
                         ::testing::Values(StringCodePath::Plain, StringCodePath::AVX2, StringCodePath::AVX512),
                         [](const auto& info) {
                           return std::string(info.param == StringCodePath::AVX512 ? "AVX512"
                                              : info.param == StringCodePath::AVX2 ? "AVX2"
                                                                                    : "Plain");
                         });

}  // namespace
