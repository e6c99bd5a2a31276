// Image helpers: loading an image by name from a given bundle without any shared name cache,
// converting between file name extensions and bitmap file types, and drawing an image upright into
// a flipped coordinate system (table and outline views).
//
// Threads: loading may run on any thread; drawing runs on the thread that owns the current graphics
// context (the interface thread).
#pragma once

#include <memory>
#include <typeinfo>

#include "tq/platform/base/string.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/image.h"
#include "tq/platform/ui/model/geometry.h"

namespace tq {

// Bitmap file types, with the platform's values.
using BitmapImageFileType = UInteger;
inline constexpr BitmapImageFileType NSTIFFFileType = 0;
inline constexpr BitmapImageFileType NSBMPFileType = 1;
inline constexpr BitmapImageFileType NSGIFFileType = 2;
inline constexpr BitmapImageFileType NSJPEGFileType = 3;
inline constexpr BitmapImageFileType NSPNGFileType = 4;
inline constexpr BitmapImageFileType NSJPEG2000FileType = 5;

// The image class's loading methods, as a class object. They are class methods of the image class,
// and the class and identifier forms send imageNamedFromBundle to the receiving class: a class object
// that overrides imageNamedFromBundle changes all three. The free functions below use the image
// class's own object, imageClassMethods().
//
// A subclass that keeps the images it loads at half their size (for a compact table), all three
// forms included:
//
//   struct HalfSizeImages : tq::ImageClassMethods {
//     tq::ImageRef imageNamedFromBundle(const tq::String& name,
//                                       const std::shared_ptr<tq::Bundle>& bundle) const override {
//       tq::ImageRef image = tq::ImageClassMethods::imageNamedFromBundle(name, bundle);
//       if (image) image->setSize({image->size().width / 2, image->size().height / 2});
//       return image;
//     }
//   };
//   static const HalfSizeImages halfSize;
//   auto icon = halfSize.imageNamedFromBundleWithIdentifier(u"Folder", u"org.example.app");  // half size
//
// Class objects hold no state. Threads: loading may run on any thread.
class ImageClassMethods {
 public:
  virtual ~ImageClassMethods() = default;
  // A new image read from the bundle's image resource `name` (Bundle::pathForImageResource: with or
  // without an extension). Every call reads the file again and returns a distinct image; nothing is
  // cached or registered under the name. Nil when the bundle is nil, has no such image, or the file
  // is not a readable image. The caller owns the result.
  virtual ImageRef imageNamedFromBundle(const String& name, const std::shared_ptr<Bundle>& bundle) const;
  // This object's imageNamedFromBundle with the bundle holding the code of the class
  // (Bundle::bundleForClass).
  virtual ImageRef imageNamedFromBundleWithClass(const String& name, const std::type_info& type) const;
  template <class T>
  ImageRef imageNamedFromBundleWithClass(const String& name) const {
    return imageNamedFromBundleWithClass(name, typeid(T));
  }
  // This object's imageNamedFromBundle with the already opened bundle with the identifier
  // (Bundle::bundleWithIdentifier); nil when no open bundle has it.
  virtual ImageRef imageNamedFromBundleWithIdentifier(const String& name, const String& identifier) const;
};

// The image class's own class object.
const ImageClassMethods& imageClassMethods();

// The image class's loading methods (imageClassMethods()).
inline ImageRef imageNamedFromBundle(const String& name, const std::shared_ptr<Bundle>& bundle) {
  return imageClassMethods().imageNamedFromBundle(name, bundle);
}
inline ImageRef imageNamedFromBundleWithClass(const String& name, const std::type_info& type) {
  return imageClassMethods().imageNamedFromBundleWithClass(name, type);
}
template <class T>
ImageRef imageNamedFromBundleWithClass(const String& name) {
  return imageClassMethods().imageNamedFromBundleWithClass(name, typeid(T));
}
inline ImageRef imageNamedFromBundleWithIdentifier(const String& name, const String& identifier) {
  return imageClassMethods().imageNamedFromBundleWithIdentifier(name, identifier);
}

// The file type for an extension: "tiff", "bmp", "gif", "jpg", "png", "jp2", compared exactly (case
// matters). Anything else, including "tif", "jpeg", "PNG" and nil, gives NSTIFFFileType: TIFF is the
// fallback.
BitmapImageFileType bitmapImageFileTypeFromExtension(const String& extension);
// The extension of a file type 0 to 5 (the same string object on every call); nil for other values.
String extensionFromBitmapImageFileType(BitmapImageFileType type);

// Draws the whole image stretched into `rect` of the current graphics context, flipped vertically:
// in a flipped space (y downwards) the image shows upright with its top row at rect.y; in an
// unflipped one it shows upside down. The flip is applied whatever the context is. The graphics
// state (transformation, clip, colours) is saved before and restored after, so the caller finds it
// as it was. `fraction` is the opacity, 0 to 1. Nothing is drawn without a current context.
void drawFlippedInRect(const Image& image, Rect rect, CompositingOperation operation, double fraction);
// The same at the image's own size, its top left corner (in a flipped space) at `point`.
void drawFlippedAtPoint(const Image& image, Point point, CompositingOperation operation, double fraction);

}  // namespace tq
