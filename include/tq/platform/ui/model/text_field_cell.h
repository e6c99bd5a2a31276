// TextFieldCell (text fields, labels, table text), with SearchFieldCell and TableHeaderCell.
#pragma once

#include <optional>

#include "tq/platform/ui/model/cell.h"
#include "tq/platform/ui/model/color.h"

namespace tq {
class FieldEditor;
}

namespace tq {

class TextFieldCell : public ActionCell {
 public:
  TextFieldCell() = default;
  explicit TextFieldCell(String text) : ActionCell(std::move(text)) {}
  String className() const override { return classNameOr(u"NSTextFieldCell"); }
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }

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

  // Around the text: bezeled fields 3 points each side and 2 above and below; bordered ones 1;
  // others 2 each side (so cellSize() is the text's size plus 6 x 4, 2 x 2 or 4 x 0).
  Size textRoom() const override;

  // --- drawing and editing (into the current graphics context) -----------------------------------
  // The whole cell: the background (when drawsBackground(): the background colour, else
  // controlBackgroundColor, filled), the bezel (grey) or border (black) outline, then
  // drawInteriorWithFrame with the same frame. The view is not owned and may be null.
  virtual void drawWithFrame(const Rect& frame, View* controlView);
  // The text: stringValue() (the placeholder in grey when the value is empty) drawn by drawText into
  // textRectForFrame(frame), with the cell's font, alignment and text colour (black when nil);
  // wrapping by lineBreakMode() when wraps(), else on one line (word wrapping becoming clipping).
  virtual void drawInteriorWithFrame(const Rect& frame, View* controlView);
  // The colour of a selected row behind the cell: selectedControlColor.
  virtual ColorRef highlightColorWithFrame(const Rect& frame, View* controlView) const;
  // Places the field editor over textRectForFrame(frame) with the cell's text, the insertion point at
  // its end. `event` (the mouse-down that started editing) is not used by the model.
  virtual void editWithFrame(const Rect& frame, View* controlView, FieldEditor* editor,
                             std::weak_ptr<Object> delegate, const Object* event);
  // The same, selecting `length` code units from `start`.
  virtual void selectWithFrame(const Rect& frame, View* controlView, FieldEditor* editor,
                               std::weak_ptr<Object> delegate, long start, long length);
  // Where the text goes in a frame: inset 3 x 2 points when bezeled, 1 when bordered, else 2 x 0.
  Rect textRectForFrame(const Rect& frame) const;

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
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }
};

// The header cell of a table column: its string value is the column's title.
class TableHeaderCell : public TextFieldCell {
 public:
  using TextFieldCell::TextFieldCell;
  String className() const override { return classNameOr(u"NSTableHeaderCell"); }
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }
};

}  // namespace tq
