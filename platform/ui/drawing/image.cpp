// Images: decoding with gdk-pixbuf into premultiplied Cairo pixels, sizes from recorded resolutions,
// drawing with the context's operation, opacity and interpolation.
#include "tq/platform/ui/drawing/image.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "tq/platform/fs/file_manager.h"
#include "tq/platform/fs/regular_file.h"
#include "tq/platform/ui/drawing/drawing_recorder.h"
#include "tq/platform/ui/drawing/image_header.h"

namespace tq {

namespace {

// Images larger than this are refused rather than risk exhausting memory.
constexpr double kMaxPixels = kImageMaxPixels;
constexpr int kMaxSide = kImageMaxSide;

cairo_surface_t* surfaceFromPixbuf(GdkPixbuf* pixbuf) {
  const int w = gdk_pixbuf_get_width(pixbuf), h = gdk_pixbuf_get_height(pixbuf);
  const int channels = gdk_pixbuf_get_n_channels(pixbuf);
  const bool alpha = gdk_pixbuf_get_has_alpha(pixbuf);
  if (gdk_pixbuf_get_bits_per_sample(pixbuf) != 8 || channels < 3 || w > kMaxSide || h > kMaxSide) {
    return nullptr;
  }
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h);
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return nullptr;
  }
  cairo_surface_flush(surface);
  const guchar* src = gdk_pixbuf_read_pixels(pixbuf);
  const int srcStride = gdk_pixbuf_get_rowstride(pixbuf);
  unsigned char* dst = cairo_image_surface_get_data(surface);
  const int dstStride = cairo_image_surface_get_stride(surface);
  for (int y = 0; y < h; ++y) {
    const guchar* s = src + static_cast<std::size_t>(y) * srcStride;
    auto* d = reinterpret_cast<uint32_t*>(dst + static_cast<std::size_t>(y) * dstStride);
    for (int x = 0; x < w; ++x, s += channels) {
      const uint32_t a = alpha ? s[3] : 255;
      // Premultiply with rounding: (c * a + 127) / 255.
      auto pm = [a](uint32_t c) { return (c * a + 127) / 255; };
      d[x] = (a << 24) | (pm(s[0]) << 16) | (pm(s[1]) << 8) | pm(s[2]);
    }
  }
  cairo_surface_mark_dirty(surface);
  return surface;
}

double dpiOption(GdkPixbuf* pixbuf, const char* key) {
  const char* value = gdk_pixbuf_get_option(pixbuf, key);
  if (!value) return 0;
  const double dpi = std::strtod(value, nullptr);
  return dpi > 0 && std::isfinite(dpi) ? dpi : 0;
}

