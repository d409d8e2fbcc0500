#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "quality/results.h"

namespace vorn {

// Takes the cells of a table, one by one.
class CellSink {
 public:
  CellSink() = default;
  CellSink(const CellSink&) = delete;
  CellSink& operator=(const CellSink&) = delete;
  virtual ~CellSink() = default;

  // Numbers that are not finite stand for what is not defined.
  virtual void number(double value) = 0;
  // A number of which nine significant digits are enough.
  virtual void short_number(double value) = 0;
  virtual void count(std::int64_t value) = 0;
  virtual void flag(bool value) = 0;
  virtual void text(std::string_view value) = 0;
  virtual void undefined() = 0;
};

// A table of results as documents show it: a view of the rows, which outlive it.
class ResultTable {
 public:
  // Name and unit ("m", "m2", "rad", "1") or kind ("id", "text", "count", "flag") of a column;
  // "unit" says that each row has its own.
  struct Column {
    std::string_view name;
    std::string_view unit;
  };

  explicit ResultTable(std::string_view table_name) : name(table_name) {}
  ResultTable(const ResultTable&) = delete;
  ResultTable& operator=(const ResultTable&) = delete;
  virtual ~ResultTable() = default;

  [[nodiscard]] virtual std::size_t num_rows() const = 0;
  virtual void put(std::size_t row, std::size_t column, CellSink& sink) const = 0;

  std::string_view name;
  std::vector<Column> columns;
};

// All tables in the order of the document. Results without figures of quality give the tables and
// columns that need none.
[[nodiscard]] std::vector<std::unique_ptr<ResultTable>> tables_of(const QualityResults& results);

}  // namespace vorn
