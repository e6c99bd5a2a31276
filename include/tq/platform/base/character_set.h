// CharacterSet: an immutable set of Unicode characters, answering membership in constant time for
// the Basic Multilingual Plane and by a short search above it. Copies share their storage. A
// default CharacterSet is empty.
//
// Strings are UTF-16, so a character above U+FFFF stands in a string as a surrogate pair. A set
// holds characters, not code units: a set made from "😀" holds U+1F600 alone, neither of its
// surrogates, and a scan of a string (String::rangeOfCharacterFromSet, the string helpers) matches
// it as the whole pair. A surrogate that is not part of a pair is a character of its own (U+D800 to
// U+DFFF), matched only where it stands alone in the text.
// Threads: the shared sets are built once, safely, and may be used from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "tq/platform/base/range.h"
#include "tq/platform/base/string.h"

namespace tq {

// True for U+D800-U+DBFF, the first unit of a surrogate pair.
constexpr bool isHighSurrogate(unichar c) noexcept { return c >= 0xD800 && c <= 0xDBFF; }
// True for U+DC00-U+DFFF, the second unit of a surrogate pair.
constexpr bool isLowSurrogate(unichar c) noexcept { return c >= 0xDC00 && c <= 0xDFFF; }
// The character a surrogate pair stands for.
constexpr char32_t characterOfSurrogatePair(unichar high, unichar low) noexcept {
  return 0x10000 + ((char32_t{high} - 0xD800) << 10) + (char32_t{low} - 0xDC00);
}

class CharacterSet {
 public:
  CharacterSet();

  // Unicode general category Zs plus the horizontal tab (U+0009); no line feed, no carriage return.
  static const CharacterSet& whitespaceCharacterSet();
  // The above plus U+000A-U+000D, U+0085, U+2028 and U+2029.
  static const CharacterSet& whitespaceAndNewlineCharacterSet();
  // U+000A-U+000D, U+0085, U+2028, U+2029.
  static const CharacterSet& newlineCharacterSet();
  // The characters of the string: a surrogate pair adds the one character it stands for, a lone
  // surrogate adds itself (nil or empty gives the empty set).
  static CharacterSet characterSetWithCharactersInString(const String& characters);
  // The characters location .. location+length-1, clipped to U+10FFFF.
  static CharacterSet characterSetWithRange(Range range);

  // Every character of U+0000-U+10FFFF that is not a member.
  CharacterSet invertedSet() const;
  // Membership of a character of the Basic Multilingual Plane (a surrogate: as a lone one).
  bool characterIsMember(unichar c) const noexcept { return (bits_->words[c >> 6] >> (c & 63)) & 1u; }
  // Membership of any character; false above U+10FFFF.
  bool longCharacterIsMember(char32_t c) const noexcept;
  // True when the set holds a character above U+FFFF.
  bool hasMembersAboveBMP() const noexcept { return !bits_->above.empty(); }

  // Is the character that starts at units[i] a member? A surrogate pair at i counts as its
  // character; a low surrogate right after a high one is the second half of a pair and never a
  // member by itself (units[i - 1] is read when i > 0). `n` is the number of units available.
  bool isMemberAt(const unichar* units, UInteger i, UInteger n) const noexcept {
    const unichar c = units[i];
    if (c < 0xD800 || c > 0xDFFF) return characterIsMember(c);
    if (isHighSurrogate(c) && i + 1 < n && isLowSurrogate(units[i + 1])) {
      return longCharacterIsMember(characterOfSurrogatePair(c, units[i + 1]));
    }
    if (isLowSurrogate(c) && i > 0 && isHighSurrogate(units[i - 1])) return false;
    return characterIsMember(c);
  }

  // The membership bitmap of the Basic Multilingual Plane: bit (c & 63) of word (c >> 6) is set for
  // a member c. For scanners that test many code units at once.
  const std::array<uint64_t, 1024>& bitmap() const noexcept { return bits_->words; }
  // The members above U+FFFF as sorted, disjoint, non-adjacent inclusive ranges.
  const std::vector<std::pair<char32_t, char32_t>>& rangesAboveBMP() const noexcept { return bits_->above; }

  friend bool operator==(const CharacterSet& a, const CharacterSet& b) noexcept {
    return a.bits_ == b.bits_ || (a.bits_->words == b.bits_->words && a.bits_->above == b.bits_->above);
  }

 private:
  struct Bits {
    std::array<uint64_t, 1024> words{};
    std::vector<std::pair<char32_t, char32_t>> above;
  };
  explicit CharacterSet(std::shared_ptr<const Bits> bits) : bits_(std::move(bits)) {}
  std::shared_ptr<const Bits> bits_;
};

}  // namespace tq
