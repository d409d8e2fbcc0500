#include "conversion.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "report/run_ending.h"

namespace vorn::python {
namespace {

enum class CellKind : std::uint8_t { number, count, flag, text };

CellKind kind_of(std::string_view unit) {
  if (unit == "id" || unit == "text") return CellKind::text;
  if (unit == "count") return CellKind::count;
  return unit == "flag" ? CellKind::flag : CellKind::number;
}

// The cells of one column of one kind.
class ColumnCells final : public CellSink {
 public:
  ColumnCells(CellKind kind, std::size_t rows) : kind_(kind), texts_(is_text() ? rows : 0) {
    if (!is_text()) numbers_.reserve(rows);
  }
  void number(double value) override {
    constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
    numbers_.push_back(std::isfinite(value) ? value : kNone);
  }
  void short_number(double value) override { number(value); }
  void count(std::int64_t value) override { numbers_.push_back(static_cast<double>(value)); }
  void flag(bool value) override { numbers_.push_back(value ? 1.0 : 0.0); }
  void text(std::string_view value) override { texts_.set(row_++, value); }
  void undefined() override {
    if (is_text()) {
      ++row_;  // the array was made of None
    } else {
      number(std::numeric_limits<double>::quiet_NaN());
      complete_ = false;
    }
  }
  [[nodiscard]] py::array take() {
    if (is_text()) return texts_.take();
    py::array_t<double> array(static_cast<py::ssize_t>(numbers_.size()), numbers_.data());
    // Integers have no value for what is not defined.
    if (!complete_ || kind_ == CellKind::number) return array;
    return array.attr("astype")(kind_ == CellKind::flag ? "bool" : "int64");
  }

 private:
  [[nodiscard]] bool is_text() const { return kind_ == CellKind::text; }

  CellKind kind_;
  TextArray texts_;
  std::size_t row_ = 0;
  std::vector<double> numbers_;
  bool complete_ = true;
};

double largest(const GroupChange& change) {
  return change.count > 0 ? change.max : std::numeric_limits<double>::quiet_NaN();
}

}  // namespace

py::str text_of(std::string_view text) {
  const auto size = static_cast<py::ssize_t>(text.size());
  PyObject* object = PyUnicode_DecodeUTF8(text.data(), size, "strict");
  if (object == nullptr) {
    PyErr_Clear();
    object = PyUnicode_DecodeLatin1(text.data(), size, nullptr);
    if (object == nullptr) throw py::error_already_set();
  }
  return py::reinterpret_steal<py::str>(object);
}

TextArray::TextArray(std::size_t size)
    : array_(py::module_::import("numpy").attr("full")(size, py::none(), py::dtype("O"))),
      data_(static_cast<PyObject**>(array_.mutable_data())) {}

void TextArray::set(std::size_t i, std::string_view text) {
  if (!last_object_ || text != last_) {
    last_ = text;
    last_object_ = text_of(text);
  }
  Py_INCREF(last_object_.ptr());
  Py_DECREF(data_[i]);
  data_[i] = last_object_.ptr();
}

py::dict dict_of(const ResultTable& table) {
  py::dict columns;
  py::dict units;
  const std::size_t rows = table.num_rows();
  for (std::size_t column = 0; column < table.columns.size(); ++column) {
    const auto& [name, unit] = table.columns[column];
    ColumnCells cells(kind_of(unit), rows);
    for (std::size_t row = 0; row < rows; ++row) table.put(row, column, cells);
    columns[text_of(name)] = cells.take();
    units[text_of(name)] = text_of(unit);
  }
  py::dict result;
  result["columns"] = columns;
  result["units"] = units;
  return result;
}

py::dict dict_of(const Finding& finding) {
  py::dict result;
  result["severity"] = text_of(name_of(finding.severity()));
  result["code"] = text_of(name_of(finding.code));
  result["file"] = text_of(finding.file);
  result["line"] = finding.line;
  result["column"] = finding.column;
  result["object_type"] = text_of(finding.object.type);
  result["object_id"] = text_of(finding.object.id);
  result["image"] = text_of(finding.object.image);
  result["parameter"] = text_of(finding.object.parameter);
  result["message"] = text_of(finding.message);
  result["help"] = text_of(finding.help);
  return result;
}

py::list list_of(const FindingList& findings) {
  py::list result;
  for (const Finding& finding : findings.findings()) result.append(dict_of(finding));
  return result;
}

py::dict dict_of(const IterationStatistics& statistics) {
  py::dict result;
  result["number"] = statistics.number;
  result["sigma0"] = statistics.sigma0;
  result["vtpv"] = statistics.vtpv;
  result["redundancy"] = statistics.counts.value();
  result["max_change_point"] = largest(statistics.points);
  result["max_change_centre"] = largest(statistics.centres);
  result["max_change_rotation"] = largest(statistics.rotations);
  result["max_change_geometry"] = largest(statistics.geometries);
  py::object moving = py::none();
  if (statistics.open_object != nullptr) {
    const NamedParameter open = open_parameter(statistics);
    moving = py::make_tuple(text_of(open.kind), text_of(open.id), text_of(open.name));
  }
  result["moving"] = moving;
  return result;
}

}  // namespace vorn::python
