// Toolbar and ToolbarItem: the toolbar of a window as an interface archive describes it.
//
// A toolbar owns the items it allows (allowedItems(), in archive order); defaultItems() lists the
// ones shown at first, by identifier order, and may repeat the standard items (spaces, separators)
// that are not among the allowed ones. An item carries what a user sees of it: its label, the
// palette label of the customisation sheet, its tool tip, an image by name, or a view of its own
// (a search field, a pop-up button with its menu); menuFormRepresentation() is the menu item shown
// when the toolbar shows text only or overflows.
//
// Ownership: the toolbar owns its items; an item owns its view and its menu item. A window owns
// its toolbar (Window::toolbar(), which is a Toolbar when the archive had one).
// Thread: the interface (main) thread.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/base/string.h"
#include "tq/platform/ui/model/capabilities.h"
#include "tq/platform/ui/model/geometry.h"
#include "tq/platform/ui/model/interface_object.h"

namespace tq {

class MenuItem;
class View;

class ToolbarItem : public InterfaceObject {
 public:
  String className() const override { return classNameOr(u"NSToolbarItem"); }

  // The identifier ("NSToolbarFlexibleSpaceItem" for the standard flexible space).
  const String& itemIdentifier() const { return itemIdentifier_; }
  void setItemIdentifier(String identifier) { itemIdentifier_ = std::move(identifier); }
  const String& label() const { return label_; }
  void setLabel(String label) { label_ = std::move(label); }
  const String& paletteLabel() const { return paletteLabel_; }
  void setPaletteLabel(String label) { paletteLabel_ = std::move(label); }
  const String& toolTip() const { return toolTip_; }
  void setToolTip(String tip) { toolTip_ = std::move(tip); }
  // The image by resource name, nil for none.
  const String& imageName() const { return imageName_; }
  void setImageName(String name) { imageName_ = std::move(name); }
  // A view shown instead of an image (owned), or nullptr.
  const std::shared_ptr<View>& view() const { return view_; }
  void setView(std::shared_ptr<View> view) { view_ = std::move(view); }
  // The menu item standing for the item in text-only mode (owned), or nullptr.
  const std::shared_ptr<MenuItem>& menuFormRepresentation() const { return menuForm_; }
  void setMenuFormRepresentation(std::shared_ptr<MenuItem> item) { menuForm_ = std::move(item); }
  long tag() const { return tag_; }
  void setTag(long tag) { tag_ = tag; }
  bool isEnabled() const { return enabled_; }
  void setEnabled(bool enabled) { enabled_ = enabled; }
  const Size& minSize() const { return minSize_; }
  void setMinSize(const Size& size) { minSize_ = size; }
  const Size& maxSize() const { return maxSize_; }
  void setMaxSize(const Size& size) { maxSize_ = size; }
  // The action sent when the item is clicked, and its target (not owned; nil: First Responder).
  const std::weak_ptr<Object>& target() const { return target_; }
  void setTarget(std::weak_ptr<Object> target) { target_ = std::move(target); }
  const String& action() const { return action_; }
  void setAction(String action) { action_ = std::move(action); }

 private:
  String itemIdentifier_, label_, paletteLabel_, toolTip_, imageName_, action_;
  std::shared_ptr<View> view_;
  std::shared_ptr<MenuItem> menuForm_;
  std::weak_ptr<Object> target_;
  long tag_ = 0;
  bool enabled_ = true;
  Size minSize_{}, maxSize_{};
};

class Toolbar : public InterfaceObject {
 public:
  enum class DisplayMode { Default = 0, IconAndLabel = 1, IconOnly = 2, LabelOnly = 3 };
  enum class SizeMode { Default = 0, Regular = 1, Small = 2 };

  String className() const override { return classNameOr(u"NSToolbar"); }

  // The identifier under which the toolbar's configuration is saved.
  const String& identifier() const { return identifier_; }
  void setIdentifier(String identifier) { identifier_ = std::move(identifier); }
  DisplayMode displayMode() const { return displayMode_; }
  void setDisplayMode(DisplayMode mode) { displayMode_ = mode; }
  SizeMode sizeMode() const { return sizeMode_; }
  void setSizeMode(SizeMode mode) { sizeMode_ = mode; }
  bool allowsUserCustomization() const { return allowsUserCustomization_; }
  void setAllowsUserCustomization(bool allows) { allowsUserCustomization_ = allows; }
  bool autosavesConfiguration() const { return autosavesConfiguration_; }
  void setAutosavesConfiguration(bool autosaves) { autosavesConfiguration_ = autosaves; }
  bool isVisible() const { return visible_; }
  void setVisible(bool visible) { visible_ = visible; }

  // Every item the toolbar allows, in archive order (owned).
  const std::vector<std::shared_ptr<ToolbarItem>>& allowedItems() const { return allowed_; }
  // Adds an allowed item; an item already there is not added twice.
  void addAllowedItem(std::shared_ptr<ToolbarItem> item);
  // The items shown at first, in order.
  const std::vector<std::shared_ptr<ToolbarItem>>& defaultItems() const { return defaults_; }
  void addDefaultItem(std::shared_ptr<ToolbarItem> item);
  // The allowed item with the identifier, or nullptr.
  std::shared_ptr<ToolbarItem> itemWithIdentifier(const String& identifier) const;

 private:
  String identifier_;
  DisplayMode displayMode_ = DisplayMode::Default;
  SizeMode sizeMode_ = SizeMode::Default;
  bool allowsUserCustomization_ = false;
  bool autosavesConfiguration_ = false;
  bool visible_ = true;
  std::vector<std::shared_ptr<ToolbarItem>> allowed_;
  std::vector<std::shared_ptr<ToolbarItem>> defaults_;
};

}  // namespace tq
