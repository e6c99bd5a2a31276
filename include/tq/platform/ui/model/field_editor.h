// FieldEditor: the one text editor a window lends to the cell being edited, placed over a rectangle
// of the control view. A small model: it holds the text, the selection, where it is placed, the cell
// and view it edits for, and the delegate; it does not handle keys.
//
// Threads: the interface (main) thread.
#pragma once

#include <memory>

#include "tq/platform/base/object.h"
#include "tq/platform/base/range.h"
#include "tq/platform/base/string.h"
#include "tq/platform/ui/model/geometry.h"

namespace tq {

class Cell;
class View;

class FieldEditor : public Object {
 public:
  String className() const override { return u"NSTextView"; }

  // Starts editing for a cell: the editor is placed at `frame` (control view coordinates), takes the
  // text and selects `selection` (clamped to the text). Cell and view are not owned: they must
  // outlive the editing; the delegate is not owned either.
  void beginEditing(const Cell* cell, View* controlView, Rect frame, String text, Range selection,
                    std::weak_ptr<Object> delegate);
  // Ends editing: the editor is detached (its text stays readable).
  void endEditing();

  bool isEditing() const { return editedCell_ != nullptr; }
  const Cell* editedCell() const { return editedCell_; }
  View* controlView() const { return controlView_; }
  const Rect& frame() const { return frame_; }
  const String& string() const { return text_; }
  void setString(String text) { text_ = std::move(text); }
  Range selectedRange() const { return selection_; }
  void setSelectedRange(Range range);
  std::shared_ptr<Object> delegate() const { return delegate_.lock(); }

 private:
  const Cell* editedCell_ = nullptr;
  View* controlView_ = nullptr;
  Rect frame_;
  String text_ = String::empty();
  Range selection_{0, 0};
  std::weak_ptr<Object> delegate_;
};

}  // namespace tq
