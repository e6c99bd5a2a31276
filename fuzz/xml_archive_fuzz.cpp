// Fuzz target: the interface reader on the older XML archive (seeded with such archives; the XML
// parser decides the form by the root element). The reader must report or build, never crash,
// leak, hang or allocate beyond its bound.
#include <cstddef>
#include <cstdint>
#include <string>

#include "nib_fuzz_walk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  tq::fuzz::readAndWalk(bytes);
  return 0;
}
