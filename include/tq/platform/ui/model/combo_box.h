// ComboBox and ComboBoxCell: a text field with a list of items to choose from (NSComboBox).
//
// The items are the archived list (the cell's object values); a combo box that asks a data source
// for its items at run time archives none. The field's own value is its string value, as for any
// text field.
// Thread: the interface (main) thread.
#pragma once

#include <vector>

#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_field_cell.h"

namespace tq {

class ComboBoxCell : public TextFieldCell {
 public:
  using TextFieldCell::TextFieldCell;
  String className() const override { return classNameOr(u"NSComboBoxCell"); }
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }

  // The items, in order.
  const std::vector<String>& objectValues() const { return items_; }
  void setObjectValues(std::vector<String> items) { items_ = std::move(items); }
  long numberOfItems() const { return static_cast<long>(items_.size()); }
  // The item at index, or nil outside the list.
  String itemObjectValueAtIndex(long index) const;
  // How many items the list shows before it scrolls (5 unless archived otherwise).
  long numberOfVisibleItems() const { return visibleItems_; }
  void setNumberOfVisibleItems(long count) { visibleItems_ = count; }
  bool usesDataSource() const { return usesDataSource_; }
  void setUsesDataSource(bool flag) { usesDataSource_ = flag; }

 private:
  std::vector<String> items_;
  long visibleItems_ = 5;
  bool usesDataSource_ = false;
};

class ComboBox : public TextField {
 public:
  // A combo box with a fresh ComboBoxCell.
  ComboBox();
  explicit ComboBox(NoDefaultCell none) : TextField(none) {}
  String className() const override { return classNameOr(u"NSComboBox"); }
  std::shared_ptr<ComboBoxCell> comboBoxCell() const { return cellAs<ComboBoxCell>(); }
  // The cell's items (empty when the cell is not a combo box cell).
  std::vector<String> objectValues() const;
};

}  // namespace tq
