#include "quality/quality.h"

#include <optional>

#include "quality/adjusted_values.h"
#include "quality/figures.h"
#include "quality/final_system.h"
#include "quality/inner_datum.h"

namespace vorn {

QualityResults find_quality(BundleProject& project, const QualityRequest& request) {
  QualityResults results = adjusted_values(project);
  if (!request.figures) return results;
  results.settings.prior = request.prior;
  results.settings.inner_datum = request.inner_datum;
  FinalSystem system(project);
  if (system.factorise() != 0) {
    results.status = RunStatus::failed;
    results.message = "The normal equations at the final values are singular.";
    return results;
  }
  if (!system.invert()) {
    results.status = RunStatus::failed;
    results.message = "The inverse of the normal equations does not fit the address space.";
    return results;
  }
  std::optional<InnerDatum> datum;
  if (request.inner_datum) {
    datum.emplace(project, system, request.datum_points);
    if (!datum->is_usable()) {
      results.status = RunStatus::failed;
      results.message = "The points of the inner datum do not fix the similarity motions.";
      return results;
    }
  }
  if (!add_figures(project, system, datum ? &*datum : nullptr, results)) {
    results.status = RunStatus::failed;
    results.message = "An observation equation cannot be formed at the final values.";
  }
  return results;
}

}  // namespace vorn
