#pragma once

#include <cstdint>
#include <memory>
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
  const std::vector<std::int32_t>& blocks() const { return blocks_; }
  const std::vector<std::int32_t>& unknowns() const { return unknowns_; }
  // Rows and columns of the cofactors, filled up with zeros to those of the design rows.
  std::int32_t stride() const { return stride_; }
  const double* cofactors() const { return cofactors_.data(); }

 private:
  const BundleImage* image_;
  std::vector<std::int32_t> blocks_;
  std::vector<std::int32_t> unknowns_;
  std::int32_t stride_ = 0;
  std::vector<double> cofactors_;
};

// Redundancy numbers and effects of image points, one after the other.
class RayFigures {
 public:
  // `datum` is that of the effects; null for the given one.
  RayFigures(const std::vector<ImageFigures>& images, const FinalSystem& system,
             const InnerDatum* datum);

  // Fills r, rxy and the effects into a row, given the cofactors of its object point. False when
  // the equation cannot be formed.
  [[nodiscard]] bool fill(const ObjectPoint& point,
                          const SelectedInverse::PointCofactors& cofactors, double delta0,
                          ImagePointResult& row);

 private:
  // An equation's row of A, in two parts, with what Q makes of it: c = Q_pr a_r of everything else,
  // and all of Q_p a, the point's three rows.
  struct Projected {
    Vec3 a{};
    const double* rest = nullptr;
    Vec3 c{};
    Vec3 point{};
  };

  ObservationEquations& equations_of(std::int32_t image);
  void gather_coupling(const ImageFigures& of, const SelectedInverse::PointCofactors& cofactors);
  Projected project(std::size_t equation, const ImageFigures& of,
                    const SelectedInverse::PointCofactors& cofactors) const;
  double shift(const ImageFigures& of, const ObjectPoint& point, const Projected& projected) const;

  const std::vector<ImageFigures>& images_;
  const FinalSystem& system_;
  const InnerDatum* datum_;
  std::vector<std::unique_ptr<ObservationEquations>> equations_;  // of the images met so far
  PointEquation equation_;
  std::vector<double> coupling_;  // 3 rows: the point with the unknowns of the image
};

}  // namespace vorn
