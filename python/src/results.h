#pragma once

#include <pybind11/pybind11.h>

#include "quality/quality.h"

namespace vorn {

class BundleProject;
struct Diagnosis;

namespace python {

// Everything about an adjusted project: the keys "document" (JSON without tables), "tables",
// "orientations", "cameras", "image_coordinates". Takes the interpreter's lock itself.
[[nodiscard]] pybind11::dict results_of(const BundleProject& project, const QualityResults& results,
                                        const Diagnosis* diagnosis);
// The document of a run that failed, as JSON.
[[nodiscard]] pybind11::str document_of_failure(const Diagnosis& diagnosis);

}  // namespace python
}  // namespace vorn
