// Menu and MenuItem: menus of pop-up buttons, menu bars, context menus and table cells.
//
// A menu owns its items; an item owns its submenu. An item's menu() and a submenu's supermenu() are
// non-owning pointers, cleared when the owner lets go.
// Threads: the interface (main) thread.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/ui/model/interface_object.h"

namespace tq {

class Menu;

class MenuItem : public InterfaceObject {
 public:
  MenuItem() = default;
  explicit MenuItem(String title) : title_(std::move(title)) {}
  ~MenuItem() override;
  String className() const override { return classNameOr(u"NSMenuItem"); }

  // A copy of the item, with a copy of its submenu; in no menu.
  std::shared_ptr<MenuItem> copy() const;

  // A separator: no title (""), isSeparatorItem() true.
  static std::shared_ptr<MenuItem> separatorItem();

  // The title; "" for a separator, nil only when set so.
  const String& title() const { return title_; }
  void setTitle(String title) { title_ = std::move(title); }
  bool isSeparatorItem() const { return separator_; }
  void setSeparatorItem(bool separator) { separator_ = separator; }

  // The submenu (owned), or nullptr. Setting one makes this item its parent item.
  const std::shared_ptr<Menu>& submenu() const { return submenu_; }
  void setSubmenu(std::shared_ptr<Menu> submenu);
  bool hasSubmenu() const { return submenu_ != nullptr; }
  // The menu that holds this item (not owned), or nullptr.
  Menu* menu() const { return menu_; }

  const String& keyEquivalent() const { return keyEquivalent_; }
  void setKeyEquivalent(String key) { keyEquivalent_ = std::move(key); }
  // Modifier flags of the key equivalent (the platform's masks: shift 1<<17, control 1<<18,
  // option 1<<19, command 1<<20).
  unsigned long keyEquivalentModifierMask() const { return modifierMask_; }
  void setKeyEquivalentModifierMask(unsigned long mask) { modifierMask_ = mask; }

  long tag() const { return tag_; }
  void setTag(long tag) { tag_ = tag; }
  // 0 off, 1 on, -1 mixed.
  int state() const { return state_; }
  void setState(int state) { state_ = state; }
  bool isHidden() const { return hidden_; }
  void setHidden(bool hidden) { hidden_ = hidden; }
  bool isEnabled() const { return enabled_; }
  void setEnabled(bool enabled) { enabled_ = enabled; }
  // The name of the item's image (resolved by the drawing side); nil for none.
  const String& imageName() const { return imageName_; }
  void setImageName(String name) { imageName_ = std::move(name); }
  const String& toolTip() const { return toolTip_; }
  void setToolTip(String tip) { toolTip_ = std::move(tip); }

  // Target (not owned; nil sends along the responder chain) and action selector ("open:").
  std::shared_ptr<Object> target() const { return target_.lock(); }
  void setTarget(std::weak_ptr<Object> target) { target_ = std::move(target); }
  const String& action() const { return action_; }
  void setAction(String action) { action_ = std::move(action); }

 private:
  friend class Menu;
  String title_ = String::empty();
  bool separator_ = false;
  std::shared_ptr<Menu> submenu_;
  Menu* menu_ = nullptr;
  String keyEquivalent_ = String::empty();
  unsigned long modifierMask_ = 0;
  long tag_ = 0;
  int state_ = 0;
  bool hidden_ = false;
  bool enabled_ = true;
  String imageName_;
  String toolTip_;
  std::weak_ptr<Object> target_;
  String action_;
};

class Menu : public InterfaceObject {
 public:
  Menu() = default;
  explicit Menu(String title) : title_(std::move(title)) {}
  ~Menu() override;
  String className() const override { return classNameOr(u"NSMenu"); }

  const String& title() const { return title_; }
  void setTitle(String title) { title_ = std::move(title); }

  // The items in order (owned).
  const std::vector<std::shared_ptr<MenuItem>>& itemArray() const { return items_; }
  long numberOfItems() const { return static_cast<long>(items_.size()); }
  // The item at index, or nullptr outside the menu.
  std::shared_ptr<MenuItem> itemAtIndex(long index) const;
  // Adds (or inserts) an item, taking it from any menu that held it before.
  void addItem(std::shared_ptr<MenuItem> item);
  void insertItem(std::shared_ptr<MenuItem> item, long index);
  void removeItemAtIndex(long index);
  // Convenience: adds a new item with the title and returns it.
  std::shared_ptr<MenuItem> addItemWithTitle(String title);

  // A deep copy: the title and flags, and a copy of every item (with copies of their submenus).
  // Targets are shared, bindings are not copied. The copy is nobody's submenu.
  std::shared_ptr<Menu> copy() const;

  // The item whose submenu this menu is (not owned), or nullptr.
  MenuItem* parentItem() const { return parentItem_; }
  // The menu that holds the item whose submenu this is, or nullptr.
  Menu* supermenu() const { return parentItem_ ? parentItem_->menu() : nullptr; }

  // Whether the menu reports changes of its items (on by default). Turned off while a pass changes
  // many items at once.
  bool menuChangedMessagesEnabled() const { return changedMessagesEnabled_; }
  void setMenuChangedMessagesEnabled(bool enabled) { changedMessagesEnabled_ = enabled; }
  bool autoenablesItems() const { return autoenables_; }
  void setAutoenablesItems(bool autoenables) { autoenables_ = autoenables; }
  // The archived special role ("main", "apple", "services", "window", "font", "recentDocuments"...),
  // nil for an ordinary menu.
  const String& systemMenu() const { return systemMenu_; }
  void setSystemMenu(String role) { systemMenu_ = std::move(role); }

 private:
  friend class MenuItem;
  String title_ = String::empty();
  std::vector<std::shared_ptr<MenuItem>> items_;
  MenuItem* parentItem_ = nullptr;
  bool changedMessagesEnabled_ = true;
  bool autoenables_ = true;
  String systemMenu_;
};

}  // namespace tq
