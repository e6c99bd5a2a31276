// Image files from outside: decoding (gdk-pixbuf plus the BMP resolution read here) and drawing the
// result must not crash or leak, whatever the bytes.
#include <cstddef>
#include <cstdint>

#include "tq/platform/ui/graphics_context.h"
#include "tq/platform/ui/image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  tq::ImageRef image = tq::Image::imageWithData(tq::Data::withBytes(data, size));
  if (!image) return 0;
  auto context = tq::GraphicsContext::imageContext({16, 16}, true);
  tq::GraphicsContext::setCurrentContext(context);
  context->setImageInterpolation(tq::NSImageInterpolationHigh);
  image->drawInRect({0, 0, 16, 16}, {}, tq::NSCompositeSourceOver, 1.0);
  const tq::Size s = image->size();
  image->drawAtPoint({1, 1}, {0, 0, s.width / 2, s.height / 2}, tq::NSCompositeCopy, 0.5);
  tq::ImageRef copy = image->copyWithZone();
  if (!copy->isEqual(*image)) __builtin_trap();
  tq::GraphicsContext::setCurrentContext(nullptr);
  return 0;
}
