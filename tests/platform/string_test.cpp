#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <thread>
#include <string>
#include <vector>

#include "support/raised.h"

#include "tq/platform/base/character_set.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"

using namespace tq;
using tq::test::raisedReason;

TEST(StringNil, AnswersNothingAndDiffersFromEmpty) {
  String nil;
  EXPECT_TRUE(nil.isNil());
  EXPECT_FALSE(nil);
  EXPECT_FALSE(nil.rangeOfString(u"a").found());
  EXPECT_FALSE(nil.rangeOfString(u"a", BackwardsSearch, Range{5, 5}).found()) << "nil checks no range";
  EXPECT_TRUE(nil.substringWithRange({0, 0}).isNil());
  EXPECT_TRUE(nil.stringByAppendingString(u"x").isNil());
  EXPECT_TRUE(nil.lastPathComponent().isNil());
  EXPECT_FALSE(nil.hasPrefix(u""));
  EXPECT_FALSE(nil.isEqual(nil));
  EXPECT_TRUE(nil == String());

  String empty = String::empty();
  EXPECT_FALSE(empty.isNil());
  EXPECT_TRUE(empty);
  EXPECT_NE(nil, empty);
  EXPECT_TRUE(empty.isEqual(String(u"")));
  EXPECT_TRUE(String(static_cast<const char16_t*>(nullptr)).isNil());
}

TEST(StringIdentity, CopiesShareStorageAndWholeRangesReturnTheReceiver) {
  String s(u"hello");
  String copy = s;
  EXPECT_TRUE(copy.isIdenticalTo(s));
  EXPECT_FALSE(String(u"hello").isIdenticalTo(s)) << "equal text, different storage";
  EXPECT_TRUE(s.substringWithRange({0, 5}).isIdenticalTo(s));
  EXPECT_FALSE(s.substringWithRange({0, 4}).isIdenticalTo(s));
  EXPECT_TRUE(s.stringByReplacingOccurrencesOfString(u"x", u"y").isIdenticalTo(s));
  EXPECT_TRUE(s.stringByTrimmingCharactersInSet(CharacterSet::whitespaceCharacterSet()).isIdenticalTo(s));
  EXPECT_FALSE(String().isIdenticalTo(String()));

  MutableString m(s);
  m.appendString(u" world");
  EXPECT_EQ(std::move(m).take(), String(u"hello world"));
}

// Invalid input read as text: each maximal subpart becomes U+FFFD; read as a name, each stray byte
// B becomes U+DC00 + B, as Python's "surrogateescape" error handler makes of the same bytes.
TEST(StringUTF8, InvalidInputBecomesReplacementCharactersOrEscapedBytes) {
  const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a é € 😀 z
  EXPECT_EQ(String::fromUTF8(text).view(), std::u16string_view(u"a\u00E9\u20AC\U0001F600z"));
  EXPECT_EQ(String::fromUTF8(text).UTF8String(), text);
  const struct {
    std::string in;
    std::u16string replaced, escaped;
  } cases[] = {
      {"a\x80z", u"a\uFFFDz", u"a\xDC80z"},                       // lone continuation byte
      {"\xC0\xAF", u"\uFFFD\uFFFD", u"\xDCC0\xDCAF"},             // overlong '/': C0 is never valid
      {"\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD", u"\xDCE0\xDC80\xDCAF"},
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", u"\xDCED\xDCA0\xDC80"},  // encoded surrogate
      {"\xE2\x82", u"\uFFFD", u"\xDCE2\xDC82"},                    // truncated: one maximal subpart
      {"\xE2\x82z", u"\uFFFDz", u"\xDCE2\xDC82z"},
      {"\xF0\x9F\x98", u"\uFFFD", u"\xDCF0\xDC9F\xDC98"},
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", u"\xDCF4\xDC90\xDC80\xDC80"},  // above U+10FFFF
      {"\xFF\xFE", u"\uFFFD\uFFFD", u"\xDCFF\xDCFE"},
      {"\xF0\x9F\x98\x80\xFF", u"\U0001F600\uFFFD", u"\U0001F600\xDCFF"},
      {"caf\xC3\xA9", u"caf\u00E9", u"caf\u00E9"},  // valid text is decoded as ever
      // Long ASCII runs, before, between and after other bytes.
      {"identifier\xC3\xA9" "abcdefghijk\x80xy", u"identifier\u00E9abcdefghijk\uFFFDxy", u"identifier\u00E9abcdefghijk\xDC80xy"},
  };
  // Each escaped form decodes back to its bytes: the exhaustive test below checks that.
  for (const auto& c : cases) {
    EXPECT_EQ(String::fromUTF8(c.in).view(), std::u16string_view(c.replaced)) << c.in;
    String s = String::decodeUTF8(c.in, String::InvalidUTF8::EscapeBytes);
    EXPECT_EQ(s.view(), std::u16string_view(c.escaped)) << c.in;
    EXPECT_FALSE(String::decodeUTF8(s.UTF8String(), true).isNil()) << "printed, an escape is U+FFFD, not a stray byte";
  }
  EXPECT_EQ(String(u"x\xD800y").UTF8String(), "x\xEF\xBF\xBDy") << "unpaired surrogate";
  EXPECT_EQ(String::fromASCII("a\xE9").view(), std::u16string_view(u"a\uFFFD"));
  EXPECT_FALSE(String::fromUTF8("").isNil());
  // Only U+DC80-U+DCFF stand for bytes; other lone surrogates are still U+FFFD.
  std::string out;
  String::appendUTF8(u"\xD800|\xDC7F|\xDD00|\xDC80", out, true);
  EXPECT_EQ(out, "\xEF\xBF\xBD|\xEF\xBF\xBD|\xEF\xBF\xBD|\x80");
}

