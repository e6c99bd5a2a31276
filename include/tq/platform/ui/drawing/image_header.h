// Image header checks: the few bytes at the start of an image file that decide, before any decoder
// sees the file, whether decoding it is safe.
//
// gdk-pixbuf's decoders size some buffers from header fields before checking them, so a handful of
// bytes can make a decoder ask for gigabytes (and g_malloc aborts the process when that fails).
// Image loading refuses such headers here first; everything else is the decoders' business, and
// the decoders report what they announce through their size callback, where Image refuses more than
// kImageMaxSide per side or kImageMaxPixels in all.
//
// Threads: any; no state.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tq {

// The largest image Image decodes: per side, and in pixels.
inline constexpr int kImageMaxSide = 32767;
inline constexpr double kImageMaxPixels = 64.0 * 1024 * 1024;

// nullptr when the header may be handed to a decoder; otherwise why not, as a short English phrase.
// Refused:
//   BMP ("BM"): a file shorter than its file header and the info header's size field (18 bytes), an
//     info header size outside 12..124, pixel data said to start past the end of the file, or (info
//     headers of 40 bytes or more, which must then hold the colour count at offset 46) a palette of
//     more than 256 colours.
//   GIF ("GIF8"): a logical screen wider or higher than kImageMaxSide, or larger than
//     kImageMaxPixels (the GIF decoder allocates the screen before it reports the image's size).
// Other formats, and bytes that start no known format, pass: their decoders decide.
const char* imageHeaderProblem(const uint8_t* bytes, std::size_t length);

}  // namespace tq
