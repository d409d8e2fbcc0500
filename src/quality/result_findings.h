#pragma once

#include <vector>

#include "quality/diagnosis.h"
#include "quality/results.h"

namespace vorn {

// Suspects whose test fails at 0.05 / number of tests and that are the worst of their image and
// point. `factor` scales the test values: 1 for sigma 0 a priori.
[[nodiscard]] std::vector<const SuspectResult*> clear_suspects(const QualityResults& results,
                                                               double factor);

// Adds to a diagnosis what only the figures of quality say: the smallest tolerances, correlated
// additional parameters, gross errors. Takes over into the results to which part of the network a
// point belongs.
void add_result_findings(QualityResults& results, Diagnosis& diagnosis);

}  // namespace vorn