// Every byte string round-trips, so distinct names stay distinct: all strings of up to two bytes,
// and all of three and four bytes over the bytes where UTF-8's rules change.
TEST(StringUTF8, EscapedDecodingRoundTripsEveryByteString) {
  std::vector<std::string> inputs;
  for (int a = 0; a < 256; ++a) {
    inputs.push_back(std::string(1, char(a)));
    for (int b = 0; b < 256; ++b) inputs.push_back({char(a), char(b)});
  }
  const unsigned char edges[] = {0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC2,
                                 0xDF, 0xE0, 0xE1, 0xED, 0xEE, 0xF0, 0xF1, 0xF4, 0xF5, 0xFF};
  for (unsigned char a : edges)
    for (unsigned char b : edges)
      for (unsigned char c : edges) {
        inputs.push_back({char(a), char(b), char(c)});
        for (unsigned char d : edges) inputs.push_back({char(a), char(b), char(c), char(d)});
      }
  std::set<std::u16string> decoded;
  for (const std::string& in : inputs) {
    String s = String::decodeUTF8(in, String::InvalidUTF8::EscapeBytes);
    std::string back;
    String::appendUTF8(s.view(), back, true);
    ASSERT_EQ(back, in);
    decoded.insert(s.u16string());
  }
  EXPECT_EQ(decoded.size(), inputs.size());
}

