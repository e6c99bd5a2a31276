// Internal: the XML property-list reader.
//
// One pass over the bytes with an explicit stack of open containers, so nesting never recurses and
// the limits are checked as each element opens. Understands the elements plist, dict, array, key,
// string, integer, real, true, false, date and data; the five predefined entities and numeric
// character references; CDATA sections, comments, processing instructions and a DOCTYPE (whose
// internal subset is skipped, not applied). A key written twice in one dictionary keeps its first
// position and its last value. Any other element, text between elements, or a malformed number,
// date or base64 block refuses the whole list.
#pragma once

#include <cstdint>
#include <span>

#include "plist_reader.h"

namespace tq::detail {

PropertyListResult parseXMLPropertyList(std::span<const uint8_t> bytes, const PropertyListLimits& limits);

}  // namespace tq::detail
