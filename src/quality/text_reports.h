#pragma once

#include "quality/results.h"
#include "text/text_writer.h"

namespace vorn {

// The two readable files beside the quality document.

// `<base>.prec`: standard deviations, ellipsoids, calibration, correlations.
void print_precision(TextWriter& out, const QualityResults& results);
// `<base>.rel`: redundancy numbers, tests, smallest detectable errors, variance components.
void print_reliability(TextWriter& out, const QualityResults& results);

}  // namespace vorn