TEST(StringSearch, ForwardsBackwardsAndWithinRanges) {
  String s(u"abcabcab");
  EXPECT_EQ(s.rangeOfString(u"ab"), (Range{0, 2}));
  EXPECT_EQ(s.rangeOfString(u"ab", BackwardsSearch), (Range{6, 2}));
  EXPECT_EQ(s.rangeOfString(u"ab", 0, Range{1, 7}), (Range{3, 2}));
  EXPECT_EQ(s.rangeOfString(u"ab", BackwardsSearch, Range{0, 7}), (Range{3, 2})) << "match must fit in the range";
  EXPECT_EQ(s.rangeOfString(u"ca", AnchoredSearch, Range{2, 3}), (Range{2, 2}));
  EXPECT_FALSE(s.rangeOfString(u"bc", AnchoredSearch).found());
  EXPECT_EQ(s.rangeOfString(u"ab", AnchoredSearch | BackwardsSearch), (Range{6, 2}));
  EXPECT_EQ(s.rangeOfString(u"ABC", CaseInsensitiveSearch | BackwardsSearch), (Range{3, 3}));
  EXPECT_EQ(s.rangeOfString(u"zz"), Range::notFound());
  EXPECT_EQ(s.rangeOfString(u""), Range::notFound()) << "the empty needle is never found";
  EXPECT_EQ(Range::notFound().location, static_cast<UInteger>(INT64_MAX));

  CharacterSet digits = CharacterSet::characterSetWithCharactersInString(u"0123456789");
  String t(u"ab12cd34");
  EXPECT_EQ(t.rangeOfCharacterFromSet(digits), (Range{2, 1}));
  EXPECT_EQ(t.rangeOfCharacterFromSet(digits, BackwardsSearch), (Range{7, 1}));
  EXPECT_EQ(t.rangeOfCharacterFromSet(digits, BackwardsSearch, Range{0, 6}), (Range{3, 1}));
  EXPECT_EQ(t.rangeOfCharacterFromSet(digits.invertedSet(), 0, Range{2, 6}), (Range{4, 1}));
  EXPECT_FALSE(t.rangeOfCharacterFromSet(digits, AnchoredSearch).found());
}

TEST(StringReplace, LiteralReplacementOfAllOccurrences) {
  MutableString m(String(u"aaa-aa"));
  EXPECT_EQ(m.replaceOccurrencesOfString(u"aa", u"b", LiteralSearch, Range{0, m.length()}), 2u);
  EXPECT_EQ(m.view(), std::u16string_view(u"ba-b"));
  MutableString q(String(u"x\"y\""));
  EXPECT_EQ(q.replaceOccurrencesOfString(u"\"", u"\"\"", LiteralSearch, Range{0, 2}), 1u) << "only inside range";
  EXPECT_EQ(q.view(), std::u16string_view(u"x\"\"y\""));
  EXPECT_EQ(String(u"a.b.c").stringByReplacingOccurrencesOfString(u".", u""), String(u"abc"));
}

TEST(StringRange, OutOfBoundsRaisesRangeException) {
  String s(u"abc");
  std::string reason = raisedReason([&] { (void)s.substringWithRange({2, 2}); }, NSRangeException);
  EXPECT_NE(reason.find("{2, 2}"), std::string::npos) << reason;
  EXPECT_NE(reason.find("length 3"), std::string::npos) << reason;
  raisedReason([&] { (void)s.characterAtIndex(3); }, NSRangeException);
  raisedReason([&] { (void)s.rangeOfString(u"a", BackwardsSearch, Range{0, UInteger(-1)}); }, NSRangeException);
  raisedReason([&] { (void)s.rangeOfCharacterFromSet(CharacterSet(), 0, Range{4, 0}); }, NSRangeException);
  raisedReason([&] { (void)s.substringFromIndex(4); }, NSRangeException);
  MutableString m(s);
  raisedReason([&] { m.replaceCharactersInRange({1, 3}, u"x"); }, NSRangeException);
  EXPECT_EQ(m.view(), std::u16string_view(u"abc")) << "a refused edit changes nothing";
  EXPECT_EQ(s.substringWithRange({3, 0}), String(u""));
}

