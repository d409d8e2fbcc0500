#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "quality/tables.h"

namespace vorn {

// What a column needs to be there.
enum class Needs : std::uint8_t { nothing, figures };

// A column of a table: its name, its unit, and what a row of some results puts there.
template <class Row>
struct ColumnOf {
  using Put = void (*)(CellSink& sink, const Row& row, const QualityResults& results);

  std::string_view name;
  std::string_view unit;
  Needs needs;
  Put put;
};

// A table by its columns. `Rows` is a reference to rows that outlive the table, or the table keeps
// them.
template <class Row, class Rows = const std::vector<Row>&>
class TableOf final : public ResultTable {
 public:
  TableOf(std::string_view table_name, const QualityResults& results, Rows rows,
          std::span<const ColumnOf<Row>> all)
      : ResultTable(table_name), results_(results), rows_(std::forward<Rows>(rows)) {
    for (const ColumnOf<Row>& column : all) {
      if (column.needs == Needs::figures && !results.has_figures) continue;
      puts_.push_back(column.put);
      columns.push_back({column.name, column.unit});
    }
  }
  std::size_t num_rows() const override { return rows_.size(); }
  void put(std::size_t row, std::size_t column, CellSink& sink) const override {
    puts_[column](sink, rows_[row], results_);
  }

 private:
  const QualityResults& results_;
  Rows rows_;
  std::vector<typename ColumnOf<Row>::Put> puts_;
};

}  // namespace vorn
