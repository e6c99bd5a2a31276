// Control: a view that shows and edits a value through its cell.
//
// The control owns its cell; the cell's controlView() points back to the control. Value, font and
// alignment calls go to the cell. A control made without a cell has none (cell() is nullptr) and
// its value calls answer nil/"" and do nothing, as messages to a missing cell did.
#pragma once

#include <memory>

#include "tq/platform/ui/model/cell.h"
#include "tq/platform/ui/model/view.h"

namespace tq {

// Passed to a control's constructor by code that gives the control its cell right after (an
// archive reader): the control starts without a cell instead of making one only to drop it.
struct NoDefaultCell {};

class Control : public View {
 public:
  Control() = default;
  explicit Control(const Rect& frame) : View(frame) {}
  ~Control() override;
  String className() const override { return classNameOr(u"NSControl"); }

  const std::shared_ptr<Cell>& cell() const { return cell_; }
  // Replaces the cell; the new cell's control view becomes this control.
  void setCell(std::shared_ptr<Cell> cell);
  // The cell as a given class, or nullptr when it is of another.
  template <class T>
  std::shared_ptr<T> cellAs() const {
    return std::dynamic_pointer_cast<T>(cell_);
  }

  String stringValue() const { return cell_ ? cell_->stringValue() : String(); }
  void setStringValue(String value) {
    if (cell_) cell_->setStringValue(std::move(value));
  }
  Value objectValue() const { return cell_ ? cell_->objectValue() : Value(); }
  void setObjectValue(const Value& value) {
    if (cell_) cell_->setObjectValue(value);
  }
  FontDescriptor font() const { return cell_ ? cell_->font() : FontDescriptor(); }
  void setFont(FontDescriptor font) {
    if (cell_) cell_->setFont(std::move(font));
  }
  TextAlignment alignment() const { return cell_ ? cell_->alignment() : TextAlignment::Natural; }
  void setAlignment(TextAlignment alignment) {
    if (cell_) cell_->setAlignment(alignment);
  }
  bool isEnabled() const { return cell_ ? cell_->isEnabled() : false; }
  void setEnabled(bool enabled) {
    if (cell_) cell_->setEnabled(enabled);
  }

  // Target (not owned) and action selector, kept on the control.
  std::shared_ptr<Object> target() const { return target_.lock(); }
  void setTarget(std::weak_ptr<Object> target) { target_ = std::move(target); }
  const String& action() const { return action_; }
  void setAction(String action) { action_ = std::move(action); }

  // Resizes the frame to the cell's natural size (cellSize), keeping the frame's origin. Does
  // nothing without a cell.
  virtual void sizeToFit();

 private:
  std::shared_ptr<Cell> cell_;
  std::weak_ptr<Object> target_;
  String action_;
};

}  // namespace tq
