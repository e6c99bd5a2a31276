// Controls and their cells.
#include "tq/platform/ui/model/control.h"

namespace tq {

Control::~Control() {
  if (cell_ && cell_->controlView() == this) cell_->setControlView(nullptr);
}

void Control::setCell(std::shared_ptr<Cell> cell) {
  if (cell_ && cell_->controlView() == this) cell_->setControlView(nullptr);
  cell_ = std::move(cell);
  if (cell_) cell_->setControlView(this);
}

void Control::sizeToFit() {
  if (!cell_) return;
  setFrameSize(cell_->cellSize());
}

}  // namespace tq
