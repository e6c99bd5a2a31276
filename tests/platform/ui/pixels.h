// Pictures in tests: an image context made current for a scope, and its pixels read back.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "tq/platform/ui/drawing/drawing_recorder.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/image.h"

namespace tq::test {

struct Pixel {
  int a, r, g, b;  // premultiplied, 0..255
};

// The pixel at device column x, row y (row 0 at the top of the surface).
inline Pixel pixelAt(const GraphicsContext& context, int x, int y) {
  cairo_surface_t* s = context.surface();
  cairo_surface_flush(s);
  const unsigned char* data = cairo_image_surface_get_data(s);
  const uint32_t v =
      *reinterpret_cast<const uint32_t*>(data + static_cast<std::size_t>(y) * cairo_image_surface_get_stride(s) + x * 4);
  return {int(v >> 24), int((v >> 16) & 0xFF), int((v >> 8) & 0xFF), int(v & 0xFF)};
}

// How many pixels of a device rectangle have any alpha.
inline int inkedPixels(const GraphicsContext& context, int x0, int y0, int x1, int y1) {
  int count = 0;
  for (int y = y0; y < y1; ++y) {
    for (int x = x0; x < x1; ++x) count += pixelAt(context, x, y).a > 0;
  }
  return count;
}

// An image of w x h points: top half red, bottom half blue (as seen upright).
inline ImageRef halves(double w, double h) {
  ImageRef image = Image::imageWithSize({w, h});
  GraphicsContextRef c = image->graphicsContext();  // unflipped: the top half is y h/2..h
  c->setFillColor(Color::blueColor());
  c->fillRect({0, 0, w, h / 2}, NSCompositeCopy);
  c->setFillColor(Color::redColor());
  c->fillRect({0, h / 2, w, h / 2}, NSCompositeCopy);
  c->flushGraphics();
  return image;
}

// An image context of `size`, recorded and current while the object lives; states left saved are
// restored when it goes.
struct CurrentPicture {
  GraphicsContextRef context;
  std::shared_ptr<DrawingRecorder> recorder = std::make_shared<DrawingRecorder>();
  explicit CurrentPicture(Size size = {240, 60}, bool flipped = true)
      : context(GraphicsContext::imageContext(size, flipped)) {
    context->setRecorder(recorder);
    GraphicsContext::setCurrentContext(context);
  }
  ~CurrentPicture() {
    while (context->savedStateCount() > 0) GraphicsContext::restoreGraphicsState();
    GraphicsContext::setCurrentContext(nullptr);
  }
  std::vector<DrawingRecord> of(DrawingRecord::Kind kind) const { return recorder->recordsOfKind(kind); }
};

}  // namespace tq::test
