#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "app/exchange/source.h"

namespace vorn::app {

// A line of a table of comma-separated values. What cannot be read throws an ExchangeError with the
// file, the line, and what was wanted.
class TableLine {
 public:
  TableLine(const exchange::Source& source, std::string_view line);

  [[nodiscard]] std::size_t size() const { return fields_.size(); }
  // An identifier, without blanks inside.
  [[nodiscard]] std::string id(std::size_t column, std::string_view what) const;
  // A finite number, the whole field long.
  [[nodiscard]] double number(std::size_t column, std::string_view what) const;
  // The same where it must be greater than 0.
  [[nodiscard]] double positive(std::size_t column, std::string_view what) const;
  [[nodiscard]] std::string_view text(std::size_t column) const { return fields_[column]; }
  [[noreturn]] void fail(std::string_view at, const std::string& message) const {
    source_->fail(at.data(), message);
  }

 private:
  [[nodiscard]] std::string_view field(std::size_t column, std::string_view what) const;

  const exchange::Source* source_;
  std::string_view line_;
  std::vector<std::string_view> fields_;
};

// The lines of a table: fields between commas, or between semicolons or tabs where there are some.
// Empty lines and those that begin with '#' are left out, and a first line that begins with
// `heading` ("image"), in any case of letters.
[[nodiscard]] std::vector<TableLine> lines_of_table(const exchange::Source& source,
                                                    std::string_view heading);

}  // namespace vorn::app
