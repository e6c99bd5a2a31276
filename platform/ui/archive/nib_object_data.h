// Internal: the layout of an interface from its object-data root (class NSIBObjectData), which
// both compiled forms share: the owner ("NSRoot"), the parent of every object ("NSObjectsKeys"
// and "NSObjectsValues"), the connectors ("NSConnections") and the designer's object identifiers
// ("NSOidsKeys", "NSOidsValues").
#pragma once

#include <cstdint>
#include <string>

#include "keyed_archive.h"

namespace tq::archive {

// Fills archive.layout() from the root object; false with `reason` when the root is not object data.
bool layoutFromObjectData(KeyedArchive& archive, uint32_t root, std::string& reason);

}  // namespace tq::archive
