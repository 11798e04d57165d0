#include "lumo/value/table.h"

#include "lumo/value/content_release.h"

namespace TAVU::lumo {

Table::Table(const Table& other, CopyDepth depth)
    : columns_(other.columns_), index_(other.index_, depth) {
  rows_.reserve(other.rows_.size());
  for (const List& row : other.rows_) rows_.emplace_back(row, depth);
}

Table::~Table() {
  ContentRelease release;
  release.Empty(*this);
}

void Table::AddColumn(std::string_view name, ValueType type) {
  columns_.push_back({base::HeapText(name), type});
}

List& Table::AddRow() {
  return rows_.emplace_back();
}

const ColumnInfo& Table::column(std::size_t index) const noexcept {
  return index < columns_.size() ? columns_[index] : no_column_;
}

const List& Table::row(std::size_t index) const noexcept {
  return index < rows_.size() ? rows_[index] : no_row_;
}

const Value& Table::cell(std::size_t row_index, std::size_t column_index) const noexcept {
  const List& cells = row(row_index);
  return column_index < cells.size() ? cells[column_index] : no_cell_;
}

}  // namespace TAVU::lumo
