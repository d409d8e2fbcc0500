#pragma once

#include <cstdint>

#include "quality/results.h"

namespace vorn {

// Variance components of the groups (Foerstner 1979), from residuals and redundancy numbers that
// the results hold by then.
void find_groups(QualityResults& results);

// Test of the statistic v'Pv/sigma0^2 on both sides (Koch 1999).
[[nodiscard]] GlobalTest global_test(double statistic, std::int32_t degrees_of_freedom,
                                     double confidence);

// Observations that fail their test at the level alpha, the smallest probability first.
void find_suspects(QualityResults& results);

}  // namespace vorn
