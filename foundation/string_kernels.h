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

// A character set prepared for vector lookups. A code unit u is split into its block (u >> 8) and
// its low byte (u & 0xFF). Blocks whose 256 characters are all members answer from one bit table;
// blocks with some members ("mixed") are listed, each with a bit table of its low bytes; anything
// the tables cannot settle is a candidate that isMemberAt() decides one unit at a time.
struct SetMatcher {
  static constexpr int kMaxListed = 6;

  explicit SetMatcher(const CharacterSet& set);
  // Is the character starting at in[i] a member (see CharacterSet::isMemberAt)?
  bool isMemberAt(const char16_t* in, std::size_t i, std::size_t n) const { return set->isMemberAt(in, i, n); }
  // Membership of a unit that is not a surrogate.
  bool isMember(char16_t c) const { return (bitmap[c >> 6] >> (c & 63)) & 1u; }

  const CharacterSet* set;
  const uint64_t* bitmap;
  // Surrogates (blocks D8-DF) are left out of the tables. When the set holds a lone surrogate, or
  // more characters above U+FFFF than are listed as pairs, every surrogate is a candidate: the
  // neighbouring unit decides.
  bool surrogates;
  // A few members above U+FFFF, compared as their surrogate pairs in the vectors.
  static constexpr int kMaxPairs = 4;
  int pairs;
  uint16_t pairHigh[kMaxPairs], pairLow[kMaxPairs];
  bool anyFull;    // some block is full
  bool overflow;   // more mixed blocks than listed: units of the others are candidates
  int listed;      // mixed blocks listed
  uint8_t listedBlock[kMaxListed];
  // Bit tables over a byte x, two layouts of the same 256 bits:
  //  - plain: bit (x & 7) of byte (x >> 3), for byte permutes (AVX-512 VBMI);
  //  - nibble: bit ((x >> 4) & 7) of byte (x & 15) + 16 * (x >> 7), for pshufb (AVX2).
  struct BitTable {
    alignas(32) uint8_t plain[32];
    alignas(32) uint8_t nibble[32];
  };
  BitTable full;                  // by block: all 256 characters are members
  BitTable unlisted;              // by block: mixed but not listed
  BitTable low[kMaxListed];       // by low byte, for each listed block
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
  // Index of the first unit that starts a member character of the set, or n. `in` must start at
  // a character boundary (not on the second half of a surrogate pair).
  std::size_t (*findMember)(const char16_t* in, std::size_t n, const SetMatcher& set);
  // The starts of the member characters in in[from, n), in order, written to `at` (room for `cap`,
  // at least 64); returns their number. Stops early when `at` could overflow: *next is where the
  // scan stopped (n when it finished). `from` must be a character boundary; in[from - 1] may be read.
  std::size_t (*findMembers)(const char16_t* in, std::size_t from, std::size_t n, const SetMatcher& set,
                             std::size_t* at, std::size_t cap, std::size_t* next);
  // Copies n units, each member of the set becoming `unit`. Only for sets without members above
  // U+FFFF, so that every match is one unit wide.
  void (*replaceMembers)(const char16_t* in, std::size_t n, char16_t* out, const SetMatcher& set, char16_t unit);
};

extern const StringKernels kPlainKernels;
extern const StringKernels kAVX2Kernels;
extern const StringKernels kAVX512Kernels;

// The table in use (never null).
const StringKernels& stringKernels();

}  // namespace tq::detail
