#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>
#include <string_view>

#include "geometry/vec3.h"
#include "lsq/stages/statistics.h"
#include "quality/tables.h"
#include "text/findings.h"

// What the package's Python side takes: dicts of plain values and numpy arrays. All of these need
// the interpreter's lock.

namespace vorn::python {

namespace py = pybind11;

// Text of a project as str; bytes that are no UTF-8 are taken as Latin-1.
[[nodiscard]] py::str text_of(std::string_view text);

// {"columns": {name: array}, "units": {name: unit}}. Texts are arrays of str, where nothing is
// defined None; counts int64, flags bool, numbers float64 with NaN for what is not defined.
[[nodiscard]] py::dict dict_of(const ResultTable& table);
[[nodiscard]] py::dict dict_of(const Finding& finding);
[[nodiscard]] py::list list_of(const FindingList& findings);
[[nodiscard]] py::dict dict_of(const IterationStatistics& statistics);

// The value of an option, where it is given.
template <class Value>
void take(const py::dict& from, const char* key, Value& to) {
  if (from.contains(key)) to = from[key].cast<Value>();
}

// An array of strings; repeated ones in a row share an object.
class TextArray {
 public:
  explicit TextArray(std::size_t size);
  void set(std::size_t i, std::string_view text);
  [[nodiscard]] py::array take() { return std::move(array_); }

 private:
  py::array array_;
  PyObject** data_;
  std::string last_;
  py::object last_object_;
};

}  // namespace vorn::python
