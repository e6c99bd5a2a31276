// Ranges of code units or bytes, and the platform's integer widths.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace tq {

// Native-width unsigned and signed integers (64 bits on the hosts tqkit builds for).
using UInteger = std::size_t;
using Integer = std::ptrdiff_t;

// The location of "no match": the largest signed value of the native unsigned width
// (0x7FFFFFFFFFFFFFFF on 64-bit hosts).
inline constexpr UInteger NotFound = static_cast<UInteger>(std::numeric_limits<Integer>::max());

// A (location, length) pair, counted in UTF-16 code units for strings and bytes for buffers.
// A search that finds nothing answers (NotFound, 0).
struct Range {
  UInteger location = 0;
  UInteger length = 0;

  static constexpr Range notFound() { return {NotFound, 0}; }
  constexpr bool found() const { return location != NotFound; }
  // One past the last element; meaningless for notFound().
  constexpr UInteger max() const { return location + length; }
  friend constexpr bool operator==(const Range&, const Range&) = default;
};

// Options of the search operations, with the platform's values.
enum SearchOptions : unsigned {
  CaseInsensitiveSearch = 1,
  LiteralSearch = 2,  // all searches are literal (code unit by code unit); accepted for fidelity
  BackwardsSearch = 4,
  AnchoredSearch = 8,
};

}  // namespace tq
