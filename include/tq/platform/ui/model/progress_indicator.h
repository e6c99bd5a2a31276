// ProgressIndicator: a bar or a spinning wheel that shows how far work has gone (a view without a
// cell).
// Threads: the interface (main) thread.
#pragma once

#include "tq/platform/ui/model/view.h"

namespace tq {

class ProgressIndicator : public View {
 public:
  enum class Style { Bar = 0, Spinning = 1 };
  ProgressIndicator() = default;
  explicit ProgressIndicator(const Rect& frame) : View(frame) {}
  String className() const override { return classNameOr(u"NSProgressIndicator"); }

  // The value and its range; 0 in 0 to 100 unless set.
  double doubleValue() const { return value_; }
  void setDoubleValue(double value) { value_ = value; }
  double minValue() const { return min_; }
  void setMinValue(double value) { min_ = value; }
  double maxValue() const { return max_; }
  void setMaxValue(double value) { max_ = value; }
  // An indeterminate indicator shows activity, not a value.
  bool isIndeterminate() const { return indeterminate_; }
  void setIndeterminate(bool indeterminate) { indeterminate_ = indeterminate; }
  Style style() const { return style_; }
  void setStyle(Style style) { style_ = style; }
  // Whether it shows while not animating (a stopped spinner that is not is invisible).
  bool isDisplayedWhenStopped() const { return displayedWhenStopped_; }
  void setDisplayedWhenStopped(bool displayed) { displayedWhenStopped_ = displayed; }

 private:
  double value_ = 0;
  double min_ = 0;
  double max_ = 100;
  bool indeterminate_ = false;
  Style style_ = Style::Bar;
  bool displayedWhenStopped_ = true;
};

}  // namespace tq
