// The interface archive reader: builds the model from an interface in any of the forms a Mac
// bundle or project holds:
//   - the XML interface document (.xib, <document type="com.apple.InterfaceBuilder3.Cocoa.XIB">);
//   - the older XML archive (<archive type="com.apple.InterfaceBuilder3.Cocoa.XIB">, keyed
//     <object> elements), as projects of that era kept their interfaces and their translated copies;
//   - the compiled keyed archive (a binary property list, "bplist00", whose $top names
//     IB.objectdata), as built bundles hold them in NAME.nib/keyedobjects.nib, and the same archive
//     saved as an XML property list (read by the same decoder, with the same bounds; control
//     characters written raw in its strings are kept, as the platform keeps them);
//   - the NIBArchive form of current build tools (a file starting "NIBArchive"), as NAME.nib or
//     NAME.nib/keyedobjects-NNNNNN.nib;
//   - storyboards (NAME.storyboard, NAME.storyboardc/), read scene by scene (see
//     storyboard_reader.h): readNibFile and readNibData give the storyboard's nib.
// All of them give the same model: the same classes and class names for the same controls, so code
// that walks or draws the model does not care which form was read.
//
//   tq::NibLoadOptions options;
//   options.owner = controller;                      // the File's Owner
//   tq::NibReadResult r = tq::readNibFile("MainMenu.xib", options);
//   if (!r) { report(r.error().reason); return; }
//   for (auto& object : r.nib().topLevelObjects()) ...
//
// What is read: windows and panels (a window with customClass "NSPanel" is a Panel), views and the
// controls of the model with their cells, menus and menu items, table columns, tab view items,
// bindings with their options and placeholders (strings, numbers and booleans; strings marked
// base64-UTF8 decoded), custom classes (through a ClassRegistry; unknown ones fall back to the
// element's base class), the designer's notes to translators (InterfaceObject::userComments()),
// outlets and actions; view, window, tab view and split view controllers;
// grid views (rows, columns, cells and their views), stack views (every gravity area), combo boxes
// with their items, token fields, rule and predicate editors with their row templates' views. Elements the model has no class for become the
// nearest base: a View (when they have a frame) or a GenericObject, with className() giving the
// platform name: a Control when they have a cell ("NSStepper"), an ActionCell for unknown cells
// ("NSStepperCell"), a View when they have a frame or subviews ("NSProgressIndicator"), else a
// GenericObject ("NSArrayController", "NSLayoutConstraint"; a customObject is an "NSObject").
//
// Top-level objects: the children of the document's "objects" element in document order, except
// the placeholders File's Owner (id -2), First Responder (-1) and Application (-3). The result's
// top-level objects own everything the archive built; nothing else in the result keeps objects
// alive, so dropping the top-level objects frees them all.
//
// Connections: an outlet sets a property of its source through NibConnectable::setOutlet (when the
// source, the owner included, implements it). An action sets the sender's target (not owned) and
// action where the sender has them (Control, ActionCell, MenuItem), and is reported to the target
// through NibConnectable::connectAction. A target of First Responder (-1) leaves the target nil.
// Bindings are recorded on the bound object (Bindable::bind) with the destination as observed
// object. Connections to the owner are made only when an owner is given. Finally every object made
// is sent awakeFromNib(), in document order, then the owner when it is an InterfaceObject.
//
// Compiled forms: top-level objects are those whose parent is the File's Owner, in the archive's
// order. A class the decoder does not know is read as the nearest class it knows along the chain
// of superclasses the archive declares (a keyed archive's $classes, the older XML archive's class
// descriptions), its own name kept as customClassName(): a plug-in's pop-up button is a
// PopUpButton with its menu. A localizable string (NSLocalizableString) gives its development
// text, and its table key ("170.title") is recorded on the object that holds it
// (InterfaceObject::localizableKeys()), a tool tip's on the object it is shown for; a binding
// connector without an identifier of its own takes the one its placeholders' keys name ("12" of
// "12.ibShadowedNullPlaceholder"). Archive identifiers are the designer's object IDs where the archive keeps them ("25"),
// else nil (as are the connection ends' identifiers). Connections come from the archive's
// connectors (outlets, actions, bindings with their options, tool tips). Windows are visible at
// launch when the archive lists them so (in the older XML archive, unless a window's properties
// say "visibleAtLaunch" 0). Toolbars (Toolbar, ToolbarItem), stack views (StackView) and text
// views with their text (TextView) are read from every form. Layout constraints are kept,
// not solved; one case is applied: when a subview of a compiled window's content view is pinned to
// its four edges by required equalities and its archived frame (the editor's last layout) is
// larger than the window's content rectangle, the window grows to hold it with the constraints'
// margins, its top left corner kept.
//
// Failures: a document that is not well-formed XML, is not an interface document, or has no
// objects element is reported with the reason and no objects (nothing half-built is handed out).
// Compiled and archived forms are read with every count, offset and reference checked against the
// bytes at hand: truncation, a reference to no object, a value of the wrong kind where a
// collection or string belongs, and an object that contains itself (a view among its own
// subviews) each give one error naming what is wrong. Inside a valid document, what the model does
// not understand is skipped and listed in warnings().
//
// Memory: reading a document of S bytes takes at most nibMemoryBound(S) = 16 MiB + 24 x S bytes
// (the parsed document and the model together, with its connections and warnings); documents
// larger than kMaxNibDocumentSize, and documents whose model would exceed the bound (a matrix
// declaring millions of cells it does not hold, objects sharing one collection thousands of times),
// are refused with an error saying so, before they take more. A 300 MB document is therefore
// refused, and a 100 MB one takes at most about 2.4 GB. Should memory run out all the same, the
// read fails with an error saying so; no exception leaves readNibData or readNibFile.
//
// Threads: the interface (main) thread; separate loads share nothing but the class registry.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tq/platform/base/data.h"
#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"

