// Named images: where the images an interface names ("NSAddTemplate", "ActionButton",
// "Document.icns") come from when it is drawn.
//
//   auto images = std::make_shared<tq::InterfaceImageSource>(u"/app/Resources/fr.lproj/Prefs.xib");
//   tq::WindowRenderOptions options;
//   options.images = images;
//
// InterfaceImageSource looks a name up as the platform does for an interface, first match wins:
//   1. images the document embeds, handed over with addImage() (readNibFile's Nib::embeddedImages);
//   2. the document's own folder when it is a folder (a compiled .nib keeps its images inside);
//   3. the folder holding the document (its localized .lproj folder);
//   4. that folder's parent when the document sits in an .lproj folder (the unlocalized resources);
//   5. the bundle's image resources (Bundle::pathForImageResource), when a bundle is given.
// In each folder the name is tried as it stands and then with the extensions tiff, tif, png, icns,
// jpg, jpeg and gif. Files are read through gdk-pixbuf (TIFF, PNG, ICNS, JPEG, GIF); one that is
// not a readable image counts as absent. Each name is read once and kept for the source's life.
//
// Names no source has are left to the drawing, which draws its own stand-ins for the platform's
// common template images and a placeholder for the rest.
//
// Threads: a source is used by one thread at a time (the drawing thread).
#pragma once

#include <memory>
#include <unordered_map>

#include "tq/platform/base/string.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/drawing/image.h"

namespace tq {

class NamedImageSource {
 public:
  virtual ~NamedImageSource();
  // The image of that name, or nil when the source has none.
  virtual ImageRef imageNamed(const String& name) const = 0;
};

class InterfaceImageSource : public NamedImageSource {
 public:
  // `documentPath`: the interface file or compiled nib folder (nil: no folders are searched);
  // `bundle`: the bundle whose resources are searched last (nil: none).
  explicit InterfaceImageSource(const String& documentPath, std::shared_ptr<Bundle> bundle = nullptr);

  // An image the document itself holds under that name; it comes before any file.
  void addImage(const String& name, ImageRef image);
  ImageRef imageNamed(const String& name) const override;
  // The file an image of that name would be read from, nil when none (embedded images have none).
  String pathForImageNamed(const String& name) const;

 private:
  std::vector<std::string> folders_;
  std::shared_ptr<Bundle> bundle_;
  std::unordered_map<String, ImageRef> embedded_;
  mutable std::unordered_map<String, ImageRef> read_;
};

}  // namespace tq
