// Internal: builds the interface model from a keyed-object graph, whichever container it came from.
#pragma once

#include <cstddef>
#include <string>

#include "keyed_archive.h"
#include "tq/platform/ui/archive/nib_reader.h"

namespace tq {

// Decodes the archive into a Nib. Throws NibDecodeFailure with the reason when the graph is not a
// consistent interface (an object that contains itself, a window whose content view is not a
// view...) or when the model would need more than `byteBudget` bytes.
Nib decodeKeyedArchive(const archive::KeyedArchive& archive, const NibLoadOptions& options, const String& documentType,
                       std::size_t byteBudget);

struct NibDecodeFailure {
  std::string reason;
};

}  // namespace tq
