// InterfaceObject: the root of the interface model (windows, views, cells, menus, menu items,
// tab view items, table columns and the other objects an interface archive holds).
//
// Every interface object can carry bindings (Bindable), knows the identifier it had in its archive,
// and the custom class name the archive asked for. className() gives the platform's class name
// ("NSButton"); an object made as a fallback for a class the library does not model keeps the
// archived name there (e.g. a Control standing for an "NSStepper").
//
// Ownership: parents own their children through std::shared_ptr; a child's pointer back to its
// parent is a plain, non-owning pointer that the parent clears when it lets the child go.
// Threads: the interface (main) thread only.
#pragma once

#include <utility>
#include <vector>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"
#include "tq/platform/ui/model/bindings.h"

namespace tq {

class InterfaceObject : public Object, public Bindable {
 public:
  ~InterfaceObject() override;

  // The platform class name given by setClassName(), else the class's own.
  String className() const override;
  // Names the platform class this object stands for (nil: the class's own name again).
  void setClassName(String name) { className_ = std::move(name); }

  // The object's identifier in the archive it was read from ("F0z-JX-Cv5"); nil when made in code.
  const String& archiveIdentifier() const { return archiveIdentifier_; }
  void setArchiveIdentifier(String identifier) { archiveIdentifier_ = std::move(identifier); }
  // The custom class the archive named for this object ("HBTitleSelectionController"), also when no
  // factory for it was registered and the object is of the archived element's base class; nil when
  // the archive named none.
  const String& customClassName() const { return customClassName_; }
  void setCustomClassName(String name) { customClassName_ = std::move(name); }
  // The label Interface Builder showed ("File's Owner", "Titles Array Controller"); often nil.
  const String& userLabel() const { return userLabel_; }
  void setUserLabel(String label) { userLabel_ = std::move(label); }
  // The designer's note to translators (the document's "userComments": "#bc-ignore!" marks a
  // string that is not to be translated); nil when there is none.
  const String& userComments() const { return userComments_; }
  void setUserComments(String comments) { userComments_ = std::move(comments); }

  // The keys under which per-language tables translate this object's strings, where the archive
  // keeps them with the strings (a compiled interface's localizable strings: "170.title"), each
  // with the property it names (the part after the object's identifier: "title",
  // "headerCell.title", "ibShadowedLabels[0]"), in the order read. Empty for most objects.
  const std::vector<std::pair<String, String>>& localizableKeys() const { return localizableKeys_; }
  // The key recorded for the property, or nil.
  String localizableKeyFor(const String& property) const;
  // Records a key ("170.title"); its property is the part after the first dot. A later key for the
  // same property replaces the earlier.
  void addLocalizableKey(const String& key);

  // Sent by the archive reader to every object it made, after all connections are made.
  virtual void awakeFromNib() {}

 protected:
  // The name a subclass reports when no name was set: subclasses implement className() as
  // `return classNameOr(u"NSButton");`.
  String classNameOr(const char16_t* own) const { return className_.isNil() ? String(own) : className_; }

 private:
  String className_;
  String archiveIdentifier_;
  String customClassName_;
  String userLabel_;
  String userComments_;
  std::vector<std::pair<String, String>> localizableKeys_;
};

using InterfaceObjectRef = std::shared_ptr<InterfaceObject>;

}  // namespace tq
