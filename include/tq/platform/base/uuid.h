// UUIDs from the system's generator (libuuid).
#pragma once

#include "tq/platform/base/string.h"

namespace tq {

// A new random (version 4) UUID in its standard text form: 36 characters, upper-case hexadecimal
// digits in groups 8-4-4-4-12 joined by hyphens. Every call gives a different string. Any thread.
String uuidString();

}  // namespace tq
