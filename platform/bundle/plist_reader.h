// Internal: reading property lists from outside input with every cost bounded up front.
//
// XML lists are read by our own single-pass reader (xml_plist_parser), which builds Values directly
// with an explicit stack: nesting, value count and duplicate keys cost nothing extra. Binary lists
// ("bplist00") are read through the bounded BinaryPlist reader and built in one walk that counts
// every value it makes (a shared object once per reference), its depth and the bytes it copies, so
// a list whose sharing would expand it beyond its own size is refused, not built. Memory stays within
// a small multiple of the input either way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "tq/platform/base/value.h"
#include "tq/platform/bundle/strings_table.h"

namespace tq::detail {

// Bounds on one property list. The defaults are the ones the bundle, the strings tables and the
// tool use; they sit far above any real Info.plist or strings table.
struct PropertyListLimits {
  std::size_t maxBytes = kStringsTableMaxBytes;  // input size
  std::size_t maxDepth = 512;                    // nested arrays and dictionaries
  std::size_t maxValues = 2 * kStringsTableMaxEntries;  // values built, dictionary keys included
};

struct PropertyListResult {
  Value value;         // nil when error is set
  std::string error;   // why the list was refused, for a person; empty on success
  std::size_t offset = 0;  // byte offset of the error in the input (0 when it concerns the whole)
  bool ok() const { return error.empty(); }
};

// The property list in bytes (XML or binary) as a Value, or the reason it was refused.
PropertyListResult readPropertyList(std::span<const uint8_t> bytes, const PropertyListLimits& limits = {});

// The position of a byte offset in UTF-8 text: 1-based line and column, the column counted in
// characters. CR LF, CR and LF each end a line.
void lineAndColumn(std::span<const uint8_t> bytes, std::size_t offset, std::size_t& line, std::size_t& column);

}  // namespace tq::detail
