// Table and outline views and their columns.
#include "tq/platform/ui/model/table_view.h"

#include <algorithm>

namespace tq {

TableColumn::TableColumn() : TableColumn(String()) {}

TableColumn::TableColumn(String identifier)
    : identifier_(std::move(identifier)),
      headerCell_(std::make_shared<TableHeaderCell>()),
      dataCell_(std::make_shared<TextFieldCell>()) {}

TableView::TableView() { setFlipped(true); }

TableView::~TableView() {
  for (const auto& column : columns_) {
    if (column->tableView_ == this) column->tableView_ = nullptr;
  }
}

void TableView::addTableColumn(std::shared_ptr<TableColumn> column) {
  if (!column) return;
  column->tableView_ = this;
  columns_.push_back(std::move(column));
}

void TableView::removeTableColumn(const std::shared_ptr<TableColumn>& column) {
  auto it = std::find(columns_.begin(), columns_.end(), column);
  if (it == columns_.end()) return;
  (*it)->tableView_ = nullptr;
  columns_.erase(it);
}

std::shared_ptr<TableColumn> TableView::tableColumnWithIdentifier(const String& identifier) const {
  for (const auto& column : columns_) {
    if (column->identifier() == identifier) return column;
  }
  return nullptr;
}

}  // namespace tq
