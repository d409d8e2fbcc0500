#pragma once

#include <pybind11/pybind11.h>

#include <functional>
#include <string>
#include <vector>

#include "driver/run.h"

namespace vorn::python {

// What the package's `adjust` and `export_project` take.
struct AdjustOptions {
  AdjustmentSettings settings{};
  bool figures = true;  // of quality
  bool prior = false;
  bool inner_datum = false;
  std::vector<std::string> datum_points;
  std::string exclusions;  // file of a list; empty for none
  bool with_cameras = false;
  bool lenient = false;
  bool allow_outside = false;
  std::size_t threads = 0;  // 0 for one per core
};
[[nodiscard]] AdjustOptions options_of(const pybind11::dict& from);

// Adjusts a project and returns what it came to: "completed", "messages", "findings", "obstacles",
// and so on; of a completed run also what `results_of` gives. `progress`, if not None, is called
// with a dict at each stage, with the progress of stages and after each iteration; False ends the
// iterations. What it raises ends the run and is raised here, as is an interrupt from the keyboard.
// `inspect`, where given, sees the adjusted project in place of `results_of`.
[[nodiscard]] pybind11::dict adjust(const std::string& path, const AdjustOptions& options,
                                    const pybind11::object& progress,
                                    const std::function<void(BundleProject&)>& inspect = nullptr);

}  // namespace vorn::python
