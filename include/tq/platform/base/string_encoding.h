// Text encodings: String from bytes and bytes from String, with the platform's encoding numbers.
//
// Decoding is strict: bytes that are not valid in the encoding give nil, and so does an encoding
// number this unit does not know. Encoding gives nil when a character cannot be represented,
// unless lossy conversion is allowed. Any thread; nothing is shared between calls.
#pragma once

#include <cstdint>

#include "tq/platform/base/data.h"
#include "tq/platform/base/string.h"

namespace tq {

using StringEncoding = uint32_t;

// The platform's encoding numbers.
inline constexpr StringEncoding ASCIIStringEncoding = 1;          // bytes 0-127 only
inline constexpr StringEncoding JapaneseEUCStringEncoding = 3;    // EUC-JP (iconv)
inline constexpr StringEncoding UTF8StringEncoding = 4;
inline constexpr StringEncoding ISOLatin1StringEncoding = 5;      // ISO 8859-1: every byte valid
inline constexpr StringEncoding ShiftJISStringEncoding = 8;       // Shift_JIS (iconv)
inline constexpr StringEncoding ISOLatin2StringEncoding = 9;      // ISO 8859-2 (iconv)
// UTF-16 whose byte order a leading byte-order mark decides (the mark is dropped); without a mark
// the bytes are read big-endian, as the Unicode standard prescribes. Encoding writes the mark
// FF FE followed by little-endian code units (the host's order).
inline constexpr StringEncoding UnicodeStringEncoding = 10;
inline constexpr StringEncoding UTF16StringEncoding = UnicodeStringEncoding;
inline constexpr StringEncoding WindowsCP1251StringEncoding = 11;  // Cyrillic (iconv)
inline constexpr StringEncoding WindowsCP1252StringEncoding = 12;  // Western (iconv); 81 8D 8F 90 9D are invalid
inline constexpr StringEncoding WindowsCP1253StringEncoding = 13;  // Greek (iconv)
inline constexpr StringEncoding WindowsCP1254StringEncoding = 14;  // Turkish (iconv)
inline constexpr StringEncoding WindowsCP1250StringEncoding = 15;  // Central European (iconv)
inline constexpr StringEncoding ISO2022JPStringEncoding = 21;      // (iconv)
inline constexpr StringEncoding MacOSRomanStringEncoding = 30;     // the platform's table: C6 U+2206, F0 the Apple logo U+F8FF
// Fixed byte order: a leading FE FF / FF FE is kept as the character U+FEFF.
inline constexpr StringEncoding UTF16BigEndianStringEncoding = 0x90000100;
inline constexpr StringEncoding UTF16LittleEndianStringEncoding = 0x94000100;
// UTF-32 with the same byte-order-mark rule as UTF-16 (mark decides, big-endian without one;
// encoding writes FF FE 00 00 and little-endian units).
inline constexpr StringEncoding UTF32StringEncoding = 0x8c000100;
inline constexpr StringEncoding UTF32BigEndianStringEncoding = 0x98000100;
inline constexpr StringEncoding UTF32LittleEndianStringEncoding = 0x9c000100;

// True for the encoding numbers listed above.
bool isKnownStringEncoding(StringEncoding encoding) noexcept;

// The string the bytes spell in `encoding`, or nil when the bytes are invalid in it (a malformed
// or overlong UTF-8 sequence, an encoded or unpaired surrogate, a truncated code unit, a byte above
// 127 in ASCII, a byte a legacy table leaves undefined), when the encoding is unknown, or when
// `data` is nil. Empty data gives the empty string. A UTF-8 byte-order mark (EF BB BF) at the start
// is dropped.
String stringWithDataEncoding(const Data& data, StringEncoding encoding);

// The bytes of `string` in `encoding`; nil for a nil string or an unknown encoding. A character the
// encoding cannot represent (or an unpaired surrogate in the UTF encodings) makes the result nil
// unless allowLossy is true; then it becomes "?" (U+FFFD in the UTF encodings).
Data dataUsingEncoding(const String& string, StringEncoding encoding, bool allowLossy = false);

}  // namespace tq
