// Windows and their content views.
#include "tq/platform/ui/model/window.h"

namespace tq {

Window::Window() : Window(Rect{0, 0, 480, 270}) {}

Window::Window(const Rect& contentRect) : contentRect_(contentRect) {
  setContentView(std::make_shared<View>(Rect{0, 0, contentRect.w, contentRect.h}));
}

Window::~Window() {
  if (contentView_) contentView_->setContentViewOfWindow(nullptr);
}

void Window::setContentView(std::shared_ptr<View> view) {
  if (contentView_) contentView_->setContentViewOfWindow(nullptr);
  contentView_ = std::move(view);
  if (contentView_) {
    contentView_->removeFromSuperview();
    contentView_->setContentViewOfWindow(this);
  }
}

}  // namespace tq