namespace tq {

// Documents above this size (256 MiB) are not read.
inline constexpr std::size_t kMaxNibDocumentSize = std::size_t{256} << 20;
inline constexpr std::size_t kNibMemoryBase = std::size_t{16} << 20;
inline constexpr std::size_t kNibMemoryFactor = 24;
// The most warnings a Nib lists (the rest are counted).
inline constexpr std::size_t kMaxNibWarnings = 1000;
// The most memory reading a document of `documentSize` bytes may take.
std::size_t nibMemoryBound(std::size_t documentSize);

class ClassRegistry;

struct NibLoadOptions {
  // The File's Owner (id -2); nullptr drops the connections that involve it.
  std::shared_ptr<Object> owner;
  // The object standing for the Application placeholder (id -3), or nullptr.
  std::shared_ptr<Object> application;
  // The registry for custom classes; nullptr means ClassRegistry::shared().
  const ClassRegistry* registry = nullptr;
};

// A connection of the archive, as made.
struct NibConnection {
  enum class Kind { Outlet, Action, Binding };
  Kind kind = Kind::Outlet;
  // Property name (outlets), selector (actions) or binding name (bindings).
  String label;
  // The archive identifiers of the two ends ("-2" for the owner; nil for an object the archive
  // gives no identifier).
  String sourceIdentifier;
  String destinationIdentifier;
  // Bindings: the key path observed.
  String keyPath;
  // The two ends (not owned).
  std::weak_ptr<Object> source;
  std::weak_ptr<Object> destination;
  // The connection's own archive identifier (strings tables name a binding's display pattern and
  // placeholders by it); nil when the archive gives none.
  String identifier;
};

// The objects and connections of one successfully read archive.
class Nib {
 public:
  // Every top-level object in document order (owned).
  const std::vector<std::shared_ptr<Object>>& topLevelObjects() const { return topLevelObjects_; }
  // The object with the archive identifier ("F0z-JX-Cv5"; "-2" gives the owner), or nullptr when
  // there is none or it has gone.
  std::shared_ptr<Object> objectWithIdentifier(const String& identifier) const;
  // Every connection made, in document order.
  const std::vector<NibConnection>& connections() const { return connections_; }
  // Things the reader skipped (unknown destinations, unreadable values), one line each, in the
  // order met. At most kMaxNibWarnings are listed; when there were more, one last line says how many
  // more were met ("and 989000 more warnings"). Class names in them are cut to 100 characters.
  const std::vector<std::string>& warnings() const { return warnings_; }
  // The number of interface objects made (top-level objects and everything inside them).
  std::size_t objectCount() const { return objectCount_; }
  // The archive's format: "com.apple.InterfaceBuilder3.Cocoa.XIB" for both XML forms,
  // "NSKeyedArchiver" for the compiled keyed archive (binary or XML), "NIBArchive",
  // "com.apple.InterfaceBuilder3.Cocoa.Storyboard.XIB" for a storyboard document (a compiled
  // storyboard gives its nibs' format).
  const String& documentType() const { return documentType_; }
  // The bytes of the image files the document itself holds, by image name (a TIFF or PNG each;
  // read them with Image::imageWithData). Images named but not held are found beside the document.
  const std::unordered_map<String, Data>& embeddedImages() const { return embeddedImages_; }
  // The nib folder the document was read from (NAME.nib/ holding keyedobjects.nib and the images
  // the interface names: InterfaceImageSource finds them), nil when the document was a file of its own.
  const String& resourceFolder() const { return resourceFolder_; }
  void setResourceFolder(String folder) { resourceFolder_ = std::move(folder); }

