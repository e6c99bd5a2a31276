// View controllers, tab and split view controllers.
#include "tq/platform/ui/model/view_controller.h"

#include <algorithm>

#include "tq/platform/base/exception.h"

namespace tq {

ViewController::~ViewController() {
  for (const auto& child : children_) {
    if (child->parent_ == this) child->parent_ = nullptr;
  }
}

void ViewController::addChildViewController(std::shared_ptr<ViewController> child) {
  if (!child) return;
  bool ancestor = child.get() == this;
  for (const ViewController* p = parent_; p && !ancestor; p = p->parent_) ancestor = p == child.get();
  TQ_ASSERT_METHOD(!ancestor, "addChildViewController:", u"a controller cannot become a child of itself or of its own child");
  if (child->parent_ == this) return;
  if (ViewController* old = child->parent_) {
    auto& list = old->children_;
    list.erase(std::remove(list.begin(), list.end(), child), list.end());
  }
  child->parent_ = this;
  children_.push_back(std::move(child));
}

void ViewController::setOutlet(const String& property, const std::shared_ptr<Object>& destination) {
  if (property == String(u"view")) {
    if (auto v = std::dynamic_pointer_cast<View>(destination)) setView(v);
  }
  recordOutlet(property, destination);
}


std::vector<std::shared_ptr<TabViewItem>> TabViewController::tabViewItems() const {
  auto tabs = tabView();
  return tabs ? tabs->tabViewItems() : std::vector<std::shared_ptr<TabViewItem>>{};
}

void TabViewController::addTabViewItem(std::shared_ptr<TabViewItem> item, std::shared_ptr<ViewController> controller) {
  auto tabs = tabView();
  if (!tabs || !item) return;
  if (controller) {
    addChildViewController(controller);
    item->setViewController(controller);
    item->setView(controller->view());
  }
  tabs->addTabViewItem(std::move(item));
}

void SplitViewController::addSplitViewItem(std::shared_ptr<SplitViewItem> item) {
  if (!item) return;
  if (const auto& controller = item->viewController()) {
    addChildViewController(controller);
    if (const auto& pane = controller->view()) item->extent_ = vertical_ ? pane->frame().w : pane->frame().h;
  }
  items_.push_back(std::move(item));
  layOutPanes();
}

void SplitViewController::layOutPanes() {
  const auto split = splitView();
  if (!split) return;
  const Rect bounds = split->bounds();
  constexpr double kDivider = 1;
  const double total = vertical_ ? bounds.w : bounds.h;
  // Panes in order from the left (vertical dividers) or the top; the split view's own coordinates
  // run downwards on the platform whatever the model says.
  double offset = 0;
  std::vector<std::pair<View*, double>> placed;
  for (std::size_t i = 0; i < items_.size(); ++i) {
    const auto& controller = items_[i]->viewController();
    const auto pane = controller ? controller->view() : nullptr;
    if (!pane) continue;
    if (pane->superview() != split.get()) split->addSubview(pane);
    const double archived = items_[i]->extent_;
    double extent = items_[i]->isCollapsed() ? 0 : std::clamp(archived, 0.0, std::max(0.0, total - offset));
    placed.emplace_back(pane.get(), extent);
    offset += extent + (extent > 0 ? kDivider : 0);
  }
  // The last pane shown takes the room left over.
  for (auto it = placed.rbegin(); it != placed.rend(); ++it) {
    if (it->second <= 0) continue;
    double before = 0;
    for (auto jt = placed.begin(); &*jt != &*it; ++jt) before += jt->second + (jt->second > 0 ? kDivider : 0);
    it->second = std::max(it->second, total - before);
    break;
  }
  offset = 0;
  for (const auto& [pane, extent] : placed) {
    pane->setHidden(extent <= 0);
    pane->setFrame(vertical_ ? Rect{offset, 0, extent, bounds.h} : Rect{0, offset, bounds.w, extent});
    offset += extent + (extent > 0 ? kDivider : 0);
  }
}

}  // namespace tq