TEST(StringPaths, ComponentsExtensionsAndJoining) {
  EXPECT_EQ(String(u"/a/b").pathComponents(), (std::vector<String>{u"/", u"a", u"b"}));
  EXPECT_EQ(String(u"a//b/").pathComponents(), (std::vector<String>{u"a", u"b", u"/"}));
  EXPECT_EQ(String::pathWithComponents({u"/", u"usr", u"lib"}), String(u"/usr/lib"));
  EXPECT_EQ(String(u"/tmp/x.tar.gz").lastPathComponent(), String(u"x.tar.gz"));
  EXPECT_EQ(String(u"/tmp/scratch/").lastPathComponent(), String(u"scratch"));
  EXPECT_EQ(String(u"/").lastPathComponent(), String(u"/"));
  EXPECT_EQ(String(u"/tmp/x.tar.gz").pathExtension(), String(u"gz"));
  EXPECT_EQ(String(u"/tmp/.profile").pathExtension(), String(u""));
  EXPECT_EQ(String(u"/a.d/b").pathExtension(), String(u""));
  EXPECT_EQ(String(u"/tmp/x.tar.gz").stringByDeletingPathExtension(), String(u"/tmp/x.tar"));
  EXPECT_EQ(String(u"/tmp/x").stringByDeletingLastPathComponent(), String(u"/tmp"));
  EXPECT_EQ(String(u"/tmp").stringByDeletingLastPathComponent(), String(u"/"));
  EXPECT_EQ(String(u"x").stringByDeletingLastPathComponent(), String(u""));
  EXPECT_EQ(String(u"/tmp/").stringByAppendingPathComponent(u"/x/"), String(u"/tmp/x"));
  EXPECT_EQ(String(u"").stringByAppendingPathComponent(u"x"), String(u"x"));
  EXPECT_EQ(String(u"/tmp/x").stringByAppendingPathExtension(u"png"), String(u"/tmp/x.png"));
  String plain(u"name");
  EXPECT_TRUE(plain.lastPathComponent().isIdenticalTo(plain));
  EXPECT_TRUE(plain.stringByDeletingPathExtension().isIdenticalTo(plain));
}

TEST(CharacterSetMembership, WhitespaceIsExactlyZsPlusTab) {
  const std::u16string zs = u" \u00A0\u1680\u2000\u2001\u2002\u2003\u2004\u2005\u2006\u2007\u2008\u2009\u200A"
                            u"\u202F\u205F\u3000";
  const CharacterSet& ws = CharacterSet::whitespaceCharacterSet();
  unsigned members = 0;
  for (unsigned c = 0; c <= 0xFFFF; ++c) {
    bool expected = c == 0x09 || zs.find(static_cast<char16_t>(c)) != std::u16string::npos;
    if (ws.characterIsMember(static_cast<unichar>(c)) != expected) ADD_FAILURE() << "U+" << std::hex << c;
    members += ws.characterIsMember(static_cast<unichar>(c));
  }
  EXPECT_EQ(members, 18u);
  const CharacterSet& wsnl = CharacterSet::whitespaceAndNewlineCharacterSet();
  for (unichar c : {u'\n', u'\r', u'\x0B', u'\x0C', u'\x85', u'\u2028', u'\u2029', u' ', u'\t'}) {
    EXPECT_TRUE(wsnl.characterIsMember(c)) << int(c);
  }
  EXPECT_FALSE(ws.characterIsMember(u'\n'));
  EXPECT_FALSE(ws.characterIsMember(u'\u200B')) << "zero width space is not Zs";
}

TEST(CharacterSetMembership, FromStringInvertedAndRange) {
  CharacterSet s = CharacterSet::characterSetWithCharactersInString(u"a\u00E9\uFFFF");
  EXPECT_TRUE(s.characterIsMember(u'a') && s.characterIsMember(u'\uFFFF') && !s.characterIsMember(u'b'));
  CharacterSet inv = s.invertedSet();
  EXPECT_TRUE(!inv.characterIsMember(u'\u00E9') && inv.characterIsMember(u'b') && inv.characterIsMember(0));
  EXPECT_FALSE(CharacterSet::characterSetWithRange({0xFFFE, NotFound}).characterIsMember(0)) << "a huge range must not wrap round";
  EXPECT_EQ(CharacterSet::characterSetWithCharactersInString(String()), CharacterSet());
}

