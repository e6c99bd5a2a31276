// Fuzz target: the interface reader on the compiled keyed archive saved as an XML property list
// (seeded with such archives; the reader tells the form by its <plist> root). The reader must
// report or build, never crash, leak, hang or allocate beyond its bound.
#include <cstddef>
#include <cstdint>
#include <string>

#include "nib_fuzz_walk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  tq::fuzz::readAndWalk(bytes);
  return 0;
}
