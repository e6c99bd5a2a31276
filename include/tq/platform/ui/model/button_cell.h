// ButtonCell (push buttons, check boxes, radio buttons, matrix cells) and PopUpButtonCell.
#pragma once

#include <memory>

#include "tq/platform/ui/model/capabilities.h"
#include "tq/platform/ui/model/cell.h"
#include "tq/platform/ui/model/menu.h"

namespace tq {

// The platform's button types.
enum class ButtonType {
  MomentaryLight = 0,
  PushOnPushOff = 1,
  Toggle = 2,
  Switch = 3,  // check box
  Radio = 4,
  MomentaryChange = 5,
  OnOff = 6,
  MomentaryPushIn = 7,
  Accelerator = 8,
  MultiLevelAccelerator = 9
};
inline constexpr ButtonType NSSwitchButton = ButtonType::Switch;
inline constexpr ButtonType NSRadioButton = ButtonType::Radio;

// Cells that can tell their button type (the platform's private `_buttonType`). Custom cells that do
// not implement it are not buttons of any type.
class HasButtonType {
 public:
  virtual ~HasButtonType() = default;
  virtual ButtonType buttonType() const = 0;
};

class ButtonCell : public ActionCell, public HasButtonType {
 public:
  ButtonCell() = default;
  explicit ButtonCell(String title) : title_(std::move(title)) {}
  String className() const override { return classNameOr(u"NSButtonCell"); }
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }

  // A button cell's title is its own (the string value stays the state as text).
  String title() const override { return title_; }
  void setTitle(String title) override { title_ = std::move(title); }
  // The title shown in the alternate (on) state; "" by default.
  const String& alternateTitle() const { return alternateTitle_; }
  void setAlternateTitle(String title) { alternateTitle_ = std::move(title); }
  // A button cell's value is its state: "1", "0" or "-1".
  String stringValue() const override;
  void setStringValue(String value) override;
  Value objectValue() const override { return Value(state()); }

  ButtonType buttonType() const override { return buttonType_; }
  void setButtonType(ButtonType type) { buttonType_ = type; }
  CellImagePosition imagePosition() const { return imagePosition_; }
  void setImagePosition(CellImagePosition position) { imagePosition_ = position; }
  // The archived bezel style ("rounded", "regularSquare", "push", "texturedRounded", ...); nil when
  // the button has none.
  const String& bezelStyle() const { return bezelStyle_; }
  void setBezelStyle(String style) { bezelStyle_ = std::move(style); }
  const String& alternateImageName() const { return alternateImageName_; }
  void setAlternateImageName(String name) { alternateImageName_ = std::move(name); }
  const String& keyEquivalent() const { return keyEquivalent_; }
  void setKeyEquivalent(String key) { keyEquivalent_ = std::move(key); }

  // The natural size. Check boxes and radio buttons: the indicator (18, 16 or 14 points for the
  // regular, small and mini sizes) plus 4 points, plus the title's width; as high as the larger of
  // the title's line and the indicator. Bezeled push buttons: the title plus 14 points each side,
  // at least 32 wide, 32/28/22 high (regular/small/mini; rounded bezels draw 21/18/15 of it).
  // Image-only buttons: 0 x 0 plus borders (the image's size is the drawing side's).
  Size cellSize() const override;

 private:
  String title_ = String::empty();
  String alternateTitle_ = String::empty();
  ButtonType buttonType_ = ButtonType::MomentaryPushIn;
  CellImagePosition imagePosition_ = CellImagePosition::NoImage;
  String bezelStyle_;
  String alternateImageName_;
  String keyEquivalent_ = String::empty();
};

// The cell of a pop-up button: a menu (owned) and the selected item.
class PopUpButtonCell : public ButtonCell, public HasMenu {
 public:
  PopUpButtonCell();
  String className() const override { return classNameOr(u"NSPopUpButtonCell"); }
  // The copy has a copy of the menu (Menu::copy).
  std::shared_ptr<Cell> copy() const override;

  std::shared_ptr<Menu> menu() const override { return menu_; }
  void setMenu(std::shared_ptr<Menu> menu) override { menu_ = std::move(menu); }
  // Pull-down menus show a fixed title (their first item's), pop-ups the selected item.
  bool pullsDown() const { return pullsDown_; }
  void setPullsDown(bool pulls) { pullsDown_ = pulls; }
  // Index of the selected item, -1 for none.
  long indexOfSelectedItem() const { return selectedIndex_; }
  void selectItemAtIndex(long index) { selectedIndex_ = index; }
  std::shared_ptr<MenuItem> selectedItem() const;
  // The title shown: the first item's for a pull-down, else the selected item's ("" for none).
  String title() const override;
  // Selects the first item with that title; when the menu has none, adds one and selects it.
  void setTitle(String title) override;

  // The widest item title plus 14 points each side and 18 for the arrows.
  Size cellSize() const override;

 private:
  std::shared_ptr<Menu> menu_;
  bool pullsDown_ = false;
  long selectedIndex_ = -1;
};

}  // namespace tq
