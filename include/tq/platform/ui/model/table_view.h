// TableView, OutlineView and TableColumn.
//
// A table owns its columns; a column owns its header cell, its data cell and, for view-based
// tables, its prototype cell views. Table views are flipped.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/ui/model/control.h"
#include "tq/platform/ui/model/text_field_cell.h"

namespace tq {

class TableView;

class TableColumn : public InterfaceObject {
 public:
  // A column with a fresh TableHeaderCell ("" title) and a TextFieldCell as data cell.
  TableColumn();
  explicit TableColumn(String identifier);
  String className() const override { return classNameOr(u"NSTableColumn"); }

  const String& identifier() const { return identifier_; }
  void setIdentifier(String identifier) { identifier_ = std::move(identifier); }
  // The header cell (owned): its string value is the column's title.
  const std::shared_ptr<Cell>& headerCell() const { return headerCell_; }
  void setHeaderCell(std::shared_ptr<Cell> cell) { headerCell_ = std::move(cell); }
  // The cell that draws the rows of a cell-based table (owned); may have a menu (HasMenu).
  const std::shared_ptr<Cell>& dataCell() const { return dataCell_; }
  void setDataCell(std::shared_ptr<Cell> cell) { dataCell_ = std::move(cell); }
  // The header cell's string value ("" without a header cell).
  String title() const { return headerCell_ ? headerCell_->stringValue() : String::empty(); }
  void setTitle(String title) {
    if (headerCell_) headerCell_->setStringValue(std::move(title));
  }

  double width() const { return width_; }
  void setWidth(double width) { width_ = width; }
  double minWidth() const { return minWidth_; }
  void setMinWidth(double width) { minWidth_ = width; }
  double maxWidth() const { return maxWidth_; }
  void setMaxWidth(double width) { maxWidth_ = width; }
  bool isHidden() const { return hidden_; }
  void setHidden(bool hidden) { hidden_ = hidden; }
  bool isEditable() const { return editable_; }
  void setEditable(bool editable) { editable_ = editable; }
  const String& headerToolTip() const { return headerToolTip_; }
  void setHeaderToolTip(String tip) { headerToolTip_ = std::move(tip); }

  // View-based tables: the views rows are made from (owned; not subviews of anything).
  const std::vector<std::shared_ptr<View>>& prototypeCellViews() const { return prototypes_; }
  void addPrototypeCellView(std::shared_ptr<View> view) { prototypes_.push_back(std::move(view)); }

  // The table holding the column (not owned), or nullptr.
  TableView* tableView() const { return tableView_; }

 private:
  friend class TableView;
  String identifier_;
  std::shared_ptr<Cell> headerCell_;
  std::shared_ptr<Cell> dataCell_;
  double width_ = 100;
  double minWidth_ = 10;
  double maxWidth_ = 1e6;
  bool hidden_ = false;
  bool editable_ = true;
  String headerToolTip_;
  std::vector<std::shared_ptr<View>> prototypes_;
  TableView* tableView_ = nullptr;
};

class TableView : public Control {
 public:
  TableView();
  ~TableView() override;
  String className() const override { return classNameOr(u"NSTableView"); }

  // The columns in display order (owned). Never holds nullptr.
  const std::vector<std::shared_ptr<TableColumn>>& tableColumns() const { return columns_; }
  long numberOfColumns() const { return static_cast<long>(columns_.size()); }
  void addTableColumn(std::shared_ptr<TableColumn> column);
  void removeTableColumn(const std::shared_ptr<TableColumn>& column);
  // The first column with the identifier, or nullptr.
  std::shared_ptr<TableColumn> tableColumnWithIdentifier(const String& identifier) const;

  double rowHeight() const { return rowHeight_; }
  void setRowHeight(double height) { rowHeight_ = height; }
  const Size& intercellSpacing() const { return intercellSpacing_; }
  void setIntercellSpacing(const Size& spacing) { intercellSpacing_ = spacing; }
  // View-based tables make rows from views, cell-based ones draw with the columns' data cells.
  bool isViewBased() const { return viewBased_; }
  void setViewBased(bool viewBased) { viewBased_ = viewBased; }
  // The header view (not a subview: a scroll view shows it), or nullptr for a table without headers.
  const std::shared_ptr<View>& headerView() const { return headerView_; }
  void setHeaderView(std::shared_ptr<View> view) { headerView_ = std::move(view); }
  bool usesAlternatingRowBackgroundColors() const { return alternating_; }
  void setUsesAlternatingRowBackgroundColors(bool alternating) { alternating_ = alternating; }

 private:
  std::vector<std::shared_ptr<TableColumn>> columns_;
  double rowHeight_ = 17;
  Size intercellSpacing_{3, 2};
  bool viewBased_ = false;
  std::shared_ptr<View> headerView_;
  bool alternating_ = false;
};

class OutlineView : public TableView {
 public:
  OutlineView() = default;
  String className() const override { return classNameOr(u"NSOutlineView"); }
  // The column that shows the disclosure triangles (one of tableColumns()), or nullptr.
  std::shared_ptr<TableColumn> outlineTableColumn() const { return outlineColumn_.lock(); }
  void setOutlineTableColumn(const std::shared_ptr<TableColumn>& column) { outlineColumn_ = column; }
  double indentationPerLevel() const { return indentation_; }
  void setIndentationPerLevel(double indentation) { indentation_ = indentation; }

 private:
  std::weak_ptr<TableColumn> outlineColumn_;
  double indentation_ = 16;
};

}  // namespace tq
