// Cells: value, wrapping rules and natural sizes.
#include "tq/platform/ui/model/cell.h"

#include <algorithm>
#include <cmath>

#include "tq/platform/ui/model/text_measurer.h"

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

Size Cell::cellSize() const {
  const Size text = TextMeasurer::current().sizeOfString(title(), font_);
  const Size room = textRoom();
  return {text.width + room.width, text.height + room.height};
}

Size Cell::cellSizeForBounds(const Rect& bounds) const {
  // The text and the room around it only: what a subclass adds to cellSize (an icon) is not text
  // and must not narrow the width the text wraps in.
  const Size room = textRoom();
  const Size oneLine = TextMeasurer::current().sizeOfString(title(), font_);
  const Size natural{oneLine.width + room.width, oneLine.height + room.height};
  if (!wraps_ || bounds.w <= 0 || natural.width <= bounds.w) {
    return {std::min(natural.width, std::max(bounds.w, 0.0)), natural.height};
  }
  const Size text = TextMeasurer::current().sizeOfString(title(), font_, std::max(bounds.w - room.width, 1.0));
  return {bounds.w, text.height + room.height};
}

}  // namespace tq
