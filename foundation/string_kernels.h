// The bulk loops of the string operations, one table per code path. Private to tq_foundation.
//
// Every kernel takes raw code units and never allocates. Output buffers must have room for the
// input length plus kOutputSlack code units: the vector paths store whole vectors and only then
// advance by the number of units that count.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tq/foundation/string_code_paths.h"
#include "tq/platform/base/character_set.h"

namespace tq::detail {

inline constexpr std::size_t kOutputSlack = 32;

// Membership in the whitespace set, written out (Zs plus tab).
constexpr bool isWhitespaceUnit(char16_t c) {
  return c == 0x20 || c == 0x09 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x202F ||
         c == 0x205F || c == 0x3000;
}

// A character set prepared for vector lookups: the bitmap for everything, plus the members below
// 512 as 32 words of 16 bits and the ASCII members as a nibble table.
struct SetMatcher {
  explicit SetMatcher(const CharacterSet& set);
  bool isMember(char16_t c) const { return (bitmap[c >> 6] >> (c & 63)) & 1u; }

  const uint64_t* bitmap;
  alignas(64) uint16_t low512[32];  // bit (c & 15) of word (c >> 4), for c < 512
  alignas(16) uint8_t asciiByLowNibble[16];  // bit (c >> 4) of entry (c & 15), for c < 128
  bool anyFrom128;  // a member at or above U+0080
  bool anyFrom512;  // a member at or above U+0200
};

struct StringKernels {
  StringCodePath path;
  // Index of the first LF or CR, or n.
  std::size_t (*findLineBreak)(const char16_t* in, std::size_t n);
  // Copies n units, LF and CR becoming spaces.
  void (*replaceLineBreaks)(const char16_t* in, std::size_t n, char16_t* out);
  // Writes the text with whitespace runs reduced to one space; returns the units written.
  std::size_t (*reduceWhitespace)(const char16_t* in, std::size_t n, char16_t* out);
  // Index of the first non-whitespace unit, or n.
  std::size_t (*firstNonWhitespace)(const char16_t* in, std::size_t n);
  // One past the last non-whitespace unit, or 0.
  std::size_t (*endOfNonWhitespace)(const char16_t* in, std::size_t n);
  // Index of the first member of the set, or n.
  std::size_t (*findMember)(const char16_t* in, std::size_t n, const SetMatcher& set);
};

extern const StringKernels kPlainKernels;
extern const StringKernels kAVX2Kernels;
extern const StringKernels kAVX512Kernels;

// The table in use (never null).
const StringKernels& stringKernels();

}  // namespace tq::detail
