#include "quality/quality.h"

#include <optional>

#include "quality/adjusted_values.h"
#include "quality/figures.h"
#include "quality/final_system.h"
#include "quality/inner_datum.h"
#include "quality/result_findings.h"

namespace vorn {

namespace {

void fail(QualityResults& results, const char* message) {
  results.status = RunStatus::failed;
  results.message = message;
}

// Adds the figures and the diagnosis that they bring along, unless it is null; none where it takes
// more.
void add_all_figures(BundleProject& project, const QualityRequest& request, QualityResults& results,
                     std::optional<Diagnosis>* diagnosis) {
  results.settings.prior = request.prior;
  results.settings.inner_datum = request.inner_datum;
  FinalSystem system(project);
  if (system.factorise() != 0) {
    return fail(results, "The normal equations at the final values are singular.");
  }
  if (!system.invert()) {
    return fail(results, "The inverse of the normal equations does not fit the address space.");
  }
  std::optional<InnerDatum> datum;
  if (request.inner_datum) {
    datum.emplace(project, system, request.datum_points);
    if (!datum->is_usable()) {
      return fail(results, "The points of the inner datum do not fix the similarity motions.");
    }
  }
  if (!add_figures(system, datum ? &*datum : nullptr, results)) {
    return fail(results, "An observation equation cannot be formed at the final values.");
  }
  if (diagnosis == nullptr) return;
  std::vector<double> angles;
  for (const PointResult& row : results.points) angles.push_back(row.angle);
  *diagnosis = diagnose_sound(project, system, angles);
}

}  // namespace

QualityResults find_quality(BundleProject& project, const QualityRequest& request) {
  QualityResults results = adjusted_values(project);
  if (request.figures) add_all_figures(project, request, results, nullptr);
  return results;
}

QualityResults find_quality(BundleProject& project, const QualityRequest& request,
                            std::optional<Diagnosis>& diagnosis) {
  QualityResults results = adjusted_values(project);
  if (!request.figures) return results;
  add_all_figures(project, request, results, &diagnosis);
  if (!diagnosis) diagnosis = diagnose(project);
  if (results.has_figures) add_result_findings(results, *diagnosis);
  return results;
}

}  // namespace vorn
