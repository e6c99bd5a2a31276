// Stack views.
#include "tq/platform/ui/model/stack_view.h"

namespace tq {

void StackView::addView(std::shared_ptr<View> view, StackViewGravity gravity) {
  if (!view) return;
  // Subviews stay in area order: insert after the last subview of this or an earlier area.
  std::size_t index = 0;
  for (std::size_t i = 0; i < subviews().size(); ++i) {
    if (gravityOf(subviews()[i].get()) <= gravity) index = i + 1;
  }
  insertSubview(view, index);
  arranged_.emplace_back(view, gravity);
}

std::vector<std::shared_ptr<View>> StackView::viewsInGravity(StackViewGravity gravity) const {
  std::vector<std::shared_ptr<View>> out;
  for (const auto& sub : subviews()) {
    for (const auto& [view, g] : arranged_) {
      if (g == gravity && view.lock() == sub) out.push_back(sub);
    }
  }
  return out;
}

std::vector<std::shared_ptr<View>> StackView::arrangedSubviews() const {
  std::vector<std::shared_ptr<View>> out;
  for (auto g : {StackViewGravity::Leading, StackViewGravity::Center, StackViewGravity::Trailing}) {
    for (auto& v : viewsInGravity(g)) out.push_back(std::move(v));
  }
  return out;
}

StackViewGravity StackView::gravityOf(const View* view) const {
  for (const auto& [v, g] : arranged_) {
    if (v.lock().get() == view) return g;
  }
  return StackViewGravity::Leading;
}

}  // namespace tq
