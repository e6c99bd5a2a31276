// Check-box test on a button's cell.
#include "tq/interface/button_extensions.h"

namespace tq {

bool isSwitchButton(const Button* button) {
  if (!button) return false;
  // Only cells that know their button type can be check boxes.
  const auto* typed = dynamic_cast<const HasButtonType*>(button->cell().get());
  if (!typed) return false;
  return typed->buttonType() == NSSwitchButton;
}

}  // namespace tq
