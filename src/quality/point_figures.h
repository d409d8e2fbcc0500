#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "geometry/vec3.h"
#include "lsq/normal/selected_inverse.h"
#include "quality/correlation_list.h"
#include "quality/image_figures.h"
#include "quality/results.h"

namespace vorn {

class FinalSystem;
class InnerDatum;

// 1 / sqrt(variance), 0 where there is none.
[[nodiscard]] inline double inverse_root(double variance) {
  return variance > 0.0 ? 1.0 / std::sqrt(variance) : 0.0;
}

// The smallest 1/(N_ii Q_ii), ascending; those of one size in the order of their unknowns.
class SmallestTolerances {
 public:
  void see(const Unknown& unknown, double value) { see(ToleranceResult{unknown, value}); }
  void see(const ToleranceResult& seen);
  const std::vector<ToleranceResult>& list() const { return list_; }

 private:
  static constexpr std::size_t kListed = 10;
  std::vector<ToleranceResult> list_;
};

// What the figures of all object points have in common; it stays as it is.
struct PointFiguresInput {
  // An image point of a batch of object points.
  struct Ray {
    std::uint32_t row;    // among the image points
    std::uint32_t place;  // of the object point in the batch
  };

  const FinalSystem* system = nullptr;
  const InnerDatum* datum = nullptr;  // null for the given one
  double scale = 0.0;                 // of all cofactors, sigma0^2 [m2]
  std::int32_t first_reduced = 0;
  std::vector<double> inverse_sds;     // 1 / sqrt(Q_ii) of the reduced part; 0 for fixed unknowns
  std::vector<ImageFigures> images;    // in the order of the results
  std::vector<std::size_t> first_ray;  // of each batch, and the end
  std::vector<Ray> rays;               // batch by batch, within a batch image by image

  // The image points by the batches of their object points.
  void list_rays(const QualityResults& results);
  std::span<const Ray> rays_of(std::size_t batch) const {
    return std::span(rays).subspan(first_ray[batch], first_ray[batch + 1] - first_ray[batch]);
  }
  // Whether workers can share the equations of all images.
  bool can_be_shared() const;
  // q_S - q of two unknowns.
  double datum_change(std::int32_t i, std::int32_t j) const;
};

// The figures of object points and of their image points, batch by batch, for one worker: the
// cofactors of a point with the blocks that it meets serve all its rays.
class PointFigures {
 public:
  PointFigures(const PointFiguresInput& input, QualityResults& results)
      : input_(input),
        results_(results),
        rays_(*input.system, input.datum, results.settings.delta0),
        correlations_(results.settings.correlation_limit) {}

  // Fills in the results of the points of a batch and of their image points.
  void find(std::size_t batch, std::span<const SelectedInverse::PointCofactors> cofactors);

  // False when an observation equation could not be formed.
  bool all_formed() const { return all_formed_; }
  // Of all batches so far.
  const CorrelationList& correlations() const { return correlations_; }
  const SmallestTolerances& tolerances() const { return tolerances_; }

 private:
  void find_precision(PointResult& point, const SelectedInverse::PointCofactors& cofactors);
  void see_correlations(const PointResult& row, const SelectedInverse::PointCofactors& cofactors);
  [[nodiscard]] bool find_rays(std::span<const PointFiguresInput::Ray> rays,
                               std::span<const SelectedInverse::PointCofactors> cofactors);
  void add_directions(const ImageFigures& image, std::span<const PointFiguresInput::Ray> rays);

  const PointFiguresInput& input_;
  QualityResults& results_;
  RayFigures rays_;
  CorrelationList correlations_;
  SmallestTolerances tolerances_;
  bool all_formed_ = true;
  // Of the running batch.
  std::vector<PointResult*> points_;
  std::vector<std::vector<Vec3>> directions_;  // of the rays of each point
  bool has_directions_[kBatchPoints];
};

}  // namespace vorn
