#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/exchange/source.h"

namespace vorn::app {

// A line of a table of values. What cannot be read throws an ExchangeError with the file, the line,
// and what was wanted.
class TableLine {
 public:
  // A separator ' ' stands for any number of blanks.
  TableLine(const exchange::Source& source, std::string_view line, char separator);

  [[nodiscard]] std::size_t size() const { return fields_.size(); }
  // Without quotation marks around it; empty where the line has no such field.
  [[nodiscard]] std::string_view text(std::size_t column) const {
    return column < fields_.size() ? fields_[column] : std::string_view();
  }
  [[nodiscard]] bool is_number(std::size_t column) const;
  // An identifier, without blanks inside.
  [[nodiscard]] std::string id(std::size_t column, std::string_view what) const;
  // A finite number, the whole field long.
  [[nodiscard]] double number(std::size_t column, std::string_view what) const;
  // The same where it must be greater than 0.
  [[nodiscard]] double positive(std::size_t column, std::string_view what) const;
  [[noreturn]] void fail(const std::string& message) const { source_->fail(line_.data(), message); }

 private:
  [[nodiscard]] std::string_view field(std::size_t column, std::string_view what) const;

  const exchange::Source* source_;
  std::string_view line_;
  std::vector<std::string_view> fields_;
};

// The lines of a table. Its first line tells what stands between fields: a semicolon, a tab, a
// comma, or blanks. Empty lines and those that begin with '#' are left out, and a first line
// without a number in the columns from `first_number` on, which is a heading; one that has the
// names of `columns` in another order is refused.
[[nodiscard]] std::vector<TableLine> lines_of_table(const exchange::Source& source,
                                                    std::span<const std::string_view> columns,
                                                    std::size_t first_number);

}  // namespace vorn::app
