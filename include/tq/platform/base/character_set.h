// CharacterSet: an immutable set of UTF-16 code units (the Basic Multilingual Plane), answering
// membership in constant time. Copies share their bitmap. A default CharacterSet is empty.
// Threads: the shared sets are built once, safely, and may be used from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "tq/platform/base/range.h"
#include "tq/platform/base/string.h"

namespace tq {

class CharacterSet {
 public:
  CharacterSet();

  // Unicode general category Zs plus the horizontal tab (U+0009); no line feed, no carriage return.
  static const CharacterSet& whitespaceCharacterSet();
  // The above plus U+000A-U+000D, U+0085, U+2028 and U+2029.
  static const CharacterSet& whitespaceAndNewlineCharacterSet();
  // U+000A-U+000D, U+0085, U+2028, U+2029.
  static const CharacterSet& newlineCharacterSet();
  // The code units of the string (nil or empty gives the empty set).
  static CharacterSet characterSetWithCharactersInString(const String& characters);
  // The code units location .. location+length-1 (clipped to U+FFFF).
  static CharacterSet characterSetWithRange(Range range);

  // Every code unit that is not a member.
  CharacterSet invertedSet() const;
  bool characterIsMember(unichar c) const noexcept {
    return (bits_->words[c >> 6] >> (c & 63)) & 1u;
  }

  // The membership bitmap: bit (c & 63) of word (c >> 6) is set for a member c. For scanners that
  // test many code units at once.
  const std::array<uint64_t, 1024>& bitmap() const noexcept { return bits_->words; }

  friend bool operator==(const CharacterSet& a, const CharacterSet& b) noexcept {
    return a.bits_ == b.bits_ || a.bits_->words == b.bits_->words;
  }

 private:
  struct Bits {
    std::array<uint64_t, 1024> words{};
  };
  explicit CharacterSet(std::shared_ptr<const Bits> bits) : bits_(std::move(bits)) {}
  std::shared_ptr<const Bits> bits_;
};

}  // namespace tq
