#pragma once

#include "quality/results.h"

namespace vorn {

class BundleProject;
class FinalSystem;

// Fills the figures of quality into what `adjusted_values` has found: precision, reliability,
// correlations, variance components, suspects. The system is factorised by then. False when an
// observation equation cannot be formed.
[[nodiscard]] bool add_figures(const BundleProject& project, FinalSystem& system,
                               QualityResults& results);

}  // namespace vorn