int32_t readLE32(const uint8_t* p) {
  return static_cast<int32_t>(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
}

// BMP keeps its resolution in pixels per metre in the info header, which gdk-pixbuf does not report.
void bmpResolution(const uint8_t* bytes, std::size_t length, double& xdpi, double& ydpi) {
  if (length < 54 || bytes[0] != 'B' || bytes[1] != 'M') return;
  if (readLE32(bytes + 14) < 40) return;  // older core headers carry no resolution
  const int32_t xppm = readLE32(bytes + 38), yppm = readLE32(bytes + 42);
  if (xppm > 0) xdpi = xppm * 0.0254;
  if (yppm > 0) ydpi = yppm * 0.0254;
}

ImageRef imageFromBytes(const uint8_t* bytes, std::size_t length) {
  if (!bytes || length == 0) return nullptr;
  if (imageHeaderProblem(bytes, length)) return nullptr;
  GdkPixbufLoader* loader = gdk_pixbuf_loader_new();
  // A header that announces a huge image is refused as soon as it is read, before the pixels are
  // allocated: the loader is asked for a 1 x 1 result and the rest of the data is not fed.
  bool tooLarge = false;
  g_signal_connect(loader, "size-prepared", G_CALLBACK(+[](GdkPixbufLoader* l, int w, int h, gpointer flag) {
                     if (w > kMaxSide || h > kMaxSide || double(w) * h > kMaxPixels) {
                       *static_cast<bool*>(flag) = true;
                       gdk_pixbuf_loader_set_size(l, 1, 1);
                     }
                   }),
                   &tooLarge);
  GError* error = nullptr;
  bool ok = true;
  constexpr std::size_t kChunk = 64 * 1024;
  for (std::size_t at = 0; ok && !tooLarge && at < length; at += kChunk) {
    ok = gdk_pixbuf_loader_write(loader, bytes + at, std::min(kChunk, length - at), &error);
  }
  ok = gdk_pixbuf_loader_close(loader, ok ? &error : nullptr) && ok && !tooLarge;
  g_clear_error(&error);
  GdkPixbuf* pixbuf = ok ? gdk_pixbuf_loader_get_pixbuf(loader) : nullptr;
  ImageRef image;
  if (pixbuf && double(gdk_pixbuf_get_width(pixbuf)) * gdk_pixbuf_get_height(pixbuf) <= kMaxPixels) {
    if (cairo_surface_t* surface = surfaceFromPixbuf(pixbuf)) {
      double xdpi = dpiOption(pixbuf, "x-dpi"), ydpi = dpiOption(pixbuf, "y-dpi");
      bmpResolution(bytes, length, xdpi, ydpi);
      const double pw = gdk_pixbuf_get_width(pixbuf), ph = gdk_pixbuf_get_height(pixbuf);
      const Size size{xdpi > 0 ? pw * 72.0 / xdpi : pw, ydpi > 0 ? ph * 72.0 / ydpi : ph};
      image = std::make_shared<Image>(surface, size);
    }
  }
  g_object_unref(loader);
  return image;
}

cairo_surface_t* copySurface(cairo_surface_t* source) {
  const int w = cairo_image_surface_get_width(source), h = cairo_image_surface_get_height(source);
  cairo_surface_t* copy = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h);
  cairo_t* cr = cairo_create(copy);
  cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
  cairo_set_source_surface(cr, source, 0, 0);
  cairo_paint(cr);
  cairo_destroy(cr);
  cairo_surface_flush(copy);
  return copy;
}

}  // namespace

Image::Image(cairo_surface_t* surface, Size size) : surface_(surface), size_(size) {}

Image::~Image() { cairo_surface_destroy(surface_); }

ImageRef Image::imageWithContentsOfFile(const String& path) {
  if (path.length() == 0) return nullptr;
  try {
    const RegularFileRead read = readRegularFile(FileManager::fileSystemRepresentation(path), kImageMaxFileBytes);
    if (!read) return nullptr;
    return imageFromBytes(reinterpret_cast<const uint8_t*>(read.bytes.data()), read.bytes.size());
  } catch (const std::bad_alloc&) {
    return nullptr;  // no room for the file's bytes: no image, as for any file that cannot be read
  }
}

ImageRef Image::imageWithData(const Data& data) { return imageFromBytes(data.bytes(), data.length()); }

ImageRef Image::imageWithSize(Size size) {
  if (!(size.width > 0) || !(size.height > 0) || size.width > kMaxSide || size.height > kMaxSide) return nullptr;
  cairo_surface_t* surface = cairo_image_surface_create(
      CAIRO_FORMAT_ARGB32, static_cast<int>(std::ceil(size.width)), static_cast<int>(std::ceil(size.height)));
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return nullptr;
  }
  return std::make_shared<Image>(surface, size);
}

ImageRef Image::imageWithSurface(cairo_surface_t* surface) {
  if (!surface || cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS ||
      cairo_surface_get_type(surface) != CAIRO_SURFACE_TYPE_IMAGE) {
    return nullptr;
  }
  const int w = cairo_image_surface_get_width(surface), h = cairo_image_surface_get_height(surface);
  if (w <= 0 || h <= 0) return nullptr;
  return std::make_shared<Image>(copySurface(surface), Size{double(w), double(h)});
}

int Image::pixelsWide() const { return cairo_image_surface_get_width(surface_); }
int Image::pixelsHigh() const { return cairo_image_surface_get_height(surface_); }

