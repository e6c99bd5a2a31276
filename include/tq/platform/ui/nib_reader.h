// The interface archive reader: builds the model from the XML interface documents (.xib) that Mac
// developers keep.
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
// element's base class), outlets and actions. Elements the model has no class for become the
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
// Failures: a document that is not well-formed XML, is not an interface document, or has no
// objects element is reported with the reason and no objects (nothing half-built is handed out).
// Inside a valid document, what the model does not understand is skipped and listed in warnings().
//
// Threads: the interface (main) thread; separate loads share nothing but the class registry.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tq/platform/base/data.h"
#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"

namespace tq {

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
  // The archive identifiers of the two ends ("-2" for the owner).
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
  // Things the reader skipped (unknown destinations, unreadable values), one line each.
  const std::vector<std::string>& warnings() const { return warnings_; }
  // The number of interface objects made (top-level objects and everything inside them).
  std::size_t objectCount() const { return objectCount_; }
  // The archive's format ("com.apple.InterfaceBuilder3.Cocoa.XIB").
  const String& documentType() const { return documentType_; }
  // The bytes of the image files the document itself holds, by image name (a TIFF or PNG each;
  // read them with Image::imageWithData). Images named but not held are found beside the document.
  const std::unordered_map<String, Data>& embeddedImages() const { return embeddedImages_; }

 private:
  friend class NibBuilder;
  std::vector<std::shared_ptr<Object>> topLevelObjects_;
  std::unordered_map<String, std::weak_ptr<Object>> objects_;
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

// Reads the XML interface document in memory.
NibReadResult readNibData(std::string_view document, const NibLoadOptions& options = {});
// Reads a .xib file (or a .nib file holding the same XML). A file that cannot be read, and a
// compiled (binary) nib, are reported as errors with the reason.
NibReadResult readNibFile(const std::string& path, const NibLoadOptions& options = {});

}  // namespace tq
