#pragma once

#include "quality/results.h"

namespace vorn {

class BundleProject;

// What an adjustment gives without its normal equations: residuals at the final values of the
// unknowns, their sums, counts, and the differences of check points. The redundancy is that of
// the observations that took part.
[[nodiscard]] QualityResults adjusted_values(const BundleProject& project);

}  // namespace vorn
