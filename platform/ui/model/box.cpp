// Boxes: the content view is the box's subview.
#include "tq/platform/ui/model/box.h"

namespace tq {

Box::Box() { setContentView(std::make_shared<View>()); }

void Box::setContentView(std::shared_ptr<View> view) {
  if (auto old = contentView_.lock()) {
    if (old->superview() == this) old->removeFromSuperview();
  }
  contentView_ = view;
  if (view) addSubview(std::move(view));
}

}  // namespace tq
