// The state of a presented table and the widget that draws one of its cells.
#pragma once

#include <gtk/gtk.h>

#include <memory>

#include "presenter_impl.h"
#include "tq/platform/ui/model/table_view.h"

G_DECLARE_FINAL_TYPE(TqCellView, tq_cell_view, TQ, CELL_VIEW, GtkWidget)

namespace tq {

struct TableState {
  GtkPresenter::Impl* impl = nullptr;
  TableView* table = nullptr;
  GtkWidget* columnView = nullptr;
  GtkStringList* rows = nullptr;           // one (empty) item per row
  GtkSingleSelection* selection = nullptr;  // over `rows`
  std::shared_ptr<TableDataSource> source;
  ~TableState();
};

// What a cell widget shows, for inspection: the row, the column, the text its cell draws, and
// whether the row is selected or the cell is a separator.
struct CellViewInfo {
  long row = -1;
  TableColumn* column = nullptr;
  String text;
  bool selected = false;
  bool space = false;
};
CellViewInfo cellViewInfo(GtkWidget* cellView);

}  // namespace tq
