#pragma once

#include "quality/results.h"

namespace vorn {

class BundleProject;

// Settings and limits of a run by the least-squares parameters that are in force.
[[nodiscard]] QualitySettings settings_of_run(bool rigorous);

// What an adjustment gives without its normal equations: residuals at the final values of the
// unknowns, their sums, counts, and the differences of check points. The redundancy is that of
// the observations that took part.
[[nodiscard]] QualityResults adjusted_values(const BundleProject& project);

}  // namespace vorn
