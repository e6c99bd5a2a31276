#include <gtest/gtest.h>

#include <string>

#include "support/raised.h"
#include "tq/foundation/data_extensions.h"
#include "tq/platform/base/exception.h"

using namespace tq;

namespace {

// Runs the parse and returns the exception's name and reason ("" when it does not raise).
std::string parseFailure(const String& text, bool classMethod = false) {
  try {
    if (classMethod) {
      dataWithHexadecimalRepresentation(text);
    } else {
      initWithHexadecimalRepresentation(text);
    }
  } catch (const Exception& e) {
    return e.name().UTF8String() + " / " + e.reason().UTF8String();
  }
  return "";
}

const std::string kParseFailure =
    "NSInvalidArgumentException / initWithHexadecimalRepresentation:: invalid hexadeciaml string data";

}  // namespace

TEST(DataHex, EncodesEveryByteValueAtEveryLengthLowerCaseHighNibbleFirst) {
  EXPECT_EQ(hexadecimalRepresentation(Data::empty()), String(u""));
  EXPECT_TRUE(hexadecimalRepresentation(Data()).isNil());
  // Lengths around the vector widths, with every byte value present.
  // The largest are encoded a megabyte of text at a time, pages faulted in ahead, ending in a
  // partial step; from 16 MiB the second half is filled by a second thread, split at a step
  // boundary that an odd length leaves uneven.
  for (UInteger n : {1u, 15u, 16u, 17u, 31u, 32u, 33u, 63u, 64u, 65u, 256u, 1000u, (2u << 20) + 7u, (3u << 20) - 1u,
                     (16u << 20) + 333u}) {
    std::string bytes, expected;
    for (UInteger i = 0; i < n; ++i) {
      unsigned b = (i * 167 + 13) & 0xFF;
      bytes.push_back(static_cast<char>(b));
      expected.push_back("0123456789abcdef"[b >> 4]);
      expected.push_back("0123456789abcdef"[b & 15]);
    }
    EXPECT_EQ(hexadecimalRepresentation(Data::withString(bytes)).UTF8String(), expected) << n;
  }
}

TEST(DataHex, ParsesBothCasesAndWhiteSpaceAnywhere) {
  EXPECT_EQ(initWithHexadecimalRepresentation(u"DE ad\n be EF"), (Data{0xDE, 0xAD, 0xBE, 0xEF}));
  EXPECT_EQ(initWithHexadecimalRepresentation(u"a b"), (Data{0xAB}));
  EXPECT_EQ(initWithHexadecimalRepresentation(u"\t0\v1\f\r\n2 3 "), (Data{0x01, 0x23}));
  EXPECT_EQ(dataWithHexadecimalRepresentation(u"00abff"), (Data{0x00, 0xAB, 0xFF}));
}

TEST(DataHex, RejectsBadTextWithTheExactMessage) {
  for (const char16_t* bad : {u"abc", u"0x12", u"", u"  ", u"12 3", u"12\u00a034", u"1g", u"\u0661\u0662",
                              u"zz00"}) {
    EXPECT_EQ(parseFailure(bad), kParseFailure) << String(bad).UTF8String();
    EXPECT_EQ(parseFailure(bad, true), kParseFailure) << String(bad).UTF8String();
  }
  EXPECT_EQ(parseFailure(String(std::u16string_view(u"12\0" "34", 5))), kParseFailure) << "NUL";
  EXPECT_EQ(parseFailure(String()), kParseFailure) << "nil text";
}

// The digest itself is compared with sha1sum by the command tests; here the nil buffer.
TEST(DataSha1, NilGivesNil) { EXPECT_TRUE(sha1(Data()).isNil()); }

// What the search finds is compared with a plain scan by byte_search_test; here the wrappers.
TEST(DataSearch, FindsTheFirstOccurrence) {
  Data d = Data::withString("abcbc");
  EXPECT_EQ(indexOfBytes(d, "bc", 2), 1u);
  EXPECT_EQ(indexOfBytes(d, "bb", 2), NotFound);
  EXPECT_EQ(indexOfBytes(d, nullptr, 0), 0u);
  EXPECT_EQ(indexOfBytes(Data::empty(), nullptr, 0), 0u) << "length 0 is found even in an empty buffer";
  EXPECT_EQ(indexOfBytes(Data::empty(), "a", 1), NotFound);
  EXPECT_EQ(indexOfBytes(d, d.bytes() + 3, 2), 1u) << "pattern taken from the buffer itself";
}

TEST(DataSearch, RangeOfDataPairsIndexWithLength) {
  Data d = Data::withString("xxabcabc");
  EXPECT_EQ(rangeOfData(d, Data::withString("abc")), (Range{2, 3}));
  EXPECT_EQ(rangeOfData(d, Data::withString("abd")), Range::notFound());
  EXPECT_EQ(rangeOfData(d, Data::empty()), (Range{0, 0}));
  EXPECT_EQ(rangeOfData(d, Data()), (Range{0, 0}));
  EXPECT_EQ(rangeOfData(Data::withString("ab"), Data::withString("abc")), Range::notFound());
  EXPECT_EQ(rangeOfData(Data(), Data::withString("a")), (Range{0, 0})) << "nil receiver answers zero";
}

TEST(DataSearch, RefusesPatternsOfFourGibibytes) {
  // The length is checked before any byte is read, so no such buffer is needed.
  Data d = Data::withString("abc");
  const std::string reason =
      tq::test::raisedReason([&] { indexOfBytes(d, d.bytes(), UInteger{1} << 32); }, NSInvalidArgumentException);
  EXPECT_NE(reason.find("4 GiB"), std::string::npos) << reason;
}
