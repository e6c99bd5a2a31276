// Internal: what the XML document reader hands the storyboard reader for a document with scenes:
// each scene's objects as decoded, the segues as the document lists them, and the items of tab and
// split view controllers waiting for the controllers their relationships name.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"
#include "tq/platform/ui/archive/nib_reader.h"

namespace pugi {
class xml_document;
}

namespace tq {

class InterfaceObject;
class ViewController;

namespace archive {

// What the parsed XML takes beside the document's bytes, per byte, for the memory bound.
inline constexpr std::size_t kParsedXMLFactor = 6;

struct DecodedScene {
  String sceneIdentifier;       // "zAg-r8-WQ5"
  String storyboardIdentifier;  // of the scene's controller, nil when none
  // The scene's objects in document order, placeholders left out; the controller among them.
  std::vector<std::shared_ptr<Object>> objects;
  std::shared_ptr<InterfaceObject> controller;  // nullptr for a scene without one
};

struct DecodedSegue {
  String archiveIdentifier;  // the segue element's id
  String identifier;         // the name code performs it by, nil when none
  String kind;               // "relationship", "show", "modal", "sheet", "popover", "embed", "custom"
  String relationship;       // for relationships: "window.shadowedContentViewController", "tabItems"...
  String sourceIdentifier, destinationIdentifier;
  std::shared_ptr<Object> source, destination;  // held while the storyboard is assembled
  std::ptrdiff_t position = 0;                   // the element's offset in the document
};

// Tab view items and split view items of one controller, in document order.
struct PendingItems {
  std::shared_ptr<ViewController> controller;
  std::vector<std::shared_ptr<InterfaceObject>> items;
};

struct DecodedScenes {
  String initialController;  // the document's initialViewController, nil when none
  std::vector<DecodedScene> scenes;
  std::vector<DecodedSegue> segues;
  std::vector<PendingItems> pendingItems;
};

// Reads a parsed document with <scenes>: every scene's objects decoded as the document reader
// decodes a .xib's (connections made, awakeFromNib sent), the rest into `scenes`. The result's
// top-level objects are every scene's objects in order. `budget` as for the document reader.
NibReadResult readDocumentScenes(const pugi::xml_document& doc, const NibLoadOptions& options, std::size_t budget,
                                 DecodedScenes& scenes);

// Joins the scenes of a storyboard document read by the document reader (relationships, embedded
// controllers, the top-level objects); defined by the storyboard reader.
NibReadResult assembleStoryboardDocument(const pugi::xml_document& doc, const NibLoadOptions& options,
                                         std::size_t budget);

}  // namespace archive
}  // namespace tq
