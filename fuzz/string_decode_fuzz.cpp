// Text decoding from outside bytes: every known encoding must either decode or answer nil, never
// crash or leak; for the Unicode forms, valid input must survive the trip through UTF-16 and back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "tq/platform/base/string_encoding.h"

using namespace tq;

namespace {

const StringEncoding kEncodings[] = {
    ASCIIStringEncoding,          JapaneseEUCStringEncoding,       UTF8StringEncoding,
    ISOLatin1StringEncoding,      ShiftJISStringEncoding,          ISOLatin2StringEncoding,
    UnicodeStringEncoding,        WindowsCP1251StringEncoding,     WindowsCP1252StringEncoding,
    WindowsCP1253StringEncoding,  WindowsCP1254StringEncoding,     WindowsCP1250StringEncoding,
    ISO2022JPStringEncoding,      MacOSRomanStringEncoding,        UTF16BigEndianStringEncoding,
    UTF16LittleEndianStringEncoding, UTF32StringEncoding,         UTF32BigEndianStringEncoding,
    UTF32LittleEndianStringEncoding,
};

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  Data data = Data::withBytes(bytes, size);
  for (StringEncoding e : kEncodings) {
    String s = stringWithDataEncoding(data, e);
    if (s.isNil()) continue;
    // Whatever decoded can be written back in the same encoding (lossless for every Unicode form
    // and for the single-byte tables), and reads back as the same text.
    Data again = dataUsingEncoding(s, e, true);
    check(!again.isNil());
    if (e == UTF8StringEncoding || e == UTF16BigEndianStringEncoding || e == UTF16LittleEndianStringEncoding ||
        e == UTF32BigEndianStringEncoding || e == UTF32LittleEndianStringEncoding || e == UnicodeStringEncoding ||
        e == UTF32StringEncoding || e == ISOLatin1StringEncoding || e == ASCIIStringEncoding ||
        e == WindowsCP1252StringEncoding || e == MacOSRomanStringEncoding) {
      check(stringWithDataEncoding(again, e) == s);
      // Valid text in any form goes to UTF-8 and back unchanged.
      Data utf8 = dataUsingEncoding(s, UTF8StringEncoding);
      check(!utf8.isNil());
      // (A leading U+FEFF reads as a byte-order mark in UTF-8 and is dropped on the way back.)
      String back = stringWithDataEncoding(utf8, UTF8StringEncoding);
      check(back == (s.hasPrefix(u"\uFEFF") ? s.substringFromIndex(1) : s));
      check(String::fromUTF8(utf8.stringView()) == s);
      check(s.UTF8String() == std::string(utf8.stringView()));
    }
  }
  // The lenient UTF-8 reader takes anything and agrees with the strict one on valid input.
  String lenient = String::fromUTF8(std::string_view(reinterpret_cast<const char*>(bytes), size));
  String strict = stringWithDataEncoding(data, UTF8StringEncoding);
  if (!strict.isNil() && !(size >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF)) {
    check(lenient == strict);
  }
  // Arbitrary text (lone surrogates included) encodes without crashing in every encoding.
  check(stringWithDataEncoding(data, 0).isNil());
  String raw = String::withCharacters(reinterpret_cast<const char16_t*>(data.bytes()), size / 2);
  for (StringEncoding e : kEncodings) {
    (void)dataUsingEncoding(raw, e, false);
    (void)dataUsingEncoding(raw, e, true);
  }
  return 0;
}
