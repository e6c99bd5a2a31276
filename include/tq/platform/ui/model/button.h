// Button (push buttons, check boxes, radio buttons) and PopUpButton. Their strings and types live
// in their cells; these calls forward.
#pragma once

#include "tq/platform/ui/model/button_cell.h"
#include "tq/platform/ui/model/control.h"

namespace tq {

class Button : public Control {
 public:
  // A button with a fresh ButtonCell.
  Button();
  explicit Button(NoDefaultCell) {}
  explicit Button(const Rect& frame);
  String className() const override { return classNameOr(u"NSButton"); }

  // The cell as a ButtonCell, or nullptr when the button has a cell of another class.
  std::shared_ptr<ButtonCell> buttonCell() const { return cellAs<ButtonCell>(); }

  String title() const { return cell() ? cell()->title() : String(); }
  void setTitle(String title) {
    if (cell()) cell()->setTitle(std::move(title));
  }
  String alternateTitle() const;
  void setAlternateTitle(String title);
  // NoImage when the cell is not a button cell.
  CellImagePosition imagePosition() const;
  void setImagePosition(CellImagePosition position);
  // Sets the cell's button type (nothing when the cell is not a button cell).
  void setButtonType(ButtonType type);
  int state() const { return cell() ? cell()->state() : 0; }
  void setState(int state) {
    if (cell()) cell()->setState(state);
  }
};

class PopUpButton : public Button {
 public:
  // A pop-up button with a fresh PopUpButtonCell and an empty menu.
  PopUpButton();
  explicit PopUpButton(NoDefaultCell none) : Button(none) {}
  String className() const override { return classNameOr(u"NSPopUpButton"); }

  std::shared_ptr<PopUpButtonCell> popUpCell() const { return cellAs<PopUpButtonCell>(); }
  // The cell's menu, or nullptr.
  std::shared_ptr<Menu> menu() const;
  void setMenu(std::shared_ptr<Menu> menu);
  std::vector<std::shared_ptr<MenuItem>> itemArray() const;
  bool pullsDown() const;
  long indexOfSelectedItem() const;
};

}  // namespace tq
