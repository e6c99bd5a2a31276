// TextFieldCell (text fields, labels, table text), with SearchFieldCell and TableHeaderCell.
#pragma once

#include <optional>

#include "tq/platform/ui/cell.h"

namespace tq {

class TextFieldCell : public ActionCell {
 public:
  TextFieldCell() = default;
  explicit TextFieldCell(String text) : ActionCell(std::move(text)) {}
  String className() const override { return classNameOr(u"NSTextFieldCell"); }

  // Grey text shown while the field is empty; nil for none.
  const String& placeholderString() const { return placeholder_; }
  void setPlaceholderString(String placeholder) { placeholder_ = std::move(placeholder); }

  bool drawsBackground() const { return drawsBackground_; }
  void setDrawsBackground(bool draws) { drawsBackground_ = draws; }
  // The background colour; nullopt (nil) when none was set.
  const std::optional<ColorDescriptor>& backgroundColor() const { return backgroundColor_; }
  void setBackgroundColor(std::optional<ColorDescriptor> color) { backgroundColor_ = std::move(color); }
  const std::optional<ColorDescriptor>& textColor() const { return textColor_; }
  void setTextColor(std::optional<ColorDescriptor> color) { textColor_ = std::move(color); }

  // Bezeled fields add 3 points each side and 2 above and below to the text's size; bordered ones 1.
  Size cellSize() const override;

 private:
  String placeholder_;
  bool drawsBackground_ = false;
  std::optional<ColorDescriptor> backgroundColor_;
  std::optional<ColorDescriptor> textColor_;
};

// The cell of a search field.
class SearchFieldCell : public TextFieldCell {
 public:
  using TextFieldCell::TextFieldCell;
  String className() const override { return classNameOr(u"NSSearchFieldCell"); }
};

// The header cell of a table column: its string value is the column's title.
class TableHeaderCell : public TextFieldCell {
 public:
  using TextFieldCell::TextFieldCell;
  String className() const override { return classNameOr(u"NSTableHeaderCell"); }
};

}  // namespace tq
