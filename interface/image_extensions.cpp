// Image loading by bundle, bitmap file types and flipped drawing.
#include "tq/interface/image_extensions.h"

#include <array>

#include "tq/platform/ui/drawing/affine_transform.h"

namespace tq {

namespace {

// The extensions in table order; their index is the file type. Made once so that every call hands
// out the same strings.
const std::array<String, 6>& extensions() {
  static const std::array<String, 6> table = {String(u"tiff"), String(u"bmp"), String(u"gif"),
                                              String(u"jpg"),  String(u"png"), String(u"jp2")};
  return table;
}

}  // namespace

const ImageClassMethods& imageClassMethods() {
  static const ImageClassMethods object;
  return object;
}

ImageRef ImageClassMethods::imageNamedFromBundle(const String& name, const std::shared_ptr<Bundle>& bundle) const {
  if (!bundle) return nullptr;
  String path = bundle->pathForImageResource(name);
  if (path.isNil()) return nullptr;
  // Read afresh: no shared cache is consulted or filled.
  return Image::imageWithContentsOfFile(path);
}

// Through the receiving class object, so that its imageNamedFromBundle applies.
ImageRef ImageClassMethods::imageNamedFromBundleWithClass(const String& name, const std::type_info& type) const {
  return imageNamedFromBundle(name, Bundle::bundleForClass(type));
}

ImageRef ImageClassMethods::imageNamedFromBundleWithIdentifier(const String& name, const String& identifier) const {
  return imageNamedFromBundle(name, Bundle::bundleWithIdentifier(identifier));
}

BitmapImageFileType bitmapImageFileTypeFromExtension(const String& extension) {
  const auto& table = extensions();
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (extension.isEqual(table[i])) return static_cast<BitmapImageFileType>(i);
  }
  return NSTIFFFileType;
}

String extensionFromBitmapImageFileType(BitmapImageFileType type) {
  const auto& table = extensions();
  if (type >= table.size()) return String();
  return table[type];
}

void drawFlippedInRect(const Image& image, Rect rect, CompositingOperation operation, double fraction) {
  GraphicsContext::saveGraphicsState();
  const Size size = image.size();
  AffineTransform flip = AffineTransform::transform();
  flip.translateXBy(rect.x, rect.y + rect.h);
  flip.scaleXBy(1.0, -1.0);
  flip.concat();
  image.drawInRect(Rect{0, 0, rect.w, rect.h}, Rect{0, 0, size.width, size.height}, operation, fraction);
  GraphicsContext::restoreGraphicsState();
}

void drawFlippedAtPoint(const Image& image, Point point, CompositingOperation operation, double fraction) {
  GraphicsContext::saveGraphicsState();
  const Size size = image.size();
  AffineTransform flip = AffineTransform::transform();
  flip.translateXBy(point.x, point.y + size.height);
  flip.scaleXBy(1.0, -1.0);
  flip.concat();
  image.drawAtPoint(Point{0, 0}, Rect{0, 0, size.width, size.height}, operation, fraction);
  GraphicsContext::restoreGraphicsState();
}

}  // namespace tq
