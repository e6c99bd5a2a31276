// Table and outline views as GtkColumnView: one column per visible table column, rows from the
// host's TableDataSource, each cell drawn by a copy of its column's data cell through Cairo.
#include "tables.h"

#include <algorithm>
#include <cmath>

#include "tq/gtk/action_handling.h"
#include "tq/interface/tq_text_field_cell.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/image.h"
#include "tq/platform/ui/model/button_cell.h"
#include "tq/platform/ui/model/color.h"

// --- the cell widget ------------------------------------------------------------------------------------

struct _TqCellView {
  GtkWidget parent_instance;
  tq::TableState* state;
  tq::TableColumn* column;
  long row;
  bool selected;
  // The row's copy of the column's data cell, and the control it draws in when it is not a text
  // field cell (the library's drawing draws a control's cell).
  std::shared_ptr<tq::Cell>* cell;
  std::shared_ptr<tq::Control>* holder;
};

G_DEFINE_FINAL_TYPE(TqCellView, tq_cell_view, GTK_TYPE_WIDGET)

namespace tq {

namespace {

// Where the cell draws in its row: the row inset by half the intercell spacing on each side.
Rect cellFrame(const TableView& table, double width, double height) {
  const Size spacing = table.intercellSpacing();
  return {spacing.width / 2, spacing.height / 2, std::max(0.0, width - spacing.width),
          std::max(0.0, height - spacing.height)};
}

// Sets the widget's cell up for its row: a fresh copy of the column's data cell, its value from the
// data source, then whatever the host's willDisplayCell sets.
void bindRow(TqCellView* view, long row) {
  view->row = row;
  TableState* state = view->state;
  std::shared_ptr<Cell>& cell = *view->cell;
  const auto& prototype = view->column->dataCell();
  cell = prototype ? prototype->copy() : std::make_shared<TextFieldCell>();
  if (state->source && row >= 0) {
    const Value value = state->source->objectValueForTableColumn(*state->table, *view->column, row);
    if (!value.isNil()) cell->setObjectValue(value);
    state->source->willDisplayCell(*state->table, *cell, *view->column, row);
  }
  if (!dynamic_cast<TextFieldCell*>(cell.get())) {
    auto& holder = *view->holder;
    if (!holder) holder = std::make_shared<Control>();
    holder->setCell(cell);
  }
  gtk_widget_queue_draw(GTK_WIDGET(view));
}

void cellSnapshot(GtkWidget* widget, GtkSnapshot* snapshot) {
  auto* view = TQ_CELL_VIEW(widget);
  if (!view->state || !view->cell || !*view->cell) return;
  const double width = gtk_widget_get_width(widget), height = gtk_widget_get_height(widget);
  graphene_rect_t bounds = GRAPHENE_RECT_INIT(0, 0, static_cast<float>(width), static_cast<float>(height));
  cairo_t* cr = gtk_snapshot_append_cairo(snapshot, &bounds);
  TableView& table = *view->state->table;
  Cell& cell = **view->cell;
  const Rect frame = cellFrame(table, width, height);
  // Table views are flipped: the cell draws top-down.
  auto context = GraphicsContext::graphicsContextWithCairo(cr, height, true);
  auto previous = GraphicsContext::currentContext();
  GraphicsContext::setCurrentContext(context);
  auto* text = dynamic_cast<TextFieldCell*>(&cell);
  if (view->selected) {
    // The table fills a selected row with the colour each cell asks for.
    ColorRef highlight = text ? text->highlightColorWithFrame(frame, &table) : Color::selectedControlColor();
    context->setFillColor(highlight);
    context->fillRect({0, 0, width, height}, NSCompositeSourceOver);
  }
  if (text) {
    text->drawWithFrame(frame, &table);
  } else if (cell.image() && dynamic_cast<ImageCell*>(&cell)) {
    const Size size = cell.image()->size();
    const double scale = std::min({1.0, frame.w / std::max(size.width, 1.0), frame.h / std::max(size.height, 1.0)});
    const Rect r{frame.x + (frame.w - size.width * scale) / 2, frame.y + (frame.h - size.height * scale) / 2,
                 size.width * scale, size.height * scale};
    AffineTransform t;
    t.translateXBy(0, r.y + r.h);
    t.scaleXBy(1, -1);
    context->saveState();
    context->concatTransform(t);
    cell.image()->drawInRect({r.x, 0, r.w, r.h}, {}, NSCompositeSourceOver, 1.0);
    context->restoreState();
  } else if (*view->holder) {
    Control& holder = **view->holder;
    holder.setFrame(frame);
    cairo_save(cr);
    cairo_translate(cr, frame.x, frame.y);
    drawViewInto(cr, holder, view->state->impl->options.images);
    cairo_restore(cr);
  }
  GraphicsContext::setCurrentContext(previous);
  cairo_destroy(cr);
}

void cellMeasure(GtkWidget* widget, GtkOrientation orientation, int, int* minimum, int* natural, int*, int*) {
  auto* view = TQ_CELL_VIEW(widget);
  if (!view->state) {
    *minimum = *natural = 0;
    return;
  }
  const TableView& table = *view->state->table;
  if (orientation == GTK_ORIENTATION_VERTICAL) {
    *minimum = *natural = static_cast<int>(std::lround(table.rowHeight() + table.intercellSpacing().height));
  } else {
    *minimum = 0;
    *natural = static_cast<int>(std::lround(view->column->width() + table.intercellSpacing().width));
  }
}

void cellFinalize(GObject* object) {
  auto* view = TQ_CELL_VIEW(object);
  delete view->cell;
  delete view->holder;
  G_OBJECT_CLASS(tq_cell_view_parent_class)->finalize(object);
}

}  // namespace

CellViewInfo cellViewInfo(GtkWidget* widget) {
  CellViewInfo info;
  if (!TQ_IS_CELL_VIEW(widget)) return info;
  auto* view = TQ_CELL_VIEW(widget);
  info.row = view->row;
  info.column = view->column;
  info.selected = view->selected;
  if (view->cell && *view->cell) {
    const Cell& cell = **view->cell;
    auto* space = dynamic_cast<const TQTextFieldCell*>(&cell);
    info.space = space && space->isSpace();
    info.text = info.space ? String::empty() : dynamic_cast<const ButtonCell*>(&cell) ? cell.title() : cell.stringValue();
  }
  return info;
}

TableState::~TableState() {
  if (selection) g_object_unref(selection);
  if (rows) g_object_unref(rows);
}

namespace {

GtkWidget* newCellView(TableState* state, TableColumn* column) {
  auto* view = TQ_CELL_VIEW(g_object_new(tq_cell_view_get_type(), nullptr));
  view->state = state;
  view->column = column;
  view->row = -1;
  return GTK_WIDGET(view);
}

// A click on a check box cell toggles it and hands the new state to the data source.
void cellClicked(GtkGestureClick* gesture, int, double, double, gpointer) {
  GtkWidget* widget = gtk_event_controller_get_widget(GTK_EVENT_CONTROLLER(gesture));
  auto* view = TQ_CELL_VIEW(widget);
  auto* button = view->cell ? dynamic_cast<ButtonCell*>(view->cell->get()) : nullptr;
  TableState* state = view->state;
  if (!button || !state->source || view->row < 0 || !view->column->isEditable()) return;
  if (button->buttonType() != ButtonType::Switch && button->buttonType() != ButtonType::Radio) return;
  const int next = button->state() == 1 ? 0 : 1;
  state->source->setObjectValue(*state->table, Value(next), *view->column, view->row);
  bindRow(view, view->row);
}

void setupCell(GtkSignalListItemFactory*, GtkListItem* item, gpointer data) {
  auto* pair = static_cast<std::pair<TableState*, TableColumn*>*>(data);
  GtkWidget* cell = newCellView(pair->first, pair->second);
  GtkGesture* click = gtk_gesture_click_new();
  g_signal_connect(click, "released", G_CALLBACK(cellClicked), nullptr);
  gtk_widget_add_controller(cell, GTK_EVENT_CONTROLLER(click));
  gtk_list_item_set_child(item, cell);
  g_signal_connect(item, "notify::selected", G_CALLBACK(+[](GtkListItem* li, GParamSpec*, gpointer) {
                     if (GtkWidget* child = gtk_list_item_get_child(li)) {
                       TQ_CELL_VIEW(child)->selected = gtk_list_item_get_selected(li);
                       gtk_widget_queue_draw(child);
                     }
                   }),
                   nullptr);
}

void bindCell(GtkSignalListItemFactory*, GtkListItem* item, gpointer) {
  auto* view = TQ_CELL_VIEW(gtk_list_item_get_child(item));
  view->selected = gtk_list_item_get_selected(item);
  bindRow(view, static_cast<long>(gtk_list_item_get_position(item)));
}

void unbindCell(GtkSignalListItemFactory*, GtkListItem* item, gpointer) {
  auto* view = TQ_CELL_VIEW(gtk_list_item_get_child(item));
  view->row = -1;
  *view->cell = nullptr;
  if (*view->holder) (*view->holder)->setCell(nullptr);
}

void fillRows(TableState& state) {
  const long count = state.source ? std::max(0L, state.source->numberOfRowsInTableView(*state.table)) : 0;
  std::vector<const char*> empty(static_cast<std::size_t>(count) + 1, "");
  empty.back() = nullptr;
  gtk_string_list_splice(state.rows, 0, g_list_model_get_n_items(G_LIST_MODEL(state.rows)), empty.data());
}

}  // namespace

GtkWidget* GtkPresenter::Impl::buildTable(TableView& table) {
  auto state = std::make_unique<TableState>();
  state->impl = this;
  state->table = &table;
  state->rows = gtk_string_list_new(nullptr);
  state->selection = gtk_single_selection_new(G_LIST_MODEL(g_object_ref(state->rows)));
  gtk_single_selection_set_autoselect(state->selection, FALSE);
  gtk_single_selection_set_can_unselect(state->selection, TRUE);
  gtk_single_selection_set_selected(state->selection, GTK_INVALID_LIST_POSITION);
  // The state keeps the selection, so that the host's calls stay safe after the widgets are gone.
  GtkWidget* view = gtk_column_view_new(GTK_SELECTION_MODEL(g_object_ref(state->selection)));
  gtk_widget_add_css_class(view, "tq-cells");
  gtk_column_view_set_show_row_separators(GTK_COLUMN_VIEW(view), FALSE);
  gtk_column_view_set_show_column_separators(GTK_COLUMN_VIEW(view), TRUE);
  gtk_column_view_set_reorderable(GTK_COLUMN_VIEW(view), FALSE);
  TableState* s = state.get();
  for (const auto& column : table.tableColumns()) {
    GtkListItemFactory* factory = gtk_signal_list_item_factory_new();
    auto* pair = new std::pair<TableState*, TableColumn*>(s, column.get());
    g_object_set_data_full(G_OBJECT(factory), "tq-column", pair,
                           [](gpointer p) { delete static_cast<std::pair<TableState*, TableColumn*>*>(p); });
    g_signal_connect(factory, "setup", G_CALLBACK(setupCell), pair);
    g_signal_connect(factory, "bind", G_CALLBACK(bindCell), nullptr);
    g_signal_connect(factory, "unbind", G_CALLBACK(unbindCell), nullptr);
    GtkColumnViewColumn* c = gtk_column_view_column_new(utf8(column->title()).c_str(), factory);
    gtk_column_view_column_set_fixed_width(
        c, static_cast<int>(std::lround(column->width() + table.intercellSpacing().width)));
    gtk_column_view_column_set_resizable(c, TRUE);
    gtk_column_view_column_set_visible(c, !column->isHidden());
    gtk_column_view_append_column(GTK_COLUMN_VIEW(view), c);
    TableColumn* model = column.get();
    String shown = column->title();
    addSyncer([model, c, shown]() mutable {
      if (model->title() == shown) return false;
      shown = model->title();
      gtk_column_view_column_set_title(c, utf8(shown).c_str());
      return true;
    });
    g_object_unref(c);
  }
  g_signal_connect(state->selection, "notify::selected", G_CALLBACK(+[](GtkSingleSelection*, GParamSpec*, gpointer data) {
                     auto* ts = static_cast<TableState*>(data);
                     ts->impl->controlActed(*ts->table);
                   }),
                   s);
  state->columnView = view;
  tables[&table] = std::move(state);
  return view;
}

void GtkPresenter::setDataSource(TableView& table, std::shared_ptr<TableDataSource> source) {
  auto it = impl_->tables.find(&table);
  if (it == impl_->tables.end()) return;
  it->second->source = std::move(source);
  reloadData(table);
}

void GtkPresenter::reloadData(TableView& table) {
  auto it = impl_->tables.find(&table);
  if (it == impl_->tables.end()) return;
  TableState& state = *it->second;
  const long selected = selectedRow(table);
  Impl::Pushing guard(*impl_);
  fillRows(state);
  const guint count = g_list_model_get_n_items(G_LIST_MODEL(state.rows));
  gtk_single_selection_set_selected(state.selection, selected >= 0 && static_cast<guint>(selected) < count
                                                         ? static_cast<guint>(selected)
                                                         : GTK_INVALID_LIST_POSITION);
}

long GtkPresenter::selectedRow(const TableView& table) const {
  auto it = impl_->tables.find(&table);
  if (it == impl_->tables.end()) return -1;
  const guint selected = gtk_single_selection_get_selected(it->second->selection);
  return selected == GTK_INVALID_LIST_POSITION ? -1 : static_cast<long>(selected);
}

void GtkPresenter::selectRow(TableView& table, long row) {
  auto it = impl_->tables.find(&table);
  if (it == impl_->tables.end()) return;
  Impl::Pushing guard(*impl_);
  gtk_single_selection_set_selected(it->second->selection,
                                    row < 0 ? GTK_INVALID_LIST_POSITION : static_cast<guint>(row));
}

}  // namespace tq

static void tq_cell_view_class_init(TqCellViewClass* klass) {
  G_OBJECT_CLASS(klass)->finalize = tq::cellFinalize;
  GtkWidgetClass* widget = GTK_WIDGET_CLASS(klass);
  widget->snapshot = tq::cellSnapshot;
  widget->measure = tq::cellMeasure;
}

static void tq_cell_view_init(TqCellView* view) {
  view->cell = new std::shared_ptr<tq::Cell>();
  view->holder = new std::shared_ptr<tq::Control>();
}
