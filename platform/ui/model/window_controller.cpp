// Window controllers and the view controller whose view fills their window.
#include "tq/platform/ui/model/window_controller.h"

namespace tq {

void WindowController::setWindow(std::shared_ptr<Window> window) {
  window_ = std::move(window);
  placeContent();
}

void WindowController::setContentViewController(std::shared_ptr<ViewController> controller) {
  contentViewController_ = std::move(controller);
  placeContent();
}

void WindowController::placeContent() {
  if (!window_ || !contentViewController_) return;
  const auto& view = contentViewController_->view();
  if (!view || window_->contentView() == view) return;
  // The window takes the view's size; its top left corner stays where it was.
  const Rect old = window_->contentRect();
  const Rect f = view->frame();
  window_->setContentRect({old.x, old.maxY() - f.h, f.w, f.h});
  window_->setContentView(view);
  view->setFrameOrigin({0, 0});
}

void WindowController::setOutlet(const String& property, const std::shared_ptr<Object>& destination) {
  if (property == String(u"window")) {
    if (auto w = std::dynamic_pointer_cast<Window>(destination)) setWindow(w);
  }
  recordOutlet(property, destination);
}


}  // namespace tq
