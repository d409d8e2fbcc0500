#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "lsq/normal/selected_inverse.h"
#include "lsq/stages/observation_equations.h"
#include "quality/results.h"

namespace vorn {

class FinalSystem;
class InnerDatum;

// What the observation equations of one image have in common: the unknowns of their columns besides
// those of object points, and the cofactors of these.
class ImageFigures {
 public:
  ImageFigures(const BundleImage& image, const FinalSystem& system);

  const BundleImage& image() const { return *image_; }
  // None where all rays are parallel.
  const std::optional<Vec3>& projection_centre() const { return projection_centre_; }
  const std::vector<std::int32_t>& blocks() const { return blocks_; }
  const std::vector<std::int32_t>& unknowns() const { return unknowns_; }
  // Of these unknowns, row by row.
  const double* cofactors() const { return cofactors_.data(); }
  // At the final values. Where the image takes packs, workers share them; otherwise they are those
  // of one worker.
  ObservationEquations& equations() const { return *equations_; }

 private:
  const BundleImage* image_;
  std::unique_ptr<ObservationEquations> equations_;
  std::optional<Vec3> projection_centre_;
  std::vector<std::int32_t> blocks_;
  std::vector<std::int32_t> unknowns_;
  std::vector<double> cofactors_;
};

// Redundancy numbers and effects of image points, for one worker.
class RayFigures {
 public:
  // `datum` is that of the effects; null for the given one.
  RayFigures(const FinalSystem& system, const InnerDatum* datum, double delta0)
      : system_(system), datum_(datum), delta0_(delta0) {}

  // An image point: its object point with the cofactors, and where its figures go.
  struct Ray {
    const ObjectPoint* point;
    const SelectedInverse::PointCofactors* cofactors;
    ImagePointResult* row;
  };
  static constexpr std::size_t kMostRays = Pack::kSize;
  // Fills r, rxy and the effects of some image points of one image, at most kMostRays. False when
  // their equations cannot be formed.
  [[nodiscard]] bool fill(const ImageFigures& of, std::span<const Ray> rays);

 private:
  // What stands in an equation's row of A for the object point, with what Q makes of the row:
  // c = Q_pr a_r of everything else, and all of Q_p a, the point's three rows.
  struct Projected {
    Vec3 a;
    Vec3 c;
    Vec3 point;
  };

  [[nodiscard]] bool form(const ImageFigures& of, std::span<const Ray> rays);
  [[nodiscard]] bool form_one_by_one(const ImageFigures& of, std::span<const Ray> rays);
  void line_up_coupling(const ImageFigures& of, std::span<const Ray> rays);
  void fill(const ImageFigures& of, const Ray& ray, std::size_t k);
  double shift(const ImageFigures& of, const Ray& ray, const Projected& projected, const Pack* rest,
               int lane) const;

  const FinalSystem& system_;
  const InnerDatum* datum_;
  double delta0_;
  // Of the rays at work.
  PackedEquations packed_;
  std::vector<double> coupling_;  // with the unknowns of the image
  PackedProjection projection_;
  PointEquation equation_;
};

}  // namespace vorn
