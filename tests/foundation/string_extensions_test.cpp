#include <gtest/gtest.h>

#include "support/raised.h"

#include <regex>
#include <thread>
#include <vector>

#include "tq/foundation/string_extensions.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/base/string_encoding.h"

using namespace tq;
using tq::test::raisedReason;

TEST(QuoteQuotes, QuotesOnlyForQuotesAndLineBreaks) {
  String csv(u"a,b");
  EXPECT_TRUE(quoteQuotes(csv).isIdenticalTo(csv));
  EXPECT_EQ(quoteQuotes(u"say \"hi\""), String(u"\"say \"\"hi\"\"\""));
  EXPECT_EQ(quoteQuotes(u"a\nb"), String(u"\"a\nb\""));
  EXPECT_EQ(quoteQuotes(u"a\rb"), String(u"\"a\rb\""));
  EXPECT_EQ(quoteQuotes(u"\""), String(u"\"\"\"\""));
  EXPECT_TRUE(quoteQuotes(String()).isNil());
}

// What each result is, on every code path and on inputs full of whitespace, surrogates and vector
// boundaries, is compared with the algorithms as written by string_code_paths_test; here what that
// comparison leaves out: nil, a nil substitute, a substitute holding a member, and identities.
TEST(WhitespaceAndSubstitutes, NilIdentityAndRefusedSubstitutes) {
  const CharacterSet set = CharacterSet::characterSetWithCharactersInString(u"\t|\U0001F600");
  EXPECT_EQ(stringWithSubstitute(u"a\tb||c", String(), set), String(u"abc")) << "a nil substitute deletes";
  const String clean(u"abc");
  EXPECT_TRUE(stringWithSubstitute(clean, u"|", set).isIdenticalTo(clean)) << "nothing to replace, nothing raised";
  for (const String& sub : {String(u"x|"), String(u"\U0001F600")}) {
    std::string reason = raisedReason([&] { (void)stringWithSubstitute(u"a|", sub, set); }, NSInternalInconsistencyException);
    EXPECT_NE(reason.find("stringWithSubstitute:forCharactersFromSet:"), std::string::npos) << reason;
    EXPECT_NE(reason.find("substitute contains a member"), std::string::npos) << reason;
  }
  const String same(u"a b");
  EXPECT_EQ(stringByReducingWhitespaces(same), same);
  EXPECT_FALSE(stringByReducingWhitespaces(same).isIdenticalTo(same)) << "always a new string";
  EXPECT_TRUE(stringByRemovingLineBreaks(String()).isNil());
  EXPECT_TRUE(stringByReducingWhitespaces(String()).isNil());
  EXPECT_TRUE(stringByRemovingSurroundingWhitespace(String()).isNil());
  EXPECT_EQ(stringByRemovingSurroundingWhitespace(u"   "), String(u""));
}

TEST(FirstLine, LengthForPositionQuirkKept) {
  for (const char16_t* same : {u"ab", u"\n\n", u"a\n", u"\n", u"abc", u""}) {
    String s(same);
    EXPECT_TRUE(stringByRemovingFirstLine(s).isIdenticalTo(s)) << s;
  }
  EXPECT_EQ(stringByRemovingFirstLine(u"a\nbc"), String(u"bc"));
  EXPECT_EQ(stringByRemovingFirstLine(u"abc\n"), String(u""));
  EXPECT_EQ(stringByRemovingFirstLine(u"\nab"), String(u"ab"));
  EXPECT_EQ(stringByRemovingFirstLine(u"\n\n\n"), String(u"\n\n"));
}

TEST(LastLine, SearchExcludesTheFinalUnit) {
  EXPECT_EQ(stringByRemovingLastLine(u"a\nbc"), String(u"a\n"));
  EXPECT_EQ(stringByRemovingLastLine(u"a\nb\nc"), String(u"a\nb\n"));
  EXPECT_EQ(stringByRemovingLastLine(u"a\nb\n"), String(u"a\n"));
  for (const char16_t* same : {u"abc", u"abc\n", u"a\n", u"\nb", u"x"}) {
    String s(same);
    EXPECT_TRUE(stringByRemovingLastLine(s).isIdenticalTo(s)) << s;
  }
  std::string reason = raisedReason([] { (void)stringByRemovingLastLine(String::empty()); }, NSRangeException);
  EXPECT_NE(reason.find("rangeOfString"), std::string::npos) << reason;
  EXPECT_TRUE(stringByRemovingLastLine(String()).isNil());
}

TEST(NumberOfLines, RepeatsRemovingTheFirstLine) {
  String text(u"one\ntwo\nthree\nfour");
  EXPECT_TRUE(stringByRemovingNumberOfLinesFromBeginning(text, 0).isIdenticalTo(text));
  EXPECT_TRUE(stringByRemovingNumberOfLinesFromBeginning(text, -3).isIdenticalTo(text));
  EXPECT_EQ(stringByRemovingNumberOfLinesFromBeginning(text, 1), String(u"two\nthree\nfour"));
  EXPECT_EQ(stringByRemovingNumberOfLinesFromBeginning(text, 2), String(u"three\nfour"));
  EXPECT_EQ(stringByRemovingNumberOfLinesFromBeginning(text, 6), String(u"four"));
  EXPECT_EQ(stringByRemovingNumberOfLinesFromBeginning(u"a\nb\nc\n", 5), String(u"c\n")) << "stops at length 2";
  String noBreak(u"single");
  EXPECT_TRUE(stringByRemovingNumberOfLinesFromBeginning(noBreak, 4).isIdenticalTo(noBreak));
}

