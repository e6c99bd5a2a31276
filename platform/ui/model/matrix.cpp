// Matrices: the cell grid and its size.
#include "tq/platform/ui/model/matrix.h"

#include <algorithm>

#include "tq/platform/base/exception.h"

namespace tq {

Matrix::Matrix() { setFlipped(true); }

std::shared_ptr<Cell> Matrix::cellAtRow(long row, long column) const {
  if (row < 0 || column < 0 || row >= rows_ || column >= columns_) return nullptr;
  return cells_[static_cast<std::size_t>(row * columns_ + column)];
}

void Matrix::setCells(std::vector<std::shared_ptr<Cell>> cells, long rows, long columns) {
  TQ_ASSERT_METHOD(rows >= 0 && columns >= 0 && cells.size() == static_cast<std::size_t>(rows * columns),
                   "setCells:", u"the cells must fill the rows and columns");
  for (const auto& c : cells_) {
    if (c && c->controlView() == this) c->setControlView(nullptr);
  }
  cells_ = std::move(cells);
  rows_ = rows;
  columns_ = columns;
  for (const auto& c : cells_) {
    if (c) c->setControlView(this);
  }
}

Size Matrix::validatedCellSize() {
  if (validateSize_) return cellSize_;
  Size largest;
  for (const auto& c : cells_) {
    if (!c) continue;
    const Size s = c->cellSize();
    largest.width = std::max(largest.width, s.width);
    largest.height = std::max(largest.height, s.height);
  }
  cellSize_ = largest;
  validateSize_ = true;
  return cellSize_;
}

Rect Matrix::cellFrameAtRow(long row, long column) const {
  return {column * (cellSize_.width + intercellSpacing_.width), row * (cellSize_.height + intercellSpacing_.height),
          cellSize_.width, cellSize_.height};
}

}  // namespace tq
