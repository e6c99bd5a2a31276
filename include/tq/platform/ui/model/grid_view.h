// GridView: a view that lays its views out in rows and columns (NSGridView), with its rows,
// columns and cells.
//
// The grid owns its rows, columns and cells. Each cell sits at a row and a column and may hold a
// content view, which is also a subview of the grid (in the order the cells were added), so code
// that walks subviews (drawing, localizing) sees every control of the grid. The model keeps the
// archived frames; it does not run the layout. A hidden row or column hides the content views of
// its cells, as the grid does on screen.
// Thread: the interface (main) thread.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/ui/model/view.h"

namespace tq {

// Row and column placements and alignments keep the archived names ("leading", "fill",
// "firstBaseline"...); nil means inherited from the grid.
class GridRow : public InterfaceObject {
 public:
  String className() const override { return classNameOr(u"NSGridRow"); }
  double height() const { return height_; }  // 0: automatic
  void setHeight(double height) { height_ = height; }
  double topPadding() const { return topPadding_; }
  void setTopPadding(double padding) { topPadding_ = padding; }
  double bottomPadding() const { return bottomPadding_; }
  void setBottomPadding(double padding) { bottomPadding_ = padding; }
  const String& yPlacement() const { return yPlacement_; }
  void setYPlacement(String placement) { yPlacement_ = std::move(placement); }
  const String& rowAlignment() const { return rowAlignment_; }
  void setRowAlignment(String alignment) { rowAlignment_ = std::move(alignment); }
  bool isHidden() const { return hidden_; }
  void setHidden(bool hidden) { hidden_ = hidden; }

 private:
  double height_ = 0, topPadding_ = 0, bottomPadding_ = 0;
  String yPlacement_, rowAlignment_;
  bool hidden_ = false;
};

class GridColumn : public InterfaceObject {
 public:
  String className() const override { return classNameOr(u"NSGridColumn"); }
  double width() const { return width_; }  // 0: automatic
  void setWidth(double width) { width_ = width; }
  double leadingPadding() const { return leadingPadding_; }
  void setLeadingPadding(double padding) { leadingPadding_ = padding; }
  double trailingPadding() const { return trailingPadding_; }
  void setTrailingPadding(double padding) { trailingPadding_ = padding; }
  const String& xPlacement() const { return xPlacement_; }
  void setXPlacement(String placement) { xPlacement_ = std::move(placement); }
  bool isHidden() const { return hidden_; }
  void setHidden(bool hidden) { hidden_ = hidden; }

 private:
  double width_ = 0, leadingPadding_ = 0, trailingPadding_ = 0;
  String xPlacement_;
  bool hidden_ = false;
};

class GridCell : public InterfaceObject {
 public:
  String className() const override { return classNameOr(u"NSGridCell"); }
  long row() const { return row_; }
  long column() const { return column_; }
  // The cell's view (a subview of the grid), or nullptr for an empty cell.
  const std::shared_ptr<View>& contentView() const { return contentView_; }
  const String& xPlacement() const { return xPlacement_; }
  void setXPlacement(String placement) { xPlacement_ = std::move(placement); }
  const String& yPlacement() const { return yPlacement_; }
  void setYPlacement(String placement) { yPlacement_ = std::move(placement); }
  const String& rowAlignment() const { return rowAlignment_; }
  void setRowAlignment(String alignment) { rowAlignment_ = std::move(alignment); }

 private:
  friend class GridView;
  long row_ = 0, column_ = 0;
  std::shared_ptr<View> contentView_;
  String xPlacement_, yPlacement_, rowAlignment_;
};

class GridView : public View {
 public:
  String className() const override { return classNameOr(u"NSGridView"); }

  const std::vector<std::shared_ptr<GridRow>>& rows() const { return rows_; }
  const std::vector<std::shared_ptr<GridColumn>>& columns() const { return columns_; }
  // Every cell, in the order added.
  const std::vector<std::shared_ptr<GridCell>>& cells() const { return cells_; }
  long numberOfRows() const { return static_cast<long>(rows_.size()); }
  long numberOfColumns() const { return static_cast<long>(columns_.size()); }
  void addRow(std::shared_ptr<GridRow> row);
  void addColumn(std::shared_ptr<GridColumn> column);
  // Places a cell at (row, column), both within the grid's rows and columns (else the cell is not
  // added and false comes back); its content view, when it has one, becomes a subview of the grid,
  // hidden when the row or column is.
  bool addCell(std::shared_ptr<GridCell> cell, long row, long column, std::shared_ptr<View> contentView);
  // The cell at (row, column), or nullptr.
  std::shared_ptr<GridCell> cellAt(long row, long column) const;

  double rowSpacing() const { return rowSpacing_; }
  void setRowSpacing(double spacing) { rowSpacing_ = spacing; }
  double columnSpacing() const { return columnSpacing_; }
  void setColumnSpacing(double spacing) { columnSpacing_ = spacing; }
  const String& xPlacement() const { return xPlacement_; }
  void setXPlacement(String placement) { xPlacement_ = std::move(placement); }
  const String& yPlacement() const { return yPlacement_; }
  void setYPlacement(String placement) { yPlacement_ = std::move(placement); }
  const String& rowAlignment() const { return rowAlignment_; }
  void setRowAlignment(String alignment) { rowAlignment_ = std::move(alignment); }

 private:
  std::vector<std::shared_ptr<GridRow>> rows_;
  std::vector<std::shared_ptr<GridColumn>> columns_;
  std::vector<std::shared_ptr<GridCell>> cells_;
  double rowSpacing_ = 6, columnSpacing_ = 6;
  String xPlacement_, yPlacement_, rowAlignment_;
};

}  // namespace tq
