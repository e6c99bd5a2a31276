// Hexadecimal text kernels: the engines under hexadecimalRepresentation() and
// initWithHexadecimalRepresentation(), usable directly on raw memory (for streaming, for output
// that is not a String).
//
// Encoding writes two lower-case digits ("0123456789abcdef") per byte, high nibble first, with no
// separators. Decoding accepts both cases and skips white space (space, tab, line feed, vertical
// tab, form feed, carriage return) anywhere, even between the two digits of one byte; any other
// character, and every character above 127, is invalid. Decoding can be fed in pieces: a
// HexDecodeState carries a half byte from one piece to the next.
//
// Every call is thread-safe (no shared state). Without an InstructionSet argument the best kernel
// for the running CPU is used; the explicit overloads run a chosen one (the CPU must support it, see
// cpuSupports()), which all give identical results.
#pragma once

#include <cstdint>

#include "tq/foundation/instruction_set.h"
#include "tq/platform/base/range.h"

namespace tq {

// The lower-case hexadecimal digit alphabet.
inline constexpr char HexDigitAlphabet[] = "0123456789abcdef";

// Writes 2 * length ASCII digits to out.
void hexEncode(const uint8_t* bytes, UInteger length, char* out) noexcept;
void hexEncode(const uint8_t* bytes, UInteger length, char* out, InstructionSet isa) noexcept;
// Writes 2 * length UTF-16 code units to out.
void hexEncodeUTF16(const uint8_t* bytes, UInteger length, char16_t* out) noexcept;
void hexEncodeUTF16(const uint8_t* bytes, UInteger length, char16_t* out, InstructionSet isa) noexcept;

// What a decode carries between pieces of text: a first digit still waiting for its second.
struct HexDecodeState {
  bool pending = false;  // a half byte is waiting
  uint8_t high = 0;      // its value (0-15) when pending
};

// Decodes `length` characters, continuing from `state`, and writes the completed bytes to out,
// which must have room for (length + 1) / 2 bytes. Sets *produced to the number written and returns
// true; returns false as soon as an invalid character is met (out and state then hold no meaning).
// Whether the whole text was well formed is for the caller to judge at its end: no half byte may be
// pending, and initWithHexadecimalRepresentation() also requires at least one byte.
bool hexDecode(const char* text, UInteger length, uint8_t* out, UInteger* produced,
               HexDecodeState& state) noexcept;
bool hexDecode(const char* text, UInteger length, uint8_t* out, UInteger* produced, HexDecodeState& state,
               InstructionSet isa) noexcept;
// The same over UTF-16 code units; code units above 127 are invalid characters.
bool hexDecodeUTF16(const char16_t* text, UInteger length, uint8_t* out, UInteger* produced,
                    HexDecodeState& state) noexcept;
bool hexDecodeUTF16(const char16_t* text, UInteger length, uint8_t* out, UInteger* produced,
                    HexDecodeState& state, InstructionSet isa) noexcept;

}  // namespace tq
