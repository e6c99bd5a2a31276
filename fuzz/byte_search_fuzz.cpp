// Byte search against the plain forward scan, for every kernel the CPU runs and for Two-Way alone.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tq/foundation/byte_search.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  // Byte 0: pattern length; byte 1: bit 0 folds every byte onto a two-letter alphabet, so that
  // periodic text and late mismatches are common. The pattern comes first, then the haystack.
  std::size_t m = data[0] % 80;
  const bool fold = data[1] & 1;
  std::vector<uint8_t> bytes(data + 2, data + size);
  if (fold) {
    for (auto& b : bytes) b = 'a' + (b & 1);
  }
  if (m > bytes.size()) m = bytes.size();
  const uint8_t* pattern = bytes.data();
  const uint8_t* hay = bytes.data() + m;
  const std::size_t n = bytes.size() - m;

  tq::UInteger want = tq::NotFound;
  if (m == 0) {
    want = 0;
  } else {
    for (std::size_t at = 0; at + m <= n; ++at) {
      if (std::memcmp(hay + at, pattern, m) == 0) {
        want = at;
        break;
      }
    }
  }
  for (tq::InstructionSet isa : tq::supportedInstructionSets()) {
    if (tq::findBytes(hay, n, pattern, m, isa) != want) std::abort();
  }
  if (tq::findBytes(hay, n, pattern, m) != want) std::abort();
  if (tq::findBytesTwoWay(hay, n, pattern, m) != want) std::abort();
  return 0;
}
