#include "app/table_file.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

#include "text/findings.h"

namespace vorn::app {
namespace {

char separator_of(std::string_view line) {
  for (const char candidate : {';', '\t'}) {
    if (line.find(candidate) != std::string_view::npos) return candidate;
  }
  return ',';
}

bool same_word(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) ==
           std::tolower(static_cast<unsigned char>(y));
  });
}

}  // namespace

TableLine::TableLine(const exchange::Source& source, std::string_view line)
    : source_(&source), line_(line) {
  const char separator = separator_of(line);
  while (true) {
    const std::size_t end = line.find(separator);
    fields_.push_back(exchange::trimmed(line.substr(0, end)));
    if (end == std::string_view::npos) return;
    line.remove_prefix(end + 1);
  }
}

std::string_view TableLine::field(std::size_t column, std::string_view what) const {
  if (column < fields_.size() && !fields_[column].empty()) return fields_[column];
  fail(line_, std::string(what) + " is missing (field " + std::to_string(column + 1) + ")");
}

std::string TableLine::id(std::size_t column, std::string_view what) const {
  const std::string_view text = field(column, what);
  if (text.find_first_of(" \"") != std::string_view::npos || text == "-1" || text == "stop-dep") {
    fail(text, std::string(what) + ' ' + quoted(text) + " cannot be an identifier");
  }
  return std::string(text);
}

double TableLine::number(std::size_t column, std::string_view what) const {
  const std::string_view text = field(column, what);
  double value = 0.0;
  const char* const begin = text.data() + (text.front() == '+' ? 1 : 0);
  const auto [end, error] = std::from_chars(begin, text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    fail(text, "expected a number (" + std::string(what) + "), found " + quoted(text));
  }
  return value;
}

double TableLine::positive(std::size_t column, std::string_view what) const {
  const double value = number(column, what);
  if (value > 0.0) return value;
  fail(fields_[column], std::string(what) + " must be greater than 0");
}

std::vector<TableLine> lines_of_table(const exchange::Source& source, std::string_view heading) {
  std::vector<TableLine> table;
  exchange::Lines lines(source);
  bool first = true;
  for (std::string_view line; lines.next(line);) {
    const std::string_view text = exchange::trimmed(line);
    if (text.empty() || text.front() == '#') continue;
    TableLine fields(source, text);
    if (!first || !same_word(fields.text(0), heading)) table.push_back(std::move(fields));
    first = false;
  }
  return table;
}

}  // namespace vorn::app
