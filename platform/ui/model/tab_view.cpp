// Tab views: items own their views; the selected item's view is the one subview.
#include "tq/platform/ui/model/tab_view.h"

namespace tq {

void TabViewItem::setView(std::shared_ptr<View> view) {
  view_ = std::move(view);
  if (tabView_) tabView_->itemViewChanged(this);
}

TabView::~TabView() {
  for (const auto& item : items_) {
    if (item->tabView_ == this) item->tabView_ = nullptr;
  }
}

std::shared_ptr<TabViewItem> TabView::tabViewItemAtIndex(long index) const {
  if (index < 0 || index >= numberOfTabViewItems()) return nullptr;
  return items_[static_cast<std::size_t>(index)];
}

void TabView::addTabViewItem(std::shared_ptr<TabViewItem> item) {
  if (!item) return;
  item->tabView_ = this;
  items_.push_back(std::move(item));
  if (selected_ < 0) selectTabViewItemAtIndex(0);
}

void TabView::selectTabViewItemAtIndex(long index) {
  if (index < 0 || index >= numberOfTabViewItems()) return;
  selected_ = index;
  removeAllSubviews();
  if (const auto& view = items_[static_cast<std::size_t>(index)]->view()) addSubview(view);
}

void TabView::itemViewChanged(TabViewItem* item) {
  if (selected_ >= 0 && items_[static_cast<std::size_t>(selected_)].get() == item) selectTabViewItemAtIndex(selected_);
}

}  // namespace tq
