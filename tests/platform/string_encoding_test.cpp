#include <gtest/gtest.h>

#include "tq/platform/base/string_encoding.h"

using namespace tq;

namespace {
String decode(std::string_view bytes, StringEncoding e) { return stringWithDataEncoding(Data::withString(bytes), e); }
std::string encode(const String& s, StringEncoding e, bool lossy = false) {
  Data d = dataUsingEncoding(s, e, lossy);
  return d.isNil() ? std::string("<nil>") : std::string(d.stringView());
}
}  // namespace

TEST(StringEncodingDecode, ValidBytesInEveryEncoding) {
  EXPECT_EQ(decode("plain", ASCIIStringEncoding), String(u"plain"));
  EXPECT_EQ(decode("\xEF\xBB\xBF" "caf\xC3\xA9", UTF8StringEncoding), String(u"caf\u00E9")) << "BOM dropped";
  EXPECT_EQ(decode("caf\xE9\xFF", ISOLatin1StringEncoding), String(u"caf\u00E9\u00FF"));
  EXPECT_EQ(decode("\x80\x9F", WindowsCP1252StringEncoding), String(u"\u20AC\u0178"));
  EXPECT_EQ(decode("\x8E\xA5\xF0", MacOSRomanStringEncoding), String(u"\u00E9\u2022\uF8FF"));
  EXPECT_EQ(decode("\xA9", ISOLatin2StringEncoding), String(u"\u0160"));
  EXPECT_EQ(decode("\x82\xA0", ShiftJISStringEncoding), String(u"\u3042"));
  EXPECT_EQ(decode("\x1B$B$\"\x1B(B", ISO2022JPStringEncoding), String(u"\u3042"));
  EXPECT_EQ(decode(std::string("\0a\xD8\x3D\xDE\x00", 6), UTF16BigEndianStringEncoding), String(u"a\U0001F600"));
  EXPECT_EQ(decode(std::string("a\0", 2), UTF16LittleEndianStringEncoding), String(u"a"));
  EXPECT_EQ(decode(std::string("\xFE\xFF\0a", 4), UTF16LittleEndianStringEncoding), String(u"\uFFFE\u6100"))
      << "fixed order keeps the mark as a character";
  EXPECT_EQ(decode(std::string("\0\0\0a\0\x01\xF6\x00", 8), UTF32BigEndianStringEncoding), String(u"a\U0001F600"));
  EXPECT_EQ(decode(std::string("a\0\0\0", 4), UTF32LittleEndianStringEncoding), String(u"a"));
  EXPECT_TRUE(decode("", UTF8StringEncoding).isEqual(String::empty()));
  EXPECT_TRUE(decode("", MacOSRomanStringEncoding).isEqual(String::empty()));
}

TEST(StringEncodingDecode, ByteOrderMarkDecidesAndDefaultsToBigEndian) {
  EXPECT_EQ(decode(std::string("\xFF\xFE" "a\0", 4), UnicodeStringEncoding), String(u"a"));
  EXPECT_EQ(decode(std::string("\xFE\xFF\0a", 4), UnicodeStringEncoding), String(u"a"));
  EXPECT_EQ(decode(std::string("\0a", 2), UnicodeStringEncoding), String(u"a"));
  EXPECT_EQ(decode(std::string("\xFF\xFE\0\0" "a\0\0\0", 8), UTF32StringEncoding), String(u"a"));
  EXPECT_EQ(decode(std::string("\0\0\0a", 4), UTF32StringEncoding), String(u"a"));
}

