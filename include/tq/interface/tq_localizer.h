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
#include "tq/platform/ui/model/interface_object.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/view.h"
#include "tq/platform/ui/model/window.h"

namespace tq {

class TQLocalizer : public Object {
 public:
  // --- the class and its class methods -----------------------------------------------------------
  // The class methods live in a class object, so that a subclass can change them as a subclass of
  // the original class did: a call that reaches "the receiving class" goes through the class object
  // it was made on. localize(key) sends localize(key, table) to that class object, localize(key,
  // table) sends localize(key, table, bundle), the walks make their instance with makeInstance() and
  // the instance looks menu titles up with its class object's localize(key, table, bundle). The
  // static functions of TQLocalizer below call TQLocalizer's own class object.
  //
  // A subclass whose class lookup falls back to the bundle's "Localizable" table for keys the named
  // table lacks, wherever a class lookup happens (menu titles of its walks included):
  //
  //   class FallbackLocalizer : public tq::TQLocalizer {
  //    public:
  //     using TQLocalizer::TQLocalizer;
  //     struct Class : tq::TQLocalizer::Class {
  //       using tq::TQLocalizer::Class::localize;  // keep the other overloads visible
  //       tq::String localize(const tq::String& key, const tq::String& table,
  //                           const std::shared_ptr<tq::Bundle>& bundle) const override {
  //         const tq::String found = tq::TQLocalizer::Class::localize(key, table, bundle);
  //         return found == key ? tq::TQLocalizer::Class::localize(key, u"Localizable", bundle) : found;
  //       }
  //       std::shared_ptr<tq::TQLocalizer> makeInstance(tq::String table,
  //                                                     std::shared_ptr<tq::Bundle> bundle) const override {
  //         return std::make_shared<FallbackLocalizer>(std::move(table), std::move(bundle), *this);
  //       }
  //     };
  //     static const Class& classObject() { static const Class c; return c; }
  //   };
  //
  //   FallbackLocalizer::classObject().localize(u"Cancel");  // "default", then "Localizable", main bundle
  //   FallbackLocalizer::classObject().localizeObjects(objects, u"Main", bundle);
  //
  // Call a subclass's class methods through its classObject(): the static functions below, also
  // when named through the subclass, are TQLocalizer's.
  //
  // Class objects hold no state; one per class lives for the whole process. Threads: as the calls.
  class Class {
   public:
    virtual ~Class() = default;

    // Localizes each object by kind, in order: menus (recursiveLocalizer with the table as given: a
    // nil table means "default" for menu titles), windows (panels too), views; other objects
    // (controllers, the owner, cells) are skipped. One instance (makeInstance) runs the walk.
    virtual void localizeObjects(const std::vector<std::shared_ptr<Object>>& objects, const String& table,
                                 const std::shared_ptr<Bundle>& bundle) const;
    // A window's title and its content view's subtree.
    virtual void localizeWindow(Window* window, const String& table, const std::shared_ptr<Bundle>& bundle) const;
    // The subtree below a view (the view's own strings are left).
    virtual void localizeView(View* view, const String& table, const std::shared_ptr<Bundle>& bundle) const;
    // A menu and its submenus; a nil table means "LocalizableMenus" (for item placeholders too).
    virtual void localizeMenu(Menu* menu, const String& table, const std::shared_ptr<Bundle>& bundle) const;

    // The key's translation in the bundle's table (nil table: "default"); the key itself when the
    // table lacks it; nil when the bundle is nil. The key is used as given (no trimming).
    virtual String localize(const String& key, const String& table, const std::shared_ptr<Bundle>& bundle) const;
    // This class object's localize(key, table, bundle) with the main bundle.
    virtual String localize(const String& key, const String& table) const;
    // This class object's localize(key, table) with a nil table: the key in table "default" of the
    // main bundle, unless a subclass changed localize(key, table).
    virtual String localize(const String& key) const;

    // A new instance of the class for one walk, remembering this class object.
    virtual std::shared_ptr<TQLocalizer> makeInstance(String table, std::shared_ptr<Bundle> bundle) const;
  };
  // TQLocalizer's class object.
  static const Class& classObject();

  // --- walks (TQLocalizer's class object) --------------------------------------------------------
  static void localizeObjects(const std::vector<std::shared_ptr<Object>>& objects, const String& table,
                              const std::shared_ptr<Bundle>& bundle) {
    classObject().localizeObjects(objects, table, bundle);
  }
  static void localizeWindow(Window* window, const String& table, const std::shared_ptr<Bundle>& bundle) {
    classObject().localizeWindow(window, table, bundle);
  }
  static void localizeView(View* view, const String& table, const std::shared_ptr<Bundle>& bundle) {
    classObject().localizeView(view, table, bundle);
  }
  static void localizeMenu(Menu* menu, const String& table, const std::shared_ptr<Bundle>& bundle) {
    classObject().localizeMenu(menu, table, bundle);
  }

  // --- lookups (TQLocalizer's class object) -------------------------------------------------------
  static String localize(const String& key, const String& table, const std::shared_ptr<Bundle>& bundle) {
    return classObject().localize(key, table, bundle);
  }
  static String localize(const String& key, const String& table) { return classObject().localize(key, table); }
  static String localize(const String& key) { return classObject().localize(key); }

  // An instance for one walk with a strings table (nil: the bundle's default table) and a bundle;
  // both are kept as given. `ofClass` is the class object whose class lookups the walk uses (not
  // owned; class objects live for the process).
  TQLocalizer(String table, std::shared_ptr<Bundle> bundle, const Class& ofClass = classObject());

  const String& table() const { return _table; }
  const std::shared_ptr<Bundle>& bundle() const { return _bundle; }
  // The class object that made the instance.
  const Class& instanceClass() const { return *class_; }

  // --- the walk's steps (what the walks above run on an instance; a subclass may change them) -----
  // The instance lookup (see above).
  virtual String localizedString(const String& string) const;
  // A window's title (written only when the lookup gives non-nil), then localizeView of its
  // content view.
  virtual void localizeWindow(Window* window) const;
  // The subviews of view, depth first (see above).
  virtual void localizeView(View* view) const;
  // The placeholders of the object's binder for the binding: a display pattern binder's pattern,
  // then the string placeholders of each binding info for the markers multiple values, null, no
  // selection, not applicable. False (and nothing changed) when the object has no such binder.
  virtual bool localizePlaceholdersForObject(InterfaceObject* object, const String& binding) const;
  // A menu tree: the menu's title and each item's title through the class lookup of the instance's
  // class object with this table and bundle; each item's "title" binding placeholders through the
  // instance lookup; submenus in turn. Menu change messages are switched off during the pass and
  // back on when they were on.
  virtual void recursiveLocalizer(Menu* menu, const String& table, const std::shared_ptr<Bundle>& bundle) const;

 private:
  String _table;
  std::shared_ptr<Bundle> _bundle;
  const Class* class_;
};

}  // namespace tq
