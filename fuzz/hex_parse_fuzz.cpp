// The hexadecimal parse against a plain reference parse: the same bytes, or both refuse. Every
// decode kernel the CPU runs is checked, whole and fed in pieces.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "tq/foundation/data_extensions.h"
#include "tq/foundation/hex_codec.h"
#include "tq/platform/base/exception.h"

namespace {

bool reference(const std::u16string& text, std::vector<uint8_t>& out) {
  int high = -1;
  for (char16_t c : text) {
    int v;
    if (c >= u'0' && c <= u'9') v = c - u'0';
    else if (c >= u'a' && c <= u'f') v = c - u'a' + 10;
    else if (c >= u'A' && c <= u'F') v = c - u'A' + 10;
    else if (c == u' ' || (c >= 9 && c <= 13)) continue;
    else return false;
    if (high < 0) {
      high = v;
    } else {
      out.push_back(static_cast<uint8_t>(high << 4 | v));
      high = -1;
    }
  }
  return high < 0 && !out.empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // First byte: bit 0 reads the rest as UTF-16 units (pairs of bytes), else one unit per byte;
  // the other bits choose the piece size for the streaming decode.
  const unsigned mode = data[0];
  std::u16string text;
  for (std::size_t i = 1; i < size;) {
    if (mode & 1) {
      if (i + 1 >= size) break;
      text.push_back(static_cast<char16_t>(data[i] | data[i + 1] << 8));
      i += 2;
    } else {
      text.push_back(data[i++]);
    }
  }

  std::vector<uint8_t> expected;
  const bool ok = reference(text, expected);

  bool raised = false;
  tq::Data got;
  try {
    got = tq::dataWithHexadecimalRepresentation(tq::String(std::u16string_view(text)));
  } catch (const tq::Exception& e) {
    raised = true;
    if (e.reason() != tq::String(tq::HexadecimalParseFailureReason)) std::abort();
  }
  if (raised == ok) std::abort();
  if (ok && (got.length() != expected.size() ||
             !std::equal(expected.begin(), expected.end(), got.bytes()))) {
    std::abort();
  }

  const std::size_t piece = 1 + (mode >> 1) * 3;
  for (tq::InstructionSet isa : tq::supportedInstructionSets()) {
    std::vector<uint8_t> out(text.size() / 2 + 2);
    tq::HexDecodeState st;
    std::size_t total = 0;
    bool fine = true;
    for (std::size_t at = 0; at < text.size() && fine; at += piece) {
      std::size_t len = std::min(piece, text.size() - at);
      tq::UInteger produced = 0;
      fine = tq::hexDecodeUTF16(text.data() + at, len, out.data() + total, &produced, st, isa);
      total += produced;
    }
    fine = fine && !st.pending && total > 0;
    if (fine != ok) std::abort();
    if (ok && !std::equal(expected.begin(), expected.end(), out.begin())) std::abort();
  }
  return 0;
}
