// TableDataSource: where a presented table view's rows come from.
//
// A table or outline view of an interface holds columns, their header and data cells, but no rows:
// the host supplies them, as a table's data source and delegate did. GtkPresenter shows a table as
// a GtkColumnView with one row per numberOfRowsInTableView(); each visible cell of a row is drawn
// by a copy of its column's data cell (the library's own drawing through Cairo), set up for the row:
//   1. the copy's object value is set to objectValueForTableColumn() (a string for text cells, a
//      state number for check box cells, ...);
//   2. willDisplayCell() lets the host set anything else on the copy: an image, isSpace() for a
//      separator row, a colour;
//   3. the copy draws itself into the cell's frame: the row's rectangle inset by half the table's
//      intercell spacing on each side, as high as the table's row height. A selected row is first
//      filled with the cell's highlightColorWithFrame().
// A click on a check box cell of an editable column toggles its state and hands the new value to
// setObjectValue(). Rows are asked for again when the host calls GtkPresenter::reloadData(), and as
// rows scroll into view. An outline view's rows are listed the same way, flat: the source gives
// them in the order they show (indent with the cell's text or image if levels matter).
//
// Threads: the interface (main) thread; the presenter keeps the source (shared) while it shows the
// table.
#pragma once

#include <memory>

#include "tq/platform/base/value.h"

namespace tq {

class Cell;
class TableColumn;
class TableView;

class TableDataSource {
 public:
  virtual ~TableDataSource() = default;
  // How many rows the table has.
  virtual long numberOfRowsInTableView(TableView& table) = 0;
  // The value the column's cell shows in the row; nil leaves the data cell's own value.
  virtual Value objectValueForTableColumn(TableView& table, TableColumn& column, long row) = 0;
  // Called with the row's copy of the data cell after its value is set and before it draws.
  virtual void willDisplayCell(TableView& /*table*/, Cell& /*cell*/, TableColumn& /*column*/, long /*row*/) {}
  // The user changed a cell's value (a check box cell clicked). Nothing by default.
  virtual void setObjectValue(TableView& /*table*/, const Value& /*value*/, TableColumn& /*column*/, long /*row*/) {}
};

}  // namespace tq
