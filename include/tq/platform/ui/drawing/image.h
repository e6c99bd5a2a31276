// Image: a bitmap read from a file (PNG, JPEG, GIF, BMP, TIFF and whatever else gdk-pixbuf reads),
// with a size in points, drawn into the current graphics context.
//
// Size. An image's size in points is its pixel size x 72 / the resolution the file records (PNG
// pHYs, JPEG density, TIFF resolution, BMP pixels per metre), each axis on its own; without a
// recorded resolution a pixel is a point. setSize() changes the size the image draws at (not its
// pixels).
//
// Image coordinates (source rectangles) are in points with the origin at the image's bottom left,
// y upwards. Drawing places the image's top row at the destination's maximum y in user space: upright
// in an unflipped space, upside down in a flipped one (draw flipped images with a flipping transform).
//
// Images are immutable after loading, apart from setSize(); copies are deep (copyWithZone).
// Threads: an image may be drawn from one thread at a time.
#pragma once

#include <cairo.h>

#include <cstddef>
#include <memory>

#include "tq/platform/base/data.h"
#include "tq/platform/base/object.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/model/geometry.h"

namespace tq {

class Image;
using ImageRef = std::shared_ptr<Image>;

// The largest image file read (288 MiB): room for the largest picture decoded (kImageMaxPixels of
// four bytes each, as an uncompressed file holds them) and its headers.
inline constexpr std::size_t kImageMaxFileBytes = std::size_t{288} << 20;

class Image : public Object {
 public:
  // Reads an image file. Nil when the path is nil, the file is missing, is not a regular file (a
  // folder, a FIFO, a device: opened without waiting and checked once open), is larger than
  // kImageMaxFileBytes (refused before it is read), or is not a readable image. Never throws.
  static ImageRef imageWithContentsOfFile(const String& path);
  // Reads an image from the bytes of an image file; nil when they are not a readable image.
  static ImageRef imageWithData(const Data& data);
  // A transparent image of the given size in points and as many pixels (rounded up); nil for an
  // empty or huge size.
  static ImageRef imageWithSize(Size size);
  // An image over a copy of an ARGB32 or RGB24 Cairo image surface, sized a point per pixel.
  static ImageRef imageWithSurface(cairo_surface_t* surface);

  // The size in points.
  Size size() const { return size_; }
  void setSize(Size size) { size_ = size; }
  int pixelsWide() const;
  int pixelsHigh() const;
  // The pixels, premultiplied ARGB32 (owned by the image).
  cairo_surface_t* surface() const { return surface_; }

  // Draws the part `fromRect` of the image (points, image coordinates; an empty rectangle means the
  // whole image) stretched into `rect` of the current context, with the operation and an opacity
  // `fraction` (0 to 1), scaled with the context's image interpolation. Nothing without a current
  // context.
  void drawInRect(Rect rect, Rect fromRect, CompositingOperation op, double fraction) const;
  // The same at the part's own size, its bottom left corner at `point`.
  void drawAtPoint(Point point, Rect fromRect, CompositingOperation op, double fraction) const;

  // A graphics context drawing into the image's pixels (unflipped, points), e.g. to make test
  // images. The image is changed in place.
  GraphicsContextRef graphicsContext();

  // A deep copy: a distinct image with its own pixels, equal in content and size.
  ImageRef copyWithZone() const;
  // Same size in points and same pixels.
  bool isEqual(const Object& other) const override;

  ~Image() override;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  // Takes ownership of an ARGB32 surface (use the factories).
  Image(cairo_surface_t* surface, Size size);

 private:
  cairo_surface_t* surface_;
  Size size_;
};

}  // namespace tq
