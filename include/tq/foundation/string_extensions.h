// Text utilities on String and MutableString: line and whitespace clean-up, quoting of a field for
// comma-separated files, character substitution, number-to-text conversions in a base or in
// letters, four-character codes and unique identifiers.
//
// Every function is re-entrant and may be called from any thread. A nil receiver gives nil (or does
// nothing) before any check. Where a description says "the receiver itself", the returned String
// shares the receiver's storage (isIdenticalTo() is true) and nothing is allocated; "a new string"
// never shares it, even when the text is unchanged.
//
// Whitespace means CharacterSet::whitespaceCharacterSet(): Unicode category Zs plus the tab. Line
// feed and carriage return are never whitespace. All positions count UTF-16 code units.
//
// Out of domain: calls the conversions cannot answer (a base outside 2-16, a negative value, a
// substitute containing a member of the set while the receiver contains one too) raise
// NSInternalInconsistencyException through AssertionHandler, naming the function and the argument;
// stringByRemovingLastLine on an empty receiver raises NSRangeException from the range check.
#pragma once

#include <cstdint>

#include "tq/platform/base/character_set.h"
#include "tq/platform/base/data.h"
#include "tq/platform/base/string.h"

namespace tq {

// --- instance operations ------------------------------------------------------------------------

// A field quoted for a comma-separated file. When the text contains a double quote, a line feed or
// a carriage return: a new string with every double quote doubled and one double quote added at
// each end (line breaks inside are kept). Otherwise the receiver itself; a comma alone does not
// cause quoting.
String quoteQuotes(const String& self);

// Every character of `self` that is a member of `set` replaced by `substitute` (nil or empty
// deletes them), as if the text were searched again from its start after each replacement. A
// member above U+FFFF is matched as its surrogate pair and replaced whole; a surrogate of some other
// character is never matched by such a member. Where a replacement makes a high surrogate meet a
// low one (a deletion between lone halves, a substitute beginning with a low or ending with a high
// surrogate), the two are one character from then on: matched, and replaced again, as that
// character, never as their halves. [D83D, '|', DE00] with the set {'|', U+1F600} and an empty
// substitute gives ""; with the set {'|', DE00} it gives [D83D, DE00]. The receiver itself when it
// contains no member. Raises (see above) when it does and `substitute` contains a member as well.
// Linear in the length of the text and of what is written.
String stringWithSubstitute(const String& self, const String& substitute, const CharacterSet& set);

// stringByRemovingFirstLine applied `count` times; count <= 0 gives the receiver itself.
String stringByRemovingNumberOfLinesFromBeginning(const String& self, int count);

// Every run of whitespace replaced by one space; the ends are not trimmed, line breaks are kept.
// Always a new string, even when nothing changed or the receiver is empty. '  a \t b  ' gives ' a b '.
String stringByReducingWhitespaces(const String& self);

// Each line feed, then each carriage return, replaced by one space: CR LF becomes two spaces. The
// receiver itself when it has neither.
String stringByRemovingLineBreaks(const String& self);

// Whitespace removed from both ends (line breaks stop the trimming: '\nx ' gives '\nx'). The
// empty string when the receiver is empty or all whitespace; the receiver itself when there is
// nothing to remove; otherwise a substring.
String stringByRemovingSurroundingWhitespace(const String& self);

// The text after the first line feed. The receiver itself when there is no line feed, and (kept on
// purpose) whenever the receiver has 2 code units or fewer: 'ab' and '\n\n' come back unchanged,
// 'a\nbc' gives 'bc', 'abc\n' gives ''.
String stringByRemovingFirstLine(const String& self);

// The text up to and including the line feed that ends the second-to-last line; a final line feed
// does not start a line of its own. The receiver itself when no line feed precedes the last code
// unit and whenever the receiver has 2 code units or fewer. 'a\nb\nc' gives 'a\nb\n', 'a\nb\n'
// gives 'a\n'. An empty receiver raises NSRangeException.
String stringByRemovingLastLine(const String& self);

// --- class operations -------------------------------------------------------------------------

// The four bytes of `code`, most significant first, as four characters (bytes 0x80-0xFF as
// U+0080-U+00FF, a zero byte as U+0000): 0x54455854 gives "TEXT". The same on every host.
String stringFrom4ByteCode(uint32_t code);

// A new random UUID in its 36-character upper-case form; every call gives a different string.
String uniqueString();

// The text the bytes spell in the encoding (a platform encoding number, see
// tq/platform/base/string_encoding.h), or nil when they are invalid in it or the number is unknown.
String stringWithData(const Data& data, uint32_t encoding);

// `value` in plain positional base 26 with the letters as digits, "A" (or "a") being zero:
// 0 -> "A", 25 -> "Z", 26 -> "BA", 676 -> "BAA". Padded at the front with the zero letter to
// minLength letters, minLength being capped at 30; minLength <= 0 pads nothing. Raises for a
// negative value.
String bigLetterStringWithInteger(int value, int minLength);
String smallLetterStringWithInteger(int value, int minLength);

// `value` in `base` with the lower-case digits "0123456789abcdef", no sign, no padding: (0, 10)
// gives "0", (255, 16) "ff", (5, 2) "101". Domain: value >= 0 and base 2 to 16; anything else
// raises.
String stringWithInteger(int value, int base);

// --- mutable-string operation ------------------------------------------------------------------

// Appends exactly stringWithInteger(value, base) to `self`, with the same domain (raises outside
// it, leaving `self` unchanged).
void appendInteger(MutableString& self, int value, int base);

}  // namespace tq
