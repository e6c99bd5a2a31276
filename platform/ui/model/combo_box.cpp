// Combo boxes and their item lists.
#include "tq/platform/ui/model/combo_box.h"

namespace tq {

String ComboBoxCell::itemObjectValueAtIndex(long index) const {
  if (index < 0 || index >= numberOfItems()) return String();
  return items_[static_cast<std::size_t>(index)];
}

ComboBox::ComboBox() : TextField(NoDefaultCell{}) { setCell(std::make_shared<ComboBoxCell>()); }

std::vector<String> ComboBox::objectValues() const {
  auto c = comboBoxCell();
  return c ? c->objectValues() : std::vector<String>{};
}

}  // namespace tq
