// The storyboard reader: builds the interface model from a storyboard, the form a current Mac
// project keeps its interface in, scene by scene:
//   - the XML document (NAME.storyboard, <document type="com.apple.InterfaceBuilder3.Cocoa.
//     Storyboard.XIB"> with <scenes>), as projects hold it;
//   - the compiled folder (NAME.storyboardc/), as built bundles hold it: an Info.plist naming the
//     controllers' identifiers, their nibs and the initial controller, and one compiled nib per
//     controller and per view controller's view (any form readNibFile reads).
//
//   tq::StoryboardReadResult r = tq::readStoryboardFile("Base.lproj/Main.storyboard");
//   if (!r) { report(r.error().reason); return; }
//   for (const auto& scene : r.storyboard().scenes()) ...
//   auto first = r.storyboard().initialController();
//
// A scene holds a controller (a WindowController with its window, a ViewController with its view,
// a TabViewController or SplitViewController with its items) and the objects beside it; the
// Application scene holds the main menu. Objects are read as the .xib reader reads them (see
// nib_reader.h), with the same classes, connections, warnings and bounds. What the document says
// between scenes is made as the platform makes it when a controller is loaded:
//   - a window controller's content relationship makes the destination controller its content view
//     controller (the window takes the controller's view, and its size);
//   - a tab view controller's "tabItems" relationships give its tab view items their controllers,
//     in order, and a split view controller's "splitItems" its panes;
//   - an "embed" segue from a container view puts the destination controller's view in the
//     container, filling it, and makes that controller a child of the container's controller;
//   - every other segue (show, modal, sheet, popover, custom) is listed in segues(), not made.
// Each controller keeps the other objects of its scene (sceneObjects()), so a controller alone owns
// everything its scene made; the controllers a relationship names belong to the controller that
// names them.
//
// Compiled storyboards: the Info.plist maps identifiers to nibs under keys ending in
// "IdentifiersToNibNames" and names the initial controller (NSStoryboardMainEntry, or a key ending
// in "DesignatedEntryPointIdentifier"); without such a map every nib of the folder is a scene. A
// view controller without a view in its own nib takes the top-level view of the nib its nibName()
// names, else of the folder's "IDENTIFIER-view-*.nib", read with the controller as File's Owner.
// Segue templates are matched to controllers by the identifiers they name.
//
// Failures: as for the other forms, one error naming the file and the fault ("Main.storyboard: not
// well-formed XML at offset 120: ...", "Main.storyboardc/Info.plist: ..."), and nothing half-built.
// Memory: as nibMemoryBound() of the document's size (for a compiled folder, of each nib read).
// Threads: the interface (main) thread.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/model/interface_object.h"
#include "tq/platform/ui/model/view.h"
#include "tq/platform/ui/model/window.h"

namespace tq {

struct StoryboardScene {
  // The scene's identifier in the document ("zAg-r8-WQ5"); in a compiled storyboard, the
  // controller's identifier.
  String identifier;
  // The identifier code loads the controller by ("MainPrefsVC"); nil when the scene has none.
  String storyboardIdentifier;
  // The scene's controller (a WindowController, ViewController or subclass), or nullptr.
  std::shared_ptr<InterfaceObject> controller;
  // Every object of the scene in document order (the controller among them), placeholders left out.
  std::vector<std::shared_ptr<Object>> objects;
  // What the scene shows: the window controller's window, else the view controller's view; each
  // nullptr when there is none.
  std::shared_ptr<Window> window() const;
  std::shared_ptr<View> view() const;
};

struct StoryboardSegue {
  String archiveIdentifier;  // the segue's own id in the document
  String identifier;         // the name code performs it by, nil when none
  String kind;               // "relationship", "show", "modal", "sheet", "popover", "embed", "custom"
  String relationship;       // relationships: "window.shadowedContentViewController", "tabItems"...
  String sourceIdentifier, destinationIdentifier;  // archive identifiers of the ends
  std::weak_ptr<Object> source, destination;        // not owned
};

class Storyboard {
 public:
  // Every object read, the connections and the warnings. Its top-level objects are, scene by scene,
  // the scene's objects, each controller followed by its window or view unless that sits inside
  // another scene's window, tab view, split view or container: so walking the windows and views
  // of topLevelObjects() (as localizers and pictures do) reaches every control once.
  const Nib& nib() const { return read_.nib(); }
  // The same read as a nib result (what readNibFile gives for a storyboard).
  const NibReadResult& nibResult() const { return read_; }
  const std::vector<StoryboardScene>& scenes() const { return scenes_; }
  const std::vector<StoryboardSegue>& segues() const { return segues_; }
  // The initial controller (the document's initialViewController), or nullptr.
  std::shared_ptr<InterfaceObject> initialController() const { return initial_; }
  // The controller of the scene with that storyboard identifier, or nullptr.
  std::shared_ptr<InterfaceObject> controllerWithIdentifier(const String& identifier) const;

 private:
  friend class StoryboardBuilder;
  NibReadResult read_{NibReadError{}};
  std::vector<StoryboardScene> scenes_;
  std::vector<StoryboardSegue> segues_;
  std::shared_ptr<InterfaceObject> initial_;
};

class StoryboardReadResult {
 public:
  explicit StoryboardReadResult(Storyboard storyboard) : storyboard_(std::make_shared<Storyboard>(std::move(storyboard))) {}
  explicit StoryboardReadResult(NibReadError error) : error_(std::move(error)) {}
  bool ok() const { return storyboard_ != nullptr; }
  explicit operator bool() const { return ok(); }
  // The storyboard; broken contract (NSInternalInconsistencyException) when the read failed.
  const Storyboard& storyboard() const;
  const NibReadError& error() const { return error_; }

 private:
  std::shared_ptr<Storyboard> storyboard_;
  NibReadError error_;
};

// Reads a storyboard document in memory (the XML form).
StoryboardReadResult readStoryboardData(std::string_view document, const NibLoadOptions& options = {});
// Reads NAME.storyboard or a NAME.storyboardc folder. Errors start with the path of the file read.
StoryboardReadResult readStoryboardFile(const std::string& path, const NibLoadOptions& options = {});
// Whether the path names a storyboard by its extension (.storyboard, .storyboardc).
bool isStoryboardPath(const std::string& path);

}  // namespace tq