TEST(StringEncodingDecode, InvalidBytesAndUnknownEncodingsGiveNil) {
  EXPECT_TRUE(decode("caf\xE9", ASCIIStringEncoding).isNil());
  EXPECT_TRUE(decode("\xC0\xAF", UTF8StringEncoding).isNil()) << "overlong";
  EXPECT_TRUE(decode("\xED\xA0\x80", UTF8StringEncoding).isNil()) << "encoded surrogate";
  EXPECT_TRUE(decode("ab\xE2\x82", UTF8StringEncoding).isNil()) << "truncated";
  EXPECT_TRUE(decode("\xF4\x90\x80\x80", UTF8StringEncoding).isNil());
  EXPECT_TRUE(decode("\x81", WindowsCP1252StringEncoding).isNil());
  EXPECT_TRUE(decode("abc", UTF16BigEndianStringEncoding).isNil()) << "odd length";
  EXPECT_TRUE(decode(std::string("\xD8\x00\0a", 4), UTF16BigEndianStringEncoding).isNil()) << "lone surrogate";
  EXPECT_TRUE(decode(std::string("\0\x11\0\0", 4), UTF32BigEndianStringEncoding).isNil()) << "above U+10FFFF";
  EXPECT_TRUE(decode("\x82", ShiftJISStringEncoding).isNil()) << "truncated double byte";
  EXPECT_TRUE(decode("abc", 0).isNil());
  EXPECT_TRUE(decode("abc", 999).isNil());
  EXPECT_FALSE(isKnownStringEncoding(999));
  EXPECT_TRUE(isKnownStringEncoding(MacOSRomanStringEncoding));
  EXPECT_TRUE(stringWithDataEncoding(Data(), UTF8StringEncoding).isNil());
}

TEST(StringEncodingEncode, StrictLossyAndByteOrder) {
  String s(u"caf\u00E9 \u20AC");
  EXPECT_EQ(encode(s, ASCIIStringEncoding), "<nil>");
  EXPECT_EQ(encode(s, ASCIIStringEncoding, true), "caf? ?");
  EXPECT_EQ(encode(s, ISOLatin1StringEncoding, true), "caf\xE9 ?");
  EXPECT_EQ(encode(s, WindowsCP1252StringEncoding), "caf\xE9 \x80");
  EXPECT_EQ(encode(String(u"\u0416x"), MacOSRomanStringEncoding), "<nil>");
  EXPECT_EQ(encode(String(u"\u0416x\U0001F600"), MacOSRomanStringEncoding, true), "?x?") << "a pair is one character";
  EXPECT_EQ(encode(String(u"a\u3042"), ISO2022JPStringEncoding), "a\x1B$B$\"\x1B(B") << "shift state reset at end";
  EXPECT_EQ(encode(String(u"a"), UnicodeStringEncoding), std::string("\xFF\xFE" "a\0", 4));
  EXPECT_EQ(encode(String(u"a"), UTF16BigEndianStringEncoding), std::string("\0a", 2));
  EXPECT_EQ(encode(String(u"a"), UTF32StringEncoding), std::string("\xFF\xFE\0\0" "a\0\0\0", 8));
  EXPECT_EQ(encode(String(u"\U0001F600"), UTF32BigEndianStringEncoding), std::string("\0\x01\xF6\0", 4));
  EXPECT_EQ(encode(String(u"x\xDC00"), UTF8StringEncoding), "<nil>");
  EXPECT_EQ(encode(String(u"x\xDC00"), UTF8StringEncoding, true), "x\xEF\xBF\xBD");
  EXPECT_EQ(encode(String(), UTF8StringEncoding), "<nil>");
  EXPECT_EQ(encode(s, 999), "<nil>");
  EXPECT_FALSE(dataUsingEncoding(String::empty(), ShiftJISStringEncoding).isNil());
}

TEST(StringEncodingRoundTrip, EveryUnicodeFormGivesTheSameText) {
  String s(u"A\u00E9\u20AC\U0001F600\uFEFFz");
  for (StringEncoding e : {UTF8StringEncoding, UnicodeStringEncoding, UTF16BigEndianStringEncoding,
                           UTF16LittleEndianStringEncoding, UTF32StringEncoding, UTF32BigEndianStringEncoding,
                           UTF32LittleEndianStringEncoding}) {
    EXPECT_EQ(stringWithDataEncoding(dataUsingEncoding(s, e), e), s) << std::hex << e;
  }
  String latin(u"\u00C0-\u00FF \u20AC\u2122");
  EXPECT_EQ(stringWithDataEncoding(dataUsingEncoding(latin, WindowsCP1252StringEncoding), WindowsCP1252StringEncoding),
            latin);
}
