#pragma once

#include <optional>
#include <string>
#include <vector>

#include "quality/diagnosis.h"
#include "quality/results.h"

namespace vorn {

class BundleProject;

// What is asked for beyond the values of an adjustment.
struct QualityRequest {
  bool figures = true;
  bool prior = false;        // standard deviations a priori
  bool inner_datum = false;  // of the free network
  // Points over which the inner datum is formed; empty for all.
  std::vector<std::string> datum_points = {};
};

// The results of an adjustment that `project` has run through. Figures take the place of the normal
// equations of the project, which serve nothing else afterwards. Where the equations at the final
// values have no inverse, the results have no figures and the status `failed`.
[[nodiscard]] QualityResults find_quality(BundleProject& project, const QualityRequest& request);
// The same with a diagnosis of the network at the final values, where figures are asked for; both
// together take less than each for itself. It has the findings of the results, too.
[[nodiscard]] QualityResults find_quality(BundleProject& project, const QualityRequest& request,
                                          std::optional<Diagnosis>& diagnosis);

}  // namespace vorn
