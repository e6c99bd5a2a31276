// Byte-buffer helpers: hexadecimal text, SHA-1 digest and byte search on tq::Data.
//
// Free functions on Data, each named after the operation it provides. All of them are stateless and
// may be called from any thread. Results are new buffers and strings owned by the caller (shared,
// immutable handles).
//
// Size limit: byte counts are 32-bit quantities in this interface. A buffer (or text, or pattern) of
// 4 GiB or more is outside the domain; rather than give an answer computed on a truncated length,
// these functions raise a tq::Exception named NSInvalidArgumentException whose reason names the
// function and says "exceeds the 4 GiB limit".
//
// nil: a nil Data answers like a message to nil: hexadecimalRepresentation() and sha1() give nil,
// indexOfBytes() gives 0 and rangeOfData() gives (0, 0). A nil String cannot be parsed (it raises
// the parse's exception, as the empty string does).
#pragma once

#include "tq/platform/base/data.h"
#include "tq/platform/base/range.h"
#include "tq/platform/base/string.h"

namespace tq {

// The reason of the parse's invalid-argument exception, exactly as the system words it: the format
// "%@: invalid hexadeciaml string data" with the selector's name, which ends in a colon, for "%@".
inline constexpr const char16_t* HexadecimalParseFailureReason =
    u"initWithHexadecimalRepresentation:: invalid hexadeciaml string data";

// Two lower-case hexadecimal digits per byte, high nibble first, with no separators:
// {0x00, 0xAB, 0xFF} gives "00abff"; the empty buffer gives the empty string.
// Cost: a result of many megabytes in new memory is faulted in a megabyte at a time ahead of the
// writes; from 16 MiB of input, when the process may run on more than one CPU, a second thread
// faults in and fills the second half of the result while the calling thread does the first. The
// call returns only when both are done, and starts no thread for smaller or already resident
// results.
String hexadecimalRepresentation(const Data& data);

// Parses hexadecimal text back into bytes. Digits of either case; white space (space, tab, line
// feed, vertical tab, form feed, carriage return) is skipped anywhere, even between the two digits
// of one byte ("a b" gives 0xAB). Raises a tq::Exception named NSInvalidArgumentException with the
// reason HexadecimalParseFailureReason when the text holds any other character (every character
// beyond ASCII included), an odd number of digits, or no digit at all (the empty and the
// all-white-space text). Never returns a partial result.
Data initWithHexadecimalRepresentation(const String& text);
// The same parse, as the class-level constructor; raises the same exception with the same reason.
Data dataWithHexadecimalRepresentation(const String& text);

// The 20 raw bytes of the SHA-1 digest (FIPS 180-1) of the buffer. For the usual 40-digit text,
// chain hexadecimalRepresentation(sha1(data)).
Data sha1(const Data& data);

// The offset of the first occurrence of the `length` bytes at `bytes` in the buffer, or NotFound.
// A pattern of length 0 is found at 0 (even in an empty buffer); a pattern longer than the buffer is
// never found. `bytes` may be null when length is 0. The pattern may lie inside the buffer itself.
UInteger indexOfBytes(const Data& data, const void* bytes, UInteger length);

// The range of the first occurrence of `other`: (offset, other's length), or (NotFound, 0) when it
// does not occur. An empty (or nil) `other` gives (0, 0).
Range rangeOfData(const Data& data, const Data& other);

}  // namespace tq
