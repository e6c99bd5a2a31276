// Text fields and search fields.
#include "tq/platform/ui/model/text_field.h"

namespace tq {

TextField::TextField() { setCell(std::make_shared<TextFieldCell>()); }

TextField::TextField(const Rect& frame) : Control(frame) { setCell(std::make_shared<TextFieldCell>()); }

String TextField::placeholderString() const {
  auto c = textFieldCell();
  return c ? c->placeholderString() : String();
}

void TextField::setPlaceholderString(String placeholder) {
  if (auto c = textFieldCell()) c->setPlaceholderString(std::move(placeholder));
}

SearchField::SearchField() : TextField(NoDefaultCell{}) { setCell(std::make_shared<SearchFieldCell>()); }

}  // namespace tq
