// Views: the subview tree and coordinate conversion.
#include "tq/platform/ui/model/view.h"

#include <algorithm>

#include "tq/platform/base/exception.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/window.h"

namespace tq {

View::~View() {
  for (const auto& sub : subviews_) {
    if (sub->superview_ == this) sub->superview_ = nullptr;
  }
}

void View::addSubview(std::shared_ptr<View> view) { insertSubview(std::move(view), subviews_.size()); }

void View::insertSubview(std::shared_ptr<View> view, std::size_t index) {
  if (!view) return;
  TQ_ASSERT_METHOD(view.get() != this && !isDescendantOf(view.get()), "addSubview:",
                   u"a view cannot become a subview of itself or of its own subview");
  if (view->superview_ == this) {
    auto it = std::find(subviews_.begin(), subviews_.end(), view);
    if (it != subviews_.end()) {
      if (static_cast<std::size_t>(it - subviews_.begin()) < index) --index;
      subviews_.erase(it);
    }
  } else {
    view->removeFromSuperview();
  }
  index = std::min(index, subviews_.size());
  view->superview_ = this;
  subviews_.insert(subviews_.begin() + static_cast<std::ptrdiff_t>(index), std::move(view));
}

void View::removeFromSuperview() {
  View* parent = superview_;
  if (!parent) return;
  superview_ = nullptr;
  auto& list = parent->subviews_;
  auto it = std::find_if(list.begin(), list.end(), [this](const auto& v) { return v.get() == this; });
  // Erasing may free this view when the superview held the last reference: touch nothing after.
  if (it != list.end()) {
    std::shared_ptr<View> keep = std::move(*it);
    list.erase(it);
  }
}

void View::removeAllSubviews() {
  std::vector<std::shared_ptr<View>> old;
  old.swap(subviews_);
  for (const auto& sub : old) sub->superview_ = nullptr;
}

Window* View::window() const {
  const View* v = this;
  while (v->superview_) v = v->superview_;
  return v->window_;
}

bool View::isDescendantOf(const View* view) const {
  for (const View* v = this; v; v = v->superview_) {
    if (v == view) return true;
  }
  return false;
}

namespace {

// The rectangle in the superview's coordinates.
Rect toSuperview(const View& v, const Rect& r) {
  const Rect& f = v.frame();
  const double fromTop = v.isFlipped() ? r.y : f.h - r.y - r.h;
  const View* s = v.superview();
  const double y = (s && s->isFlipped()) ? f.y + fromTop : f.y + f.h - fromTop - r.h;
  return {f.x + r.x, y, r.w, r.h};
}

// The rectangle in the window's coordinates (unflipped, origin at the content view's origin).
Rect toBase(const View* v, Rect r) {
  for (; v; v = v->superview()) {
    if (!v->superview()) {
      // The topmost view: its frame origin is the window's content origin.
      if (v->isFlipped()) r.y = v->frame().h - r.y - r.h;
      r.x += v->frame().x;
      r.y += v->frame().y;
      return r;
    }
    r = toSuperview(*v, r);
  }
  return r;
}

}  // namespace

Rect View::convertRect(const Rect& rect, const View* toView) const {
  const Rect base = toBase(this, rect);
  if (!toView) return base;
  // Invert the target's chain: base -> target coordinates.
  const Rect origin = toBase(toView, {0, 0, 0, 0});
  const Rect unflipped{base.x - origin.x, base.y - origin.y, base.w, base.h};
  // The target's own rectangle in base coordinates tells its flip after conversion.
  if (toView->isFlipped()) {
    // toBase mapped the target's y = 0 (top) to origin.y; y grows downwards from there.
    return {unflipped.x, -(unflipped.y + unflipped.h), unflipped.w, unflipped.h};
  }
  return unflipped;
}

View* View::viewWithTag(long tag) {
  if (tag_ == tag) return this;
  for (const auto& sub : subviews_) {
    if (View* found = sub->viewWithTag(tag)) return found;
  }
  return nullptr;
}

void View::setContextMenu(std::shared_ptr<Menu> menu) { contextMenu_ = std::move(menu); }

}  // namespace tq
