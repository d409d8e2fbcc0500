#pragma once

#include "text/text_writer.h"

namespace vorn {

class BundleProject;

// Minimises the weighted sum of squares by damped steps (Levenberg 1944, Marquardt 1963, with the
// gain ratio of Nielsen 1999): a step is taken only when the sum falls, evaluated anew from the
// misclosures. Starts with reweighted observations where a robust loss is asked for. Ends with the
// undamped normal equations at the final values. 1, or -1 with a message in the report.
[[nodiscard]] int iterate_damped(BundleProject& project, TextWriter& report);

}  // namespace vorn
