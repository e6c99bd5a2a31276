// A binary property list laid out by hand, for lists no writer would make (nested deeper than any
// reader takes, objects referenced many times): the header, the objects as given, the offset table
// (four-byte offsets) and the trailer, object 0 at the top.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tq::test {

// `value` as `bytes` big-endian bytes.
inline std::string bigEndian(uint64_t value, int bytes) {
  std::string out;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) out += static_cast<char>(value >> shift);
  return out;
}

// The list of the encoded `objects`, whose references are `refSize` bytes wide.
inline std::string binaryPropertyList(const std::vector<std::string>& objects, int refSize) {
  std::string b = "bplist00", offsets;
  for (const std::string& o : objects) {
    offsets += bigEndian(b.size(), 4);
    b += o;
  }
  const std::size_t table = b.size();
  return b + offsets + std::string(6, '\0') + static_cast<char>(4) + static_cast<char>(refSize) +
         bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(table, 8);
}

}  // namespace tq::test
