// The centring, self-wrapping, separator-capable text cell.
#include "tq/interface/tq_text_field_cell.h"

#include <cmath>

#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/layout_manager.h"
#include "tq/platform/ui/model/class_registry.h"

namespace tq {

namespace {

// One layout manager measures for every cell; it lives to the end of the process.
const LayoutManager* sharedLayoutManager = nullptr;

// Archives name the cell by class: make it readable without the host registering anything.
[[maybe_unused]] const bool registered = [] {
  ClassRegistry::shared().registerClass<TQTextFieldCell>(u"TQTextFieldCell");
  return true;
}();

}  // namespace

void TQTextFieldCell::setup() {
  centersVertically_ = true;
  setScrollable(true);
  // Off then on: switching wrapping on also switches scrolling off.
  setWraps(false);
  setWraps(true);
}

double TQTextFieldCell::lineHeight() const {
  if (!sharedLayoutManager) sharedLayoutManager = new LayoutManager();
  return sharedLayoutManager->defaultLineHeightForFont(Font::fontWithDescriptor(font()));
}

void TQTextFieldCell::adjustLineBreakModeForCellFrame(const Rect& frame) {
  if (!truncatesWhenOneLineHigh_ && frame.h > 2 * lineHeight()) {
    setWraps(true);
    setLineBreakMode(NSLineBreakByWordWrapping);
  } else {
    setWraps(false);
    setLineBreakMode(NSLineBreakByTruncatingTail);
  }
}

void TQTextFieldCell::drawBackgroundWithFrame(const Rect& frame, View*) {
  if (backgroundColor()) Color::colorWithDescriptor(*backgroundColor())->set();
  rectFill(frame);
}

void TQTextFieldCell::drawWithFrame(const Rect& frame, View* controlView) {
  if (drawsBackground()) drawBackgroundWithFrame(frame, controlView);
  if (isSpace_) {
    Color::lightGrayColor()->set();
    const double y = frame.y + std::floor(0.5 * frame.h);
    BezierPath::strokeLineFromPoint({frame.x, y}, {frame.x + frame.w, y});
    return;
  }
  TextFieldCell::drawWithFrame(frame, controlView);
}

void TQTextFieldCell::drawInteriorWithFrame(const Rect& frame, View* controlView) {
  adjustLineBreakModeForCellFrame(frame);
  Rect drawn = frame;
  if (centersVertically_) {
    const Size size = cellSizeForBounds(frame);
    if (frame.h > size.height) {
      // Rounded down so that text lands on whole coordinates when the frame does.
      drawn.y = frame.y + std::floor((frame.h - size.height) * 0.5);
      drawn.h = size.height;
    }
  }
  TextFieldCell::drawInteriorWithFrame(drawn, controlView);
}

ColorRef TQTextFieldCell::highlightColorWithFrame(const Rect& frame, View* controlView) const {
  if (backgroundColor() && drawsBackground()) return Color::colorWithDescriptor(*backgroundColor());
  return TextFieldCell::highlightColorWithFrame(frame, controlView);
}

}  // namespace tq
