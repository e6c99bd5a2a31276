// Text field cells: size with bezel or border.
#include "tq/platform/ui/model/text_field_cell.h"

namespace tq {

Size TextFieldCell::textRoom() const {
  if (isBezeled()) return {6, 4};
  if (isBordered()) return {2, 2};
  return {4, 0};  // the text's inset of 2 points each side
}

}  // namespace tq
