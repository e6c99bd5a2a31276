// Menus and menu items: ownership of items and submenus and the back pointers.
#include "tq/platform/ui/model/menu.h"

#include <algorithm>

namespace tq {

MenuItem::~MenuItem() {
  if (submenu_ && submenu_->parentItem_ == this) submenu_->parentItem_ = nullptr;
}

std::shared_ptr<MenuItem> MenuItem::separatorItem() {
  auto item = std::make_shared<MenuItem>();
  item->separator_ = true;
  item->enabled_ = false;
  return item;
}

void MenuItem::setSubmenu(std::shared_ptr<Menu> submenu) {
  if (submenu_ && submenu_->parentItem_ == this) submenu_->parentItem_ = nullptr;
  submenu_ = std::move(submenu);
  if (submenu_) {
    // A menu is the submenu of one item at a time.
    if (submenu_->parentItem_ && submenu_->parentItem_ != this) submenu_->parentItem_->submenu_.reset();
    submenu_->parentItem_ = this;
  }
}

std::shared_ptr<MenuItem> MenuItem::copy() const {
  auto item = std::make_shared<MenuItem>(title_);
  item->setClassName(className() == String(u"NSMenuItem") ? String() : className());
  item->setArchiveIdentifier(archiveIdentifier());
  item->separator_ = separator_;
  item->keyEquivalent_ = keyEquivalent_;
  item->modifierMask_ = modifierMask_;
  item->tag_ = tag_;
  item->state_ = state_;
  item->hidden_ = hidden_;
  item->enabled_ = enabled_;
  item->imageName_ = imageName_;
  item->toolTip_ = toolTip_;
  item->target_ = target_;
  item->action_ = action_;
  if (submenu_) item->setSubmenu(submenu_->copy());
  return item;
}

std::shared_ptr<Menu> Menu::copy() const {
  auto menu = std::make_shared<Menu>(title_);
  menu->setClassName(className() == String(u"NSMenu") ? String() : className());
  menu->setArchiveIdentifier(archiveIdentifier());
  menu->changedMessagesEnabled_ = changedMessagesEnabled_;
  menu->autoenables_ = autoenables_;
  menu->systemMenu_ = systemMenu_;
  for (const auto& item : items_) menu->addItem(item->copy());
  return menu;
}

Menu::~Menu() {
  for (const auto& item : items_) {
    if (item->menu_ == this) item->menu_ = nullptr;
  }
}

std::shared_ptr<MenuItem> Menu::itemAtIndex(long index) const {
  if (index < 0 || index >= numberOfItems()) return nullptr;
  return items_[static_cast<std::size_t>(index)];
}

void Menu::addItem(std::shared_ptr<MenuItem> item) { insertItem(std::move(item), numberOfItems()); }

void Menu::insertItem(std::shared_ptr<MenuItem> item, long index) {
  if (!item) return;
  if (Menu* former = item->menu_) {
    auto it = std::find(former->items_.begin(), former->items_.end(), item);
    if (it != former->items_.end()) {
      if (former == this && it - items_.begin() < index) --index;
      former->items_.erase(it);
    }
  }
  index = std::clamp(index, 0L, numberOfItems());
  item->menu_ = this;
  items_.insert(items_.begin() + index, std::move(item));
}

void Menu::removeItemAtIndex(long index) {
  if (index < 0 || index >= numberOfItems()) return;
  items_[static_cast<std::size_t>(index)]->menu_ = nullptr;
  items_.erase(items_.begin() + index);
}

std::shared_ptr<MenuItem> Menu::addItemWithTitle(String title) {
  auto item = std::make_shared<MenuItem>(std::move(title));
  addItem(item);
  return item;
}

}  // namespace tq
