// Text field cells: size with bezel or border.
#include "tq/platform/ui/text_field_cell.h"

namespace tq {

Size TextFieldCell::cellSize() const {
  Size size = Cell::cellSize();
  if (isBezeled()) {
    size.width += 6;
    size.height += 4;
  } else if (isBordered()) {
    size.width += 2;
    size.height += 2;
  } else {
    size.width += 4;  // the text's inset of 2 points each side
  }
  return size;
}

}  // namespace tq
