// Internal: reading property lists through libplist without tripping its assertions.
//
// libplist aborts the process (an assertion) when asked for a dictionary key that holds a NUL
// character, which a binary property list can encode as a UTF-16 zero unit. Outside input must not
// end the host, so binary lists are checked first and such lists are refused as unreadable.
#pragma once

#include <cstdint>
#include <span>

#include "tq/platform/base/value.h"

namespace tq::detail {

// The property list in bytes (XML or binary) as a Value; nil when it does not parse.
Value readPropertyList(std::span<const uint8_t> bytes);

}  // namespace tq::detail
