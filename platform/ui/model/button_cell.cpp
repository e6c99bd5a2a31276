// Button and pop-up button cells: titles, state as value, natural sizes.
#include "tq/platform/ui/model/button_cell.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "tq/platform/ui/model/text_measurer.h"

namespace tq {

namespace {

double indicatorSize(ControlSize size) {
  switch (size) {
    case ControlSize::Small: return 16;
    case ControlSize::Mini: return 14;
    default: return 18;
  }
}

double pushHeight(ControlSize size) {
  switch (size) {
    case ControlSize::Small: return 28;
    case ControlSize::Mini: return 22;
    default: return 32;
  }
}

}  // namespace

String ButtonCell::stringValue() const {
  return String::fromASCII(std::to_string(state()));
}

void ButtonCell::setStringValue(String value) {
  // The state follows the text's number, as the platform's intValue of a string does.
  const std::string text = value.UTF8String();
  const long state = std::strtol(text.c_str(), nullptr, 10);
  setState(state > 0 ? 1 : (state < 0 ? -1 : 0));
}

Size ButtonCell::cellSize() const {
  const TextMeasurer& measurer = TextMeasurer::current();
  const Size text = measurer.sizeOfString(title(), font());
  if (buttonType_ == ButtonType::Switch || buttonType_ == ButtonType::Radio) {
    const double indicator = indicatorSize(controlSize());
    if (imagePosition_ == CellImagePosition::ImageOnly) return {indicator, indicator};
    return {indicator + 4 + text.width, std::max(text.height, indicator)};
  }
  if (imagePosition_ == CellImagePosition::ImageOnly) return {isBordered() ? 12.0 : 0.0, 0};
  if (!bezelStyle_.isNil() && (bezelStyle_ == String(u"rounded") || bezelStyle_ == String(u"push"))) {
    return {std::max(32.0, text.width + 28), pushHeight(controlSize())};
  }
  return {text.width + (isBordered() ? 12 : 0), text.height + (isBordered() ? 6 : 0)};
}

PopUpButtonCell::PopUpButtonCell() {
  setButtonType(ButtonType::MomentaryPushIn);
  setBezelStyle(u"rounded");
  menu_ = std::make_shared<Menu>();
}

std::shared_ptr<Cell> PopUpButtonCell::copy() const {
  auto c = std::static_pointer_cast<PopUpButtonCell>(copyOf(*this));
  if (menu_) c->menu_ = menu_->copy();
  return c;
}

std::shared_ptr<MenuItem> PopUpButtonCell::selectedItem() const {
  return menu_ ? menu_->itemAtIndex(selectedIndex_) : nullptr;
}

String PopUpButtonCell::title() const {
  std::shared_ptr<MenuItem> item = pullsDown_ ? (menu_ ? menu_->itemAtIndex(0) : nullptr) : selectedItem();
  return item ? item->title() : String::empty();
}

void PopUpButtonCell::setTitle(String title) {
  if (!menu_) menu_ = std::make_shared<Menu>();
  for (long i = 0; i < menu_->numberOfItems(); ++i) {
    if (menu_->itemAtIndex(i)->title() == title) {
      selectedIndex_ = i;
      return;
    }
  }
  menu_->addItemWithTitle(std::move(title));
  selectedIndex_ = menu_->numberOfItems() - 1;
}

Size PopUpButtonCell::cellSize() const {
  const TextMeasurer& measurer = TextMeasurer::current();
  double widest = 0;
  double height = measurer.defaultLineHeight(font());
  if (menu_) {
    for (const auto& item : menu_->itemArray()) {
      if (item->isSeparatorItem() || item->isHidden()) continue;
      widest = std::max(widest, measurer.sizeOfString(item->title(), font()).width);
    }
  }
  return {widest + 28 + 18, std::max(height, pushHeight(controlSize()) - 6)};
}

}  // namespace tq