TEST(CharacterSetMembership, CharactersAboveTheBasicPlane) {
  // U+1F600 is the pair D83D DE00.
  CharacterSet s = CharacterSet::characterSetWithCharactersInString(u"a\U0001F600\xDC00");
  EXPECT_TRUE(s.longCharacterIsMember(0x1F600));
  EXPECT_FALSE(s.longCharacterIsMember(0x1F601));
  EXPECT_FALSE(s.characterIsMember(0xD83D)) << "the pair's halves are not members";
  EXPECT_FALSE(s.characterIsMember(0xDE00));
  EXPECT_TRUE(s.characterIsMember(0xDC00)) << "a lone surrogate is a character of its own";
  CharacterSet inv = s.invertedSet();
  EXPECT_FALSE(inv.longCharacterIsMember(0x1F600));
  for (char32_t c : {0x10000u, 0x1F5FFu, 0x1F601u, 0x10FFFFu}) EXPECT_TRUE(inv.longCharacterIsMember(c)) << static_cast<unsigned>(c);
  EXPECT_FALSE(inv.longCharacterIsMember(0x110000));
  EXPECT_EQ(inv.invertedSet(), s);
  CharacterSet r = CharacterSet::characterSetWithRange({0xFFFE, 4});
  EXPECT_TRUE(r.characterIsMember(0xFFFF));
  EXPECT_TRUE(r.longCharacterIsMember(0x10001));
  EXPECT_FALSE(r.longCharacterIsMember(0x10002));
  EXPECT_TRUE(CharacterSet::characterSetWithRange({0x10FFFF, NotFound}).longCharacterIsMember(0x10FFFF));

  // Searches go by characters: a pair is found whole, from either end, and never by half.
  String text(u"x\U0001F601\U0001F600\xDC00");
  EXPECT_EQ(text.rangeOfCharacterFromSet(s), (Range{3, 2}));
  EXPECT_EQ(text.rangeOfCharacterFromSet(s, BackwardsSearch), (Range{5, 1}));
  EXPECT_EQ(text.rangeOfCharacterFromSet(s, BackwardsSearch, Range{0, 5}), (Range{3, 2}));
  CharacterSet half = CharacterSet::characterSetWithCharactersInString(u"\xD83D");
  EXPECT_FALSE(text.rangeOfCharacterFromSet(half).found());
  EXPECT_EQ(String(u"\U0001F600ab\U0001F600").stringByTrimmingCharactersInSet(s), String(u"b"));
}

namespace {
class Gadget : public Object {
 public:
  void check(int value) { TQ_ASSERT_METHOD(value > 0, "checkValue:", String(u"value must be positive")); }
};
}  // namespace

TEST(AssertionHandler, ReasonNamesMethodClassFileAndLine) {
  auto g = std::make_shared<Gadget>();
  g->check(1);
  std::string reason = raisedReason([&] { g->check(0); }, NSInternalInconsistencyException);
  EXPECT_EQ(reason.rfind("*** Assertion failure in -[Gadget checkValue:], string_test.cpp:", 0), 0u) << reason;
  EXPECT_NE(reason.find(": value must be positive"), std::string::npos) << reason;
  try {
    AssertionHandler::currentHandler().handleFailureInFunction(u"parse", u"file.cpp", 12, u"bad");
  } catch (const Exception& e) {
    EXPECT_EQ(e.reason(), String(u"*** Assertion failure in parse(), file.cpp:12: bad"));
    EXPECT_EQ(e.userInfo().objectForKey(u"line").integerValue(), 12);
    EXPECT_EQ(std::string(e.what()), "NSInternalInconsistencyException: *** Assertion failure in parse(), file.cpp:12: bad");
  }
}

TEST(StringStorage, TakeHandsTheBuilderTextOverAndEveryEmptyStringIsOne) {
  MutableString m;
  m.reserve(40);
  std::char_traits<char16_t>::assign(m.mutableData(), m.capacity(), u'x');
  m.setLength(m.capacity());
  const UInteger room = m.capacity();
  String taken = std::move(m).take();
  EXPECT_EQ(taken.view(), std::u16string(room, u'x'));
  EXPECT_EQ(m.length(), 0u);
  EXPECT_EQ(std::move(m).take(), String::empty()) << "a taken builder starts again empty";

  // Whatever makes an empty string makes the one shared empty string, never nil.
  const String empty = String::empty();
  for (const String& e : {String(u""), String(std::u16string_view()), MutableString().take(),
                          String(u"abc").substringWithRange({1, 0}), String::fromUTF8(""), String::fromASCII("")}) {
    EXPECT_FALSE(e.isNil());
    EXPECT_TRUE(e.isIdenticalTo(empty));
  }
  EXPECT_FALSE(String().isIdenticalTo(empty));

  // Text left over after a wide decode keeps its units and its identity across copies.
  String wide = String::fromUTF8("\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e\xe3\x81\xae\xe6\x96\x87\xe6\x9b\xb8 text");
  EXPECT_EQ(wide.view(), std::u16string_view(u"\u65e5\u672c\u8a9e\u306e\u6587\u66f8 text"));
  String again = wide;
  EXPECT_TRUE(again.isIdenticalTo(wide));
}

