// Fuzz target: the interface reader on the NIBArchive form. The input's first bytes are set to
// the form's signature, so that every mutation reaches this container's checks, not another form's.
// The reader must report or build, never crash, leak, hang or allocate beyond its bound.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "nib_fuzz_walk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr char kSignature[] = "NIBArchive";
  std::string bytes(reinterpret_cast<const char*>(data), size);
  if (bytes.size() >= sizeof kSignature - 1) std::memcpy(bytes.data(), kSignature, sizeof kSignature - 1);
  tq::fuzz::readAndWalk(bytes);
  return 0;
}
