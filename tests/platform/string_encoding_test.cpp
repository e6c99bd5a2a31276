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

// The Mac OS Roman mapping as Apple publishes it (ROMAN.TXT), bytes 0x80 to 0xFF; below is ASCII.
constexpr char16_t kPublishedMacRoman[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1,  // 0x80
    0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5, 0x00E7, 0x00E9, 0x00E8,  // 0x88
    0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3,  // 0x90
    0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC,  // 0x98
    0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6, 0x00DF,  // 0xA0
    0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8,  // 0xA8
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211,  // 0xB0
    0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8,  // 0xB8
    0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB,  // 0xC0
    0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153,  // 0xC8
    0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA,  // 0xD0
    0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02,  // 0xD8
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,  // 0xE0
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4,  // 0xE8
    0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC,  // 0xF0
    0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,  // 0xF8
};

TEST(StringEncoding, MacRomanFollowsThePublishedTableInBothDirections) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  String decoded = stringWithDataEncoding(Data::withString(all), MacOSRomanStringEncoding);
  ASSERT_EQ(decoded.length(), 256u);
  for (int b = 0; b < 256; ++b) {
    char16_t expected = b < 0x80 ? static_cast<char16_t>(b) : kPublishedMacRoman[b - 0x80];
    EXPECT_EQ(decoded.characterAtIndex(b), expected) << "byte " << b;
  }
  Data back = dataUsingEncoding(decoded, MacOSRomanStringEncoding, false);
  ASSERT_FALSE(back.isNil());
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(back.bytes()), back.length()), all);
  // The characters the older table used for 0xC6 and 0xF0 are not Mac Roman.
  EXPECT_TRUE(dataUsingEncoding(String(u"\u0394"), MacOSRomanStringEncoding, false).isNil());
  EXPECT_TRUE(dataUsingEncoding(String(u"\uE01E"), MacOSRomanStringEncoding, false).isNil());
}
