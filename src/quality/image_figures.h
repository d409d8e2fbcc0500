#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "lsq/normal/selected_inverse.h"
#include "lsq/stages/observation_equations.h"
#include "quality/results.h"

namespace vorn {

class FinalSystem;
class InnerDatum;

// Redundancy numbers and effects of the image points of one image: its observation equations, and
// what they have in common, the cofactors of all unknowns but those of the object points.
class ImageFigures {
 public:
  // `datum` is that of the effects; null for the given one.
  ImageFigures(const BundleImage& image, const FinalSystem& system, const InnerDatum* datum);

  // Fills r, rxy and the effects into a row, given the cofactors of its object point. False when
  // the equation cannot be formed.
  [[nodiscard]] bool fill(const ObjectPoint& point,
                          const SelectedInverse::PointCofactors& cofactors, double delta0,
                          ImagePointResult& row);

 private:
  // Q a' of one of the two equations: the point's three rows, and those of everything else.
  struct Projected {
    Vec3 point{};
    std::vector<double> rest;
  };

  void gather_coupling(const SelectedInverse::PointCofactors& cofactors);
  void project(std::size_t equation, const SelectedInverse::PointCofactors& cofactors,
               Projected& projected) const;
  double product(std::size_t equation, const Projected& projected) const;
  double shift(std::size_t equation, const ObjectPoint& point, const Projected& projected) const;

  const FinalSystem& system_;
  const InnerDatum* datum_;
  const BundleImage& image_;
  ObservationEquations equations_;
  PointEquation equation_;
  std::vector<std::int32_t> blocks_;
  std::vector<std::int32_t> unknowns_;  // of the columns of the design rows
  std::size_t width_ = 0;
  std::vector<double> cofactors_;  // width x width
  std::vector<double> coupling_;   // 3 x width: the point with the unknowns of the image
  Projected projected_[2];
};

}  // namespace vorn
