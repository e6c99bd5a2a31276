// The field editor model.
#include "tq/platform/ui/model/field_editor.h"

#include <algorithm>

namespace tq {

void FieldEditor::beginEditing(const Cell* cell, View* controlView, Rect frame, String text, Range selection,
                               std::weak_ptr<Object> delegate) {
  editedCell_ = cell;
  controlView_ = controlView;
  frame_ = frame;
  text_ = text.isNil() ? String::empty() : std::move(text);
  delegate_ = std::move(delegate);
  setSelectedRange(selection);
}

void FieldEditor::endEditing() {
  editedCell_ = nullptr;
  controlView_ = nullptr;
  delegate_.reset();
}

void FieldEditor::setSelectedRange(Range range) {
  const UInteger length = text_.length();
  const UInteger location = std::min(range.location, length);
  selection_ = {location, std::min(range.length, length - location)};
}

}  // namespace tq
