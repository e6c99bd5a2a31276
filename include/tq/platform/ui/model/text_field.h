// TextField (labels and editable fields) and SearchField.
#pragma once

#include "tq/platform/ui/model/control.h"
#include "tq/platform/ui/model/text_field_cell.h"

namespace tq {

class TextField : public Control {
 public:
  // A field with a fresh TextFieldCell.
  TextField();
  explicit TextField(NoDefaultCell) {}
  explicit TextField(const Rect& frame);
  String className() const override { return classNameOr(u"NSTextField"); }

  std::shared_ptr<TextFieldCell> textFieldCell() const { return cellAs<TextFieldCell>(); }
  // The cell's placeholder; nil when none (or the cell is not a text field cell).
  String placeholderString() const;
  void setPlaceholderString(String placeholder);
  bool isEditable() const { return cell() && cell()->isEditable(); }
};

class SearchField : public TextField {
 public:
  // A search field with a fresh SearchFieldCell.
  SearchField();
  explicit SearchField(NoDefaultCell none) : TextField(none) {}
  String className() const override { return classNameOr(u"NSSearchField"); }
};

}  // namespace tq
