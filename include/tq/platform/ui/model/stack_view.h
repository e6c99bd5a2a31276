// StackView: a view that lays its views out in a row or a column, in three gravity areas (leading
// or top, centre, trailing or bottom).
//
// Every view of every gravity area is also a subview, in area order and within an area in order,
// so code that walks subviews (drawing, localizing) sees them all. gravityOf() tells an arranged
// view's area. The model keeps the archived frames; it does not run the layout.
// Thread: the interface (main) thread.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/ui/model/view.h"

namespace tq {

enum class StackViewGravity { Leading = 1, Center = 2, Trailing = 3 };
enum class UserInterfaceLayoutOrientation { Horizontal = 0, Vertical = 1 };

class StackView : public View {
 public:
  String className() const override { return classNameOr(u"NSStackView"); }

  UserInterfaceLayoutOrientation orientation() const { return orientation_; }
  void setOrientation(UserInterfaceLayoutOrientation orientation) { orientation_ = orientation; }
  double spacing() const { return spacing_; }
  void setSpacing(double spacing) { spacing_ = spacing; }
  // The archived alignment and distribution names ("leading", "fill"...), nil when not given.
  const String& alignment() const { return alignment_; }
  void setAlignment(String alignment) { alignment_ = std::move(alignment); }
  const String& distribution() const { return distribution_; }
  void setDistribution(String distribution) { distribution_ = std::move(distribution); }

  // Adds view at the end of the gravity area (and as a subview after the area's last view).
  void addView(std::shared_ptr<View> view, StackViewGravity gravity);
  // The views of one gravity area, in order.
  std::vector<std::shared_ptr<View>> viewsInGravity(StackViewGravity gravity) const;
  // Every arranged view, area by area.
  std::vector<std::shared_ptr<View>> arrangedSubviews() const;
  // The area of an arranged view; Leading for a subview added otherwise.
  StackViewGravity gravityOf(const View* view) const;

 private:
  UserInterfaceLayoutOrientation orientation_ = UserInterfaceLayoutOrientation::Horizontal;
  double spacing_ = 8;
  String alignment_, distribution_;
  std::vector<std::pair<std::weak_ptr<View>, StackViewGravity>> arranged_;
};

}  // namespace tq
