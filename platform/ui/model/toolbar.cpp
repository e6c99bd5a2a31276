// Toolbars.
#include "tq/platform/ui/model/toolbar.h"

#include <algorithm>

namespace tq {

void Toolbar::addAllowedItem(std::shared_ptr<ToolbarItem> item) {
  if (!item || std::find(allowed_.begin(), allowed_.end(), item) != allowed_.end()) return;
  allowed_.push_back(std::move(item));
}

void Toolbar::addDefaultItem(std::shared_ptr<ToolbarItem> item) {
  if (item) defaults_.push_back(std::move(item));
}

std::shared_ptr<ToolbarItem> Toolbar::itemWithIdentifier(const String& identifier) const {
  for (const auto& item : allowed_) {
    if (item->itemIdentifier() == identifier) return item;
  }
  return nullptr;
}

}  // namespace tq