void Image::drawInRect(Rect rect, Rect fromRect, CompositingOperation op, double fraction) const {
  auto context = GraphicsContext::currentContext();
  if (!context) return;
  const Rect src = fromRect.isEmpty() ? Rect{0, 0, size_.width, size_.height} : fromRect;
  fraction = std::clamp(fraction, 0.0, 1.0);
  if (auto recorder = context->recorder()) {
    DrawingRecord r;
    r.kind = DrawingRecord::Kind::DrawImage;
    r.rect = rect;
    r.sourceRect = src;
    r.operation = op;
    r.fraction = fraction;
    r.interpolation = context->imageInterpolation();
    r.transform = context->currentTransform();
    recorder->add(std::move(r));
  }
  if (rect.isEmpty() || src.isEmpty() || !(size_.width > 0) || !(size_.height > 0)) return;

  // User space to the image's pixels: image points have y upwards from the bottom, pixels rows
  // downwards from the top, and the source's top edge lands on the destination's maximum y.
  const double kx = pixelsWide() / size_.width, ky = pixelsHigh() / size_.height;
  const double sx = src.w / rect.w, sy = src.h / rect.h;
  cairo_matrix_t m;
  cairo_matrix_init(&m, sx * kx, 0, 0, -sy * ky, (src.x - rect.x * sx) * kx,
                    (size_.height - src.y + rect.y * sy) * ky);
  // A part of the image is drawn from a sub-surface, so that filtering at its edges repeats the
  // part's own edge pixels instead of blending in its neighbours.
  const bool whole = src.x <= 0 && src.y <= 0 && src.maxX() >= size_.width && src.maxY() >= size_.height;
  cairo_surface_t* source = surface_;
  if (!whole) {
    const double px = src.x * kx, py = (size_.height - src.maxY()) * ky;
    source = cairo_surface_create_for_rectangle(surface_, px, py, src.w * kx, src.h * ky);
    m.x0 -= px;
    m.y0 -= py;
  }

  cairo_t* cr = context->cairo();
  cairo_save(cr);
  cairo_rectangle(cr, rect.x, rect.y, rect.w, rect.h);
  cairo_clip(cr);
  cairo_pattern_t* pattern = cairo_pattern_create_for_surface(source);
  if (!whole) cairo_surface_destroy(source);  // the pattern holds it
  cairo_pattern_set_matrix(pattern, &m);
  cairo_pattern_set_filter(pattern, context->imageFilter());
  cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
  cairo_set_source(cr, pattern);
  cairo_set_operator(cr, cairoOperatorForCompositingOperation(op));
  cairo_paint_with_alpha(cr, fraction);
  cairo_pattern_destroy(pattern);
  cairo_restore(cr);
}

void Image::drawAtPoint(Point point, Rect fromRect, CompositingOperation op, double fraction) const {
  const Rect src = fromRect.isEmpty() ? Rect{0, 0, size_.width, size_.height} : fromRect;
  drawInRect({point.x, point.y, src.w, src.h}, src, op, fraction);
}

GraphicsContextRef Image::graphicsContext() {
  if (!(size_.width > 0) || !(size_.height > 0)) return nullptr;
  cairo_t* cr = cairo_create(surface_);
  cairo_scale(cr, pixelsWide() / size_.width, pixelsHigh() / size_.height);
  auto context = GraphicsContext::graphicsContextWithCairo(cr, size_.height, false);
  cairo_destroy(cr);
  return context;
}

ImageRef Image::copyWithZone() const {
  cairo_surface_flush(surface_);
  return std::make_shared<Image>(copySurface(surface_), size_);
}

bool Image::isEqual(const Object& other) const {
  const auto* o = dynamic_cast<const Image*>(&other);
  if (!o) return false;
  if (o == this) return true;
  if (!(o->size_ == size_) || o->pixelsWide() != pixelsWide() || o->pixelsHigh() != pixelsHigh()) return false;
  cairo_surface_flush(surface_);
  cairo_surface_flush(o->surface_);
  const int rowBytes = pixelsWide() * 4;
  const unsigned char* a = cairo_image_surface_get_data(surface_);
  const unsigned char* b = cairo_image_surface_get_data(o->surface_);
  const int sa = cairo_image_surface_get_stride(surface_), sb = cairo_image_surface_get_stride(o->surface_);
  for (int y = 0; y < pixelsHigh(); ++y) {
    if (std::memcmp(a + static_cast<std::size_t>(y) * sa, b + static_cast<std::size_t>(y) * sb, rowBytes) != 0) {
      return false;
    }
  }
  return true;
}

}  // namespace tq
