// Header checks run before gdk-pixbuf's decoders see an image.
#include "tq/platform/ui/drawing/image_header.h"

#include <cstring>

namespace tq {

namespace {

uint32_t readLE32(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }

// The BMP decoder sizes its buffers from the info header size, the data offset and the palette
// colour count before any check. No real file has an info header beyond 124 bytes (BITMAPV5HEADER),
// pixel data starting past its end, or a palette of more than 256 colours.
const char* bmpProblem(const uint8_t* bytes, std::size_t length) {
  if (length < 18) return "BMP header truncated";
  const uint32_t dataOffset = readLE32(bytes + 10);
  const uint32_t headerSize = readLE32(bytes + 14);
  if (headerSize < 12 || headerSize > 124) return "BMP info header size out of range";
  if (dataOffset > length) return "BMP pixel data beyond the end of the file";
  if (headerSize >= 40) {
    if (length < 50) return "BMP header truncated";
    if (readLE32(bytes + 46) > 256) return "BMP palette larger than 256 colours";
  }
  return nullptr;
}

const char* gifProblem(const uint8_t* bytes, std::size_t length) {
  if (length < 10) return nullptr;  // the decoder reports a truncated screen descriptor itself
  const int w = bytes[6] | bytes[7] << 8, h = bytes[8] | bytes[9] << 8;
  if (w > kImageMaxSide || h > kImageMaxSide || double(w) * h > kImageMaxPixels) return "GIF logical screen too large";
  return nullptr;
}

}  // namespace

const char* imageHeaderProblem(const uint8_t* bytes, std::size_t length) {
  if (!bytes) return nullptr;
  if (length >= 2 && bytes[0] == 'B' && bytes[1] == 'M') return bmpProblem(bytes, length);
  if (length >= 4 && std::memcmp(bytes, "GIF8", 4) == 0) return gifProblem(bytes, length);
  return nullptr;
}

}  // namespace tq