 private:
  friend class NibBuilder;
  friend class KeyedNibDecoder;
  friend class StoryboardBuilder;
  using IdentifiedObject = std::pair<String, std::weak_ptr<Object>>;
  // Takes the identified objects in the order they were made, with the placeholders; where an
  // identifier is given twice the later object holds it. Looked up through a hash table.
  void indexObjects(std::vector<IdentifiedObject> objects);
  // The same, each identifier's identifierHash given in `hashes` (worked out while the reader still
  // had the identifier at hand).
  void indexObjects(std::vector<IdentifiedObject> objects, std::vector<uint64_t> hashes);
  // Lists a warning while fewer than kMaxNibWarnings are listed, else counts it; returns the bytes
  // the list now keeps for it (0 when only counted).
  std::size_t addWarning(std::string message);
  // Adds the line that counts the warnings not listed, if any.
  void closeWarnings();
  std::size_t unlistedWarnings_ = 0;
  String resourceFolder_;
  std::vector<std::shared_ptr<Object>> topLevelObjects_;
  std::vector<IdentifiedObject> objects_;
  std::vector<uint32_t> slots_;  // positions in objects_ plus one by identifier hash; 0 is empty
  std::vector<NibConnection> connections_;
  std::vector<std::string> warnings_;
  std::size_t objectCount_ = 0;
  String documentType_;
  std::unordered_map<String, Data> embeddedImages_;
};

struct NibReadError {
  // What went wrong, e.g. "not well-formed XML at offset 120: Error parsing end tag".
  std::string reason;
  // The byte offset of the fault in the document, or -1 when it concerns the whole document.
  long long offset = -1;
};

class NibReadResult {
 public:
  explicit NibReadResult(Nib nib) : nib_(std::make_shared<Nib>(std::move(nib))) {}
  explicit NibReadResult(NibReadError error) : error_(std::move(error)) {}

  bool ok() const { return nib_ != nullptr; }
  explicit operator bool() const { return ok(); }
  // The nib; broken contract (NSInternalInconsistencyException) when the read failed.
  const Nib& nib() const;
  Nib& nib();
  // The error; empty reason when the read succeeded.
  const NibReadError& error() const { return error_; }

 private:
  std::shared_ptr<Nib> nib_;
  NibReadError error_;
};

// Reads an interface document in memory, of any of the forms above (told apart by their first
// bytes and root element).
NibReadResult readNibData(std::string_view document, const NibLoadOptions& options = {});
// Reads an interface file, a nib folder through nibDocumentPath(), or a compiled storyboard folder
// (NAME.storyboardc). Errors start with the path of the file read:
// "PrefsWindow.nib/keyedobjects.nib: damaged compiled interface: ...".
NibReadResult readNibFile(const std::string& path, const NibLoadOptions& options = {});
// The file that holds the interface of `path`: path itself when it is not a folder; for a nib
// folder the newest keyedobjects-NNNNNN.nib (highest number: the version for the newest system),
// else keyedobjects.nib, else designable.nib (the XML source, read only when nothing compiled is
// there).
std::string nibDocumentPath(const std::string& path);

}  // namespace tq
