#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "geometry/vec3.h"
#include "lsq/normal/selected_inverse.h"
#include "quality/correlation_list.h"
#include "quality/image_figures.h"
#include "quality/results.h"

namespace vorn {

class BundleProject;
class FinalSystem;
class InnerDatum;

// 1 / sqrt(variance), 0 where there is none.
[[nodiscard]] inline double inverse_root(double variance) {
  return variance > 0.0 ? 1.0 / std::sqrt(variance) : 0.0;
}

// The smallest 1/(N_ii Q_ii), ascending; those of one size in the order of their unknowns.
class SmallestTolerances {
 public:
  void see(const Unknown& unknown, double value);
  const std::vector<ToleranceResult>& list() const { return list_; }

 private:
  static constexpr std::size_t kListed = 10;
  std::vector<ToleranceResult> list_;
};

// What the figures of all object points have in common; it stays as it is.
struct PointFiguresInput {
  const FinalSystem* system = nullptr;
  const InnerDatum* datum = nullptr;  // null for the given one
  double scale = 0.0;                 // of all cofactors, sigma0^2 [m2]
  std::int32_t first_reduced = 0;
  std::vector<double> inverse_sds;     // 1 / sqrt(Q_ii) of the reduced part; 0 for fixed unknowns
  std::vector<ImageFigures> images;    // in the order of the results
  std::vector<std::size_t> first_ray;  // of each point, and the end
  std::vector<std::uint32_t> rays;     // rows of the image points

  // The image points by their object points.
  void list_rays(const BundleProject& project, const QualityResults& results);
  // q_S - q of two unknowns.
  double datum_change(std::int32_t i, std::int32_t j) const;
};

// The figures of object points and of their image points, one point after the other: the cofactors
// of a point with the blocks that it meets serve all its rays.
class PointFigures {
 public:
  PointFigures(const PointFiguresInput& input, QualityResults& results,
               CorrelationList& correlations, SmallestTolerances& tolerances)
      : input_(input),
        results_(results),
        rays_(input.images, *input.system, input.datum),
        correlations_(correlations),
        tolerances_(tolerances) {}

  // False when an observation equation cannot be formed.
  [[nodiscard]] bool find(const SelectedInverse::PointCofactors& cofactors);

 private:
  void find_precision(PointResult& point, const SelectedInverse::PointCofactors& cofactors);
  void see_correlations(const PointResult& row, const SelectedInverse::PointCofactors& cofactors);
  [[nodiscard]] bool find_rays(PointResult& point,
                               const SelectedInverse::PointCofactors& cofactors);
  double largest_angle() const;

  const PointFiguresInput& input_;
  QualityResults& results_;
  RayFigures rays_;
  CorrelationList& correlations_;
  SmallestTolerances& tolerances_;
  std::vector<Vec3> directions_;  // of the rays of one point
};

}  // namespace vorn
