// Buttons and pop-up buttons: forwarding to their cells.
#include "tq/platform/ui/model/button.h"

namespace tq {

Button::Button() { setCell(std::make_shared<ButtonCell>()); }

Button::Button(const Rect& frame) : Control(frame) { setCell(std::make_shared<ButtonCell>()); }

String Button::alternateTitle() const {
  auto c = buttonCell();
  return c ? c->alternateTitle() : String();
}

void Button::setAlternateTitle(String title) {
  if (auto c = buttonCell()) c->setAlternateTitle(std::move(title));
}

CellImagePosition Button::imagePosition() const {
  auto c = buttonCell();
  return c ? c->imagePosition() : CellImagePosition::NoImage;
}

void Button::setImagePosition(CellImagePosition position) {
  if (auto c = buttonCell()) c->setImagePosition(position);
}

void Button::setButtonType(ButtonType type) {
  if (auto c = buttonCell()) c->setButtonType(type);
}

PopUpButton::PopUpButton() : Button(NoDefaultCell{}) { setCell(std::make_shared<PopUpButtonCell>()); }

std::shared_ptr<Menu> PopUpButton::menu() const {
  auto c = popUpCell();
  return c ? c->menu() : nullptr;
}

void PopUpButton::setMenu(std::shared_ptr<Menu> menu) {
  if (auto c = popUpCell()) c->setMenu(std::move(menu));
}

std::vector<std::shared_ptr<MenuItem>> PopUpButton::itemArray() const {
  auto m = menu();
  return m ? m->itemArray() : std::vector<std::shared_ptr<MenuItem>>();
}

bool PopUpButton::pullsDown() const {
  auto c = popUpCell();
  return c && c->pullsDown();
}

long PopUpButton::indexOfSelectedItem() const {
  auto c = popUpCell();
  return c ? c->indexOfSelectedItem() : -1;
}

}  // namespace tq
