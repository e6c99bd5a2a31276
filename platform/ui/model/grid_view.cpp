// Grid views: rows, columns and cells, whose content views are the grid's subviews.
#include "tq/platform/ui/model/grid_view.h"

namespace tq {

void GridView::addRow(std::shared_ptr<GridRow> row) {
  if (row) rows_.push_back(std::move(row));
}

void GridView::addColumn(std::shared_ptr<GridColumn> column) {
  if (column) columns_.push_back(std::move(column));
}

bool GridView::addCell(std::shared_ptr<GridCell> cell, long row, long column, std::shared_ptr<View> contentView) {
  if (!cell || row < 0 || column < 0 || row >= numberOfRows() || column >= numberOfColumns()) return false;
  cell->row_ = row;
  cell->column_ = column;
  cell->contentView_ = contentView;
  if (contentView) {
    if (rows_[static_cast<std::size_t>(row)]->isHidden() || columns_[static_cast<std::size_t>(column)]->isHidden()) {
      contentView->setHidden(true);
    }
    addSubview(std::move(contentView));
  }
  cells_.push_back(std::move(cell));
  return true;
}

std::shared_ptr<GridCell> GridView::cellAt(long row, long column) const {
  for (const auto& cell : cells_) {
    if (cell->row_ == row && cell->column_ == column) return cell;
  }
  return nullptr;
}

}  // namespace tq
