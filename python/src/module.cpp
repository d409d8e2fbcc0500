// The extension module vorn._core: what the package's Python side calls. It takes and gives plain
// values; vorn/__init__.py makes the objects that users see.

#include <pybind11/pybind11.h>

#include <new>

#include "adjust.h"
#include "app/exchange/export.h"
#include "app/exchange/import.h"
#include "app/exchange/source.h"
#include "app/threads/threads.h"
#include "check/check.h"
#include "conversion.h"
#include "driver/paths.h"
#include "run_scope.h"

namespace vorn::python {
namespace {

// Findings of a project that is not adjusted, and whether its control file could be read.
py::tuple check(const std::string& path) {
  FindingList findings;
  bool is_read = false;
  {
    const py::gil_scoped_release release;
    const RunScope scope;
    is_read = check_project(path, findings);
  }
  return py::make_tuple(is_read, list_of(findings));
}

// Runs what works on files alone and returns the summary that the command prints.
template <class Work>
py::str summary_of(const Work& work) {
  std::string messages;
  {
    const py::gil_scoped_release release;
    RunScope scope;
    work();
    messages = scope.messages();
  }
  return text_of(messages);
}

py::str import_project(const py::dict& options) {
  exchange::ImportRequest request;
  take(options, "format", request.format);
  take(options, "source", request.source);
  take(options, "directory", request.directory);
  take(options, "name", request.name);
  take(options, "pixel_size", request.pixel_size_um);
  take(options, "sigma", request.sigma_px);
  take(options, "free", request.free);
  take(options, "datum", request.datum);
  take(options, "scale", request.scale);
  take(options, "max_error", request.max_error_px);
  take(options, "gcp", request.control_list);
  take(options, "gcp_sigma", request.control_sigma);
  take(options, "check", request.check_points);
  return summary_of([&] { exchange::import_project(request); });
}

exchange::ExportRequest export_request(const std::string& path, const py::dict& options) {
  exchange::ExportRequest request;
  take(options, "format", request.format);
  take(options, "output", request.output);
  take(options, "pixel_size", request.pixel_size_um);
  take(options, "crs", request.crs);
  take(options, "exaggerate", request.exaggeration);
  take(options, "ellipses", request.ellipses);
  exchange::check_export(request, path);
  request.output = absolute_path(request.output);
  return request;
}

py::dict export_adjusted(const std::string& path, const py::dict& options,
                         const py::dict& run_options, const py::object& progress) {
  const exchange::ExportRequest request = export_request(path, options);
  return adjust(path, options_of(run_options), progress,
                [&](BundleProject& project) { exchange::export_project(project, request); });
}

py::str export_given(const std::string& path, const py::dict& options) {
  const exchange::ExportRequest request = export_request(path, options);
  return summary_of([&] { exchange::export_given_project(path, request); });
}

void translate(std::exception_ptr error) {
  try {
    if (error) std::rethrow_exception(error);
  } catch (const CallError& wrong) {
    PyErr_SetString(py::module_::import("vorn._core").attr("CallError").ptr(), wrong.what());
  } catch (const exchange::ExchangeError& wrong) {
    PyErr_SetString(py::module_::import("vorn._core").attr("CallError").ptr(), wrong.what());
  }
}

}  // namespace

PYBIND11_MODULE(_core, module) {
  module.doc() = "The extension module of the package vorn.";
  py::exception<CallError>(module, "CallError", PyExc_RuntimeError);
  py::register_exception_translator(translate);
  module.attr("version") = VORN_VERSION;
  module.attr("most_threads") = app::kMostThreads;
  module.def(
      "adjust",
      [](const std::string& path, const py::dict& options, const py::object& progress) {
        return adjust(path, options_of(options), progress);
      },
      py::arg("path"), py::arg("options"), py::arg("progress"));
  module.def("check", &check, py::arg("path"));
  module.def("import_project", &import_project, py::arg("options"));
  module.def("export_adjusted", &export_adjusted, py::arg("path"), py::arg("options"),
             py::arg("run_options"), py::arg("progress"));
  module.def("export_given", &export_given, py::arg("path"), py::arg("options"));
}

}  // namespace vorn::python