// Buffers of 8 MiB and more are kept for reuse after release: a reused one carries only the new
// text, and a live string's buffer is never handed out.
TEST(StringStorage, LargeBuffersAreReusedWithoutOldOrLiveText) {
  const UInteger units = 5u << 20;  // 10 MiB
  auto build = [&](unichar fill, const unichar** written = nullptr) {
    MutableString m;
    m.reserve(units);
    std::char_traits<char16_t>::assign(m.mutableData(), units, fill);
    m.setLength(units);
    if (written) *written = m.mutableData();
    return std::move(m).take();
  };
  auto only = [](const String& s, unichar fill) { return s.view().find_first_not_of(fill) == std::u16string_view::npos; };
  const unichar* dropped = nullptr;
  const unichar* reusedAt = nullptr;
  String live = build(u'a');
  build(u'b', &dropped);
  String reused = build(u'c', &reusedAt);
  String fresh = build(u'd');
  ASSERT_EQ(reusedAt, dropped) << "the buffer just released is the one reused";
  EXPECT_TRUE(only(live, u'a') && only(reused, u'c') && only(fresh, u'd'));
  String grown = live.stringByAppendingString(u"!");
  EXPECT_EQ(grown.length(), units + 1);
  EXPECT_EQ(grown.characterAtIndex(units), u'!');
}

TEST(StringStorage, CopiesMadeAndDroppedOnManyThreadsLeaveTheTextIntact) {
  // Under the sanitizer build a lost or doubled count shows as a leak or a use after free.
  const String shared = String::fromUTF8("shared text that every thread copies");
  const String empty = String::empty();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      std::vector<String> kept;
      for (int i = 0; i < 20000; ++i) {
        String a = shared;
        String b = empty;
        String mine = String::fromASCII(std::to_string(t * 100000 + i));
        if (i % 97 == 0) kept.push_back(a);
        a = mine;
        b = std::move(a);
      }
      for (const String& k : kept) ASSERT_TRUE(k.isIdenticalTo(shared));
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(shared.UTF8String(), "shared text that every thread copies");
  EXPECT_TRUE(String::empty().isIdenticalTo(empty));
}

TEST(DataBuffers, NilEmptyIdentityAndRanges) {
  Data nil;
  EXPECT_TRUE(nil.isNil());
  EXPECT_EQ(nil.length(), 0u);
  EXPECT_EQ(nil.bytes(), nullptr);
  EXPECT_TRUE(nil.subdataWithRange({0, 0}).isNil());
  EXPECT_NE(nil, Data::empty());
  EXPECT_FALSE(nil.isEqual(nil));
  Data d{1, 2, 3, 4};
  EXPECT_TRUE(d.subdataWithRange({0, 4}).isIdenticalTo(d));
  EXPECT_EQ(d.subdataWithRange({1, 2}), (Data{2, 3}));
  std::string reason = raisedReason([&] { (void)d.subdataWithRange({3, 2}); }, NSRangeException);
  EXPECT_NE(reason.find("{3, 2}"), std::string::npos) << reason;
  raisedReason([&] { (void)d.subdataWithRange({1, UInteger(-1)}); }, NSRangeException);
  MutableData m(d);
  m.appendBytes("\x05", 1);
  m.setLength(6);
  EXPECT_EQ(m.copy(), (Data{1, 2, 3, 4, 5, 0}));
  EXPECT_EQ(d.length(), 4u) << "the mutable copy is separate";
  EXPECT_EQ(std::hash<Data>()(Data{7, 8}), std::hash<Data>()(Data::withString("\x07\x08")));
}
