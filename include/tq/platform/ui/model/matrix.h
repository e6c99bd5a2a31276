// Matrix: a grid of cells (typically radio buttons) in one control.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/ui/model/control.h"

namespace tq {

enum class MatrixMode { Radio = 0, Highlight = 1, List = 2, Track = 3 };

class Matrix : public Control {
 public:
  // An empty matrix (0 x 0 cells), flipped, in radio mode.
  Matrix();
  String className() const override { return classNameOr(u"NSMatrix"); }

  // The cells in row-major order: index = row x numberOfColumns + column (owned).
  const std::vector<std::shared_ptr<Cell>>& cells() const { return cells_; }
  long numberOfRows() const { return rows_; }
  long numberOfColumns() const { return columns_; }
  // The cell at row and column, or nullptr outside the grid.
  std::shared_ptr<Cell> cellAtRow(long row, long column) const;
  // Replaces the grid: `cells` must hold rows x columns cells in row-major order
  // (NSInvalidArgumentException otherwise). Each cell's control view becomes the matrix.
  void setCells(std::vector<std::shared_ptr<Cell>> cells, long rows, long columns);

  const Size& cellSize() const { return cellSize_; }
  void setCellSize(const Size& size) { cellSize_ = size; }
  const Size& intercellSpacing() const { return intercellSpacing_; }
  void setIntercellSpacing(const Size& spacing) { intercellSpacing_ = spacing; }
  MatrixMode mode() const { return mode_; }
  void setMode(MatrixMode mode) { mode_ = mode; }
  // The cell that new cells copy (owned), or nullptr.
  const std::shared_ptr<Cell>& prototype() const { return prototype_; }
  void setPrototype(std::shared_ptr<Cell> cell) { prototype_ = std::move(cell); }

  // Whether the cell size is known to be up to date. Setting NO asks the matrix to work it out
  // afresh from its cells the next time it lays out (see validatedCellSize()).
  bool validateSize() const { return validateSize_; }
  void setValidateSize(bool valid) { validateSize_ = valid; }
  // The cell size to lay out with: cellSize() while validateSize() is YES; otherwise the largest
  // cellSize of the cells (which also makes cellSize() that and validateSize() YES again).
  Size validatedCellSize();

  // The rectangle of a cell in the matrix's (flipped) coordinates.
  Rect cellFrameAtRow(long row, long column) const;

 private:
  std::vector<std::shared_ptr<Cell>> cells_;
  long rows_ = 0;
  long columns_ = 0;
  Size cellSize_{100, 17};
  Size intercellSpacing_{1, 1};
  MatrixMode mode_ = MatrixMode::Radio;
  std::shared_ptr<Cell> prototype_;
  bool validateSize_ = true;
};

}  // namespace tq
