// Rows of cells under named, typed columns. Access out of range never fails: it gives an unnamed
// column of type null, an empty row, or a null cell.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/allocator.h"
#include "base/heap_allocator.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/value.h"

namespace TAVU::lumo {

struct ColumnInfo {
  base::HeapText name;
  ValueType type = ValueType::kNull;  // declared; cells are not held to it
};

class Table : public base::FromDefaultAllocator {
 public:
  Table() = default;
  Table(const Table& other, CopyDepth depth);
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;
  ~Table();

  void AddColumn(std::string_view name, ValueType type);
  // Adds an empty row. The reference is valid until the next row is added.
  List& AddRow();

  [[nodiscard]] std::size_t column_count() const noexcept { return columns_.size(); }
  [[nodiscard]] std::size_t row_count() const noexcept { return rows_.size(); }
  [[nodiscard]] const ColumnInfo& column(std::size_t index) const noexcept;
  [[nodiscard]] const List& row(std::size_t index) const noexcept;
  [[nodiscard]] const Value& cell(std::size_t row, std::size_t column) const noexcept;

 private:
  friend class ContentRelease;

  base::HeapVector<ColumnInfo> columns_;
  Map index_;  // travels with the table; no operation reads it
  base::HeapVector<List> rows_;
  ColumnInfo no_column_;  // what access out of range gives
  List no_row_;
  Value no_cell_;
  Table* next_released_ = nullptr;  // while the table waits to be freed
};

}  // namespace TAVU::lumo
