// TQLocalizer: translates a loaded interface in place from a bundle's strings table.
//
//   auto objects = tq::loadNibWithName(u"Preferences", controller);
//   tq::TQLocalizer::localizeObjects(objects, u"Preferences", tq::Bundle::bundleForClass<Controller>());
//
// Every user-visible string of windows, view trees, controls and menus is looked up with the string
// as it stands in the interface as the key, and the result is written back. Two lookups are used:
//   - the instance lookup localizedString(): empty (or nil) strings come back unchanged without a
//     lookup; others are trimmed of white space and new lines at both ends and looked up in the
//     instance's table (nil: the bundle's default table "Localizable"). Untranslated strings come
//     back trimmed.
//   - the class lookup localize(key, table, bundle): no trimming, empty strings looked up too, a nil
//     table meaning "default".
// Menu titles and menu item titles go through the class lookup; every other string (windows, views,
// binding placeholders, also those of menu items) through the instance lookup.
//
// The walk visits, in order: a window's title, then its content view's subtree. For each subview
// (never the view passed itself), depth first in subviews order: the binding placeholders of
// controls ("value"; without one "content", "contentValues", "displayPatternValue1" and, only when
// that exists, "displayPatternValue2"), then its own strings by the first kind it is (button,
// box, matrix, tab view, text field, table view, segmented control), then its subviews (not for a tab
// view, whose item views are walked through its items, the hidden ones included). Only check boxes are
// resized to their translated title (sizeToFit).
//
// A nil bundle makes every non-empty lookup nil, and that nil is written back (window titles
// excepted). A second pass looks up translated strings as keys: localize an interface once, right
// after loading it. Nothing is reported and nothing is thrown.
//
// Threads: walks run on the interface (main) thread; lookups on any thread.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/interface_object.h"
#include "tq/platform/ui/menu.h"
#include "tq/platform/ui/view.h"
#include "tq/platform/ui/window.h"

namespace tq {

class TQLocalizer : public Object {
 public:
  // --- walks ------------------------------------------------------------------------------------
  // Localizes each object by kind, in order: menus (recursiveLocalizer with the table as given: a nil
  // table means "default" for menu titles), windows (panels too), views; other objects (controllers,
  // the owner, cells) are skipped.
  static void localizeObjects(const std::vector<std::shared_ptr<Object>>& objects, const String& table,
                              const std::shared_ptr<Bundle>& bundle);
  // A window's title and its content view's subtree.
  static void localizeWindow(Window* window, const String& table, const std::shared_ptr<Bundle>& bundle);
  // The subtree below a view (the view's own strings are left).
  static void localizeView(View* view, const String& table, const std::shared_ptr<Bundle>& bundle);
  // A menu and its submenus; a nil table means "LocalizableMenus" (for item placeholders too).
  static void localizeMenu(Menu* menu, const String& table, const std::shared_ptr<Bundle>& bundle);

  // --- lookups ----------------------------------------------------------------------------------
  // The key's translation in the bundle's table (nil table: "default"); the key itself when the table
  // lacks it; nil when the bundle is nil. The key is used as given (no trimming).
  static String localize(const String& key, const String& table, const std::shared_ptr<Bundle>& bundle);
  // The same in the main bundle.
  static String localize(const String& key, const String& table);
  // The same in table "default" of the main bundle.
  static String localize(const String& key);

  // An instance for one walk with a strings table (nil: the bundle's default table) and a bundle;
  // both are kept as given.
  TQLocalizer(String table, std::shared_ptr<Bundle> bundle);

  const String& table() const { return _table; }
  const std::shared_ptr<Bundle>& bundle() const { return _bundle; }

  // --- the walk's steps (what the walks above run on an instance) --------------------------------
  // The instance lookup (see above).
  String localizedString(const String& string) const;
  // A window's title (written only when the lookup gives non-nil), then localizeView of its
  // content view.
  void localizeWindow(Window* window) const;
  // The subviews of view, depth first (see above).
  void localizeView(View* view) const;
  // The placeholders of the object's binder for the binding: a display pattern binder's pattern,
  // then the string placeholders of each binding info for the markers multiple values, null, no
  // selection, not applicable. False (and nothing changed) when the object has no such binder.
  bool localizePlaceholdersForObject(InterfaceObject* object, const String& binding) const;
  // A menu tree: the menu's title and each item's title through the class lookup with this table
  // and bundle; each item's "title" binding placeholders through the instance lookup; submenus in
  // turn. Menu change messages are switched off during the pass and back on when they were on.
  void recursiveLocalizer(Menu* menu, const String& table, const std::shared_ptr<Bundle>& bundle) const;

 private:
  String _table;
  std::shared_ptr<Bundle> _bundle;
};

}  // namespace tq