TEST(IntegerText, DigitsInBase) {
  EXPECT_EQ(stringWithInteger(255, 16), String(u"ff"));  // lower-case digits, which stoll below would not tell
  EXPECT_EQ(stringWithInteger(35, 12), String(u"2b"));
  for (int base = 2; base <= 16; ++base) {
    for (int v : {0, 1, 15, 16, 99, 123456, 2147483647}) {
      MutableString m(String(u"x"));
      appendInteger(m, v, base);
      EXPECT_EQ(m.copy(), String(u"x").stringByAppendingString(stringWithInteger(v, base)));
      EXPECT_EQ(std::stoll(stringWithInteger(v, base).UTF8String(), nullptr, base), v);
    }
  }
}

TEST(IntegerText, OutsideTheDomainRaises) {
  for (int base : {0, 1, 17, -2}) {
    std::string reason = raisedReason([&] { (void)stringWithInteger(5, base); }, NSInternalInconsistencyException);
    EXPECT_NE(reason.find("-[String stringWithInteger:base:]"), std::string::npos) << reason;
    EXPECT_NE(reason.find("base " + std::to_string(base) + " is outside 2-16"), std::string::npos) << reason;
  }
  std::string reason = raisedReason([] { (void)stringWithInteger(-1, 10); }, NSInternalInconsistencyException);
  EXPECT_NE(reason.find("value -1 is negative"), std::string::npos) << reason;
  MutableString m(String(u"keep"));
  raisedReason([&] { appendInteger(m, 3, 1); }, NSInternalInconsistencyException);
  EXPECT_EQ(m.copy(), String(u"keep"));
  reason = raisedReason([] { (void)smallLetterStringWithInteger(-5, 0); }, NSInternalInconsistencyException);
  EXPECT_NE(reason.find("smallLetterStringWithInteger:minLength:"), std::string::npos) << reason;
}

TEST(LetterText, PlainBase26WithPaddingCappedAt30) {
  EXPECT_EQ(smallLetterStringWithInteger(0, 0), String(u"a"));
  EXPECT_EQ(smallLetterStringWithInteger(25, 0), String(u"z"));
  EXPECT_EQ(smallLetterStringWithInteger(26, 0), String(u"ba"));
  EXPECT_EQ(smallLetterStringWithInteger(27, 0), String(u"bb"));
  EXPECT_EQ(smallLetterStringWithInteger(676, 0), String(u"baa"));
  EXPECT_EQ(smallLetterStringWithInteger(1, 3), String(u"aab"));
  EXPECT_EQ(bigLetterStringWithInteger(1, 3), String(u"AAB"));
  EXPECT_EQ(bigLetterStringWithInteger(2147483647, 0), String(u"GYTISYX"));
  EXPECT_EQ(bigLetterStringWithInteger(2147483647, 5), String(u"GYTISYX")) << "padding never truncates";
  EXPECT_EQ(smallLetterStringWithInteger(0, 40), String(std::u16string(30, u'a')));
  EXPECT_EQ(smallLetterStringWithInteger(0, 31), String(std::u16string(30, u'a')));
  EXPECT_EQ(smallLetterStringWithInteger(0, 30), String(std::u16string(30, u'a')));
  EXPECT_EQ(smallLetterStringWithInteger(3, -4), String(u"d"));
}

TEST(LetterText, ConcurrentCallsDoNotShareABuffer) {
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &wrong] {
      for (int i = 0; i < 20000; ++i) {
        int v = t * 100000 + i;
        String s = bigLetterStringWithInteger(v, 6);
        long long back = 0;
        for (char16_t c : s.view()) back = back * 26 + (c - u'A');
        if (back != v || s.length() != 6) ++wrong;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(wrong.load(), 0);
}

TEST(ClassHelpers, FourByteCodesUuidsAndData) {
  EXPECT_EQ(stringFrom4ByteCode(0x54455854), String(u"TEXT"));
  EXPECT_EQ(stringFrom4ByteCode(0x3F3F3F3F), String(u"????"));
  EXPECT_EQ(stringFrom4ByteCode(0x41004200), String(std::u16string(u"A\0B\0", 4)));
  EXPECT_EQ(stringFrom4ByteCode(0xA9616263), String(u"\u00A9abc"));
  String a = uniqueString(), b = uniqueString();  // upper-case version 4 UUIDs
  EXPECT_TRUE(std::regex_match(a.UTF8String(), std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[0-9A-F]{4}-[0-9A-F]{12}"))) << a.UTF8String();
  EXPECT_NE(a, b);
  EXPECT_EQ(stringWithData(Data::withString("caf\xC3\xA9"), UTF8StringEncoding), String(u"caf\u00E9"));
  EXPECT_TRUE(stringWithData(Data::withString("caf\xE9"), UTF8StringEncoding).isNil());
  EXPECT_TRUE(stringWithData(Data::withString("x"), 12345).isNil());
}
