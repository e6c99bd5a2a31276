// Cells: value, wrapping rules and natural sizes.
#include "tq/platform/ui/cell.h"

#include <algorithm>
#include <cmath>

#include "tq/platform/ui/text_measurer.h"

namespace tq {

void Cell::setObjectValue(const Value& value) {
  if (value.type() == Value::Type::String) {
    setStringValue(value.stringValue());
  } else if (value.isNil()) {
    setStringValue(String::empty());
  } else {
    setStringValue(value.description());
  }
}

void Cell::setWraps(bool wraps) {
  wraps_ = wraps;
  if (wraps) scrollable_ = false;
}

void Cell::setScrollable(bool scrollable) {
  scrollable_ = scrollable;
  if (scrollable) wraps_ = false;
}

Size Cell::cellSize() const { return TextMeasurer::current().sizeOfString(title(), font_); }

Size Cell::cellSizeForBounds(const Rect& bounds) const {
  const TextMeasurer& measurer = TextMeasurer::current();
  Size natural = cellSize();
  if (!wraps_ || bounds.w <= 0 || natural.width <= bounds.w) {
    return {std::min(natural.width, std::max(bounds.w, 0.0)), natural.height};
  }
  // Wrapped text: as many lines as the single line needs widths of the bounds.
  const double lines = std::ceil(natural.width / bounds.w);
  return {bounds.w, lines * measurer.defaultLineHeight(font_)};
}

}  // namespace tq
