#include "app/table_file.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <optional>

#include "text/findings.h"
#include "text/keywords.h"

namespace vorn::app {
namespace {

char separator_of(std::string_view line) {
  for (const char candidate : {';', '\t', ','}) {
    if (line.find(candidate) != std::string_view::npos) return candidate;
  }
  return ' ';
}

bool same_word(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) ==
           std::tolower(static_cast<unsigned char>(y));
  });
}

std::string_view without_quotes(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return text;
  return exchange::trimmed(text.substr(1, text.size() - 2));
}

std::optional<double> number_of(std::string_view text) {
  if (text.empty()) return std::nullopt;
  double value = 0.0;
  const char* const begin = text.data() + (text.front() == '+' ? 1 : 0);
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(begin, end, value);
  if (error != std::errc() || stop != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

bool is_heading(const TableLine& line, std::size_t first_number) {
  for (std::size_t k = first_number; k < line.size(); ++k) {
    if (line.is_number(k)) return false;
  }
  return line.size() > first_number;
}

void check_heading(const TableLine& heading, std::span<const std::string_view> columns) {
  for (std::size_t k = 0; k < heading.size(); ++k) {
    for (std::size_t name = 0; name < columns.size(); ++name) {
      if (name == k || !same_word(heading.text(k), columns[name])) continue;
      std::string wanted;
      for (const std::string_view column : columns) {
        wanted += (wanted.empty() ? "" : ", ") + std::string(column);
      }
      heading.fail("the columns must be " + wanted + "; here column " + std::to_string(k + 1) +
                   " is " + quoted(heading.text(k)));
    }
  }
}

}  // namespace

TableLine::TableLine(const exchange::Source& source, std::string_view line, char separator)
    : source_(&source), line_(line) {
  while (true) {
    const std::size_t end = separator == ' ' ? line.find_first_of(" \v\f") : line.find(separator);
    fields_.push_back(without_quotes(exchange::trimmed(line.substr(0, end))));
    if (end == std::string_view::npos) return;
    line.remove_prefix(end + 1);
    if (separator == ' ') line = exchange::trimmed(line);
  }
}

std::string_view TableLine::field(std::size_t column, std::string_view what) const {
  if (!text(column).empty()) return fields_[column];
  fail(std::string(what) + " is missing (column " + std::to_string(column + 1) + ")");
}

bool TableLine::is_number(std::size_t column) const { return number_of(text(column)).has_value(); }

std::string TableLine::id(std::size_t column, std::string_view what) const {
  const std::string_view id = field(column, what);
  if (id.find_first_of(" \t\"") != std::string_view::npos || id == "-1" || id == kEndWord) {
    fail(std::string(what) + ' ' + quoted(id) + " cannot be an identifier");
  }
  return std::string(id);
}

double TableLine::number(std::size_t column, std::string_view what) const {
  const std::string_view word = field(column, what);
  if (const std::optional<double> value = number_of(word)) return *value;
  const bool has_comma = word.find(',') != std::string_view::npos;
  fail("expected a number (" + std::string(what) + "), found " + quoted(word) +
       (has_comma ? "; write decimal points, not commas" : ""));
}

double TableLine::positive(std::size_t column, std::string_view what) const {
  const double value = number(column, what);
  if (value > 0.0) return value;
  fail(std::string(what) + " must be greater than 0");
}

std::vector<TableLine> lines_of_table(const exchange::Source& source,
                                      std::span<const std::string_view> columns,
                                      std::size_t first_number) {
  if (source.content().find('\0') != std::string_view::npos) {
    source.fail(std::size_t{0}, "this is no plain text (UTF-16?); save it as UTF-8");
  }
  std::vector<TableLine> table;
  exchange::Lines lines(source);
  char separator = 0;
  for (std::string_view line; lines.next(line);) {
    const std::string_view text = exchange::trimmed(line);
    if (text.empty() || text.front() == '#') continue;
    const bool first = separator == 0;
    if (first) separator = separator_of(text);
    TableLine fields(source, text, separator);
    if (first && is_heading(fields, first_number)) {
      check_heading(fields, columns);
    } else {
      table.push_back(std::move(fields));
    }
  }
  return table;
}

}  // namespace vorn::app
