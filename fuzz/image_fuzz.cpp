// Image files from outside. The header checks that guard gdk-pixbuf's decoders are fuzzed on the raw
// bytes (the decoders themselves carry no coverage counters, so only the checks can steer the
// fuzzer towards headers that pass them); whatever passes is decoded and drawn, and must neither
// crash, leak nor make a decoder allocate beyond libFuzzer's malloc limit.
#include <cstddef>
#include <cstdint>

#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/image.h"
#include "tq/platform/ui/drawing/image_header.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const char* problem = tq::imageHeaderProblem(data, size);
  tq::ImageRef image = tq::Image::imageWithData(tq::Data::withBytes(data, size));
  // A refused header never reaches a decoder, so it never yields an image.
  if (problem && image) __builtin_trap();
  if (!image) return 0;
  auto context = tq::GraphicsContext::imageContext({16, 16}, true);
  tq::GraphicsContext::setCurrentContext(context);
  context->setImageInterpolation(tq::NSImageInterpolationHigh);
  image->drawInRect({0, 0, 16, 16}, {}, tq::NSCompositeSourceOver, 1.0);
  const tq::Size s = image->size();
  image->drawAtPoint({1, 1}, {0, 0, s.width / 2, s.height / 2}, tq::NSCompositeCopy, 0.5);
  tq::ImageRef copy = image->copyWithZone();
  if (!copy->isEqual(*image)) __builtin_trap();
  if (image->pixelsWide() > tq::kImageMaxSide || image->pixelsHigh() > tq::kImageMaxSide) __builtin_trap();
  tq::GraphicsContext::setCurrentContext(nullptr);
  return 0;
}
