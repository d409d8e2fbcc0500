#pragma once

#include "quality/results.h"

namespace vorn {

class FinalSystem;
class InnerDatum;

// Fills the figures of quality into what `adjusted_values` has found: precision, reliability,
// correlations, variance components, suspects. The system is inverted by then; `datum` is that of
// the standard deviations, null for the given one. False when an observation equation cannot be
// formed.
[[nodiscard]] bool add_figures(FinalSystem& system, const InnerDatum* datum,
                               QualityResults& results);

}  // namespace vorn
