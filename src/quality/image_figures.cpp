#include "quality/image_figures.h"

#include <algorithm>
#include <cmath>

#include "quality/final_system.h"
#include "quality/inner_datum.h"
#include "sensors/camera.h"

namespace vorn {

ImageFigures::ImageFigures(const BundleImage& image, const FinalSystem& system,
                           const InnerDatum* datum)
    : system_(system),
      datum_(datum),
      image_(image),
      equations_(image, Derivatives::exact),
      blocks_(blocks_of(image, system.normal())) {
  const NormalMatrix& normal = system.normal();
  for (const std::int32_t block : blocks_) {
    for (std::int32_t k = 0; k < normal.block_width(block); ++k) {
      unknowns_.push_back(normal.block_index(block) + k);
    }
  }
  width_ = unknowns_.size();
  cofactors_.reserve(width_ * width_);
  for (const std::int32_t i : unknowns_) {
    for (const std::int32_t j : unknowns_) cofactors_.push_back(system.cofactor(i, j));
  }
  coupling_.resize(3 * width_);
  for (Projected& projected : projected_) projected.rest.resize(width_);
}

// The cofactors of the point with the unknowns of the image, out of those with all blocks.
void ImageFigures::gather_coupling(const SelectedInverse::PointCofactors& cofactors) {
  const NormalMatrix& normal = system_.normal();
  double* out = coupling_.data();
  for (const std::int32_t block : blocks_) {
    const std::int32_t n = normal.block_width(block);
    const std::int32_t column = normal.coupling_start(cofactors.point, block) / 3;
    for (std::int32_t r = 0; r < 3; ++r) {
      std::copy_n(cofactors.coupled + r * cofactors.width + column, n,
                  out + static_cast<std::size_t>(r) * width_);
    }
    out += n;
  }
}

// Q a', of the rows of Q that the equation touches.
void ImageFigures::project(std::size_t equation, const SelectedInverse::PointCofactors& cofactors,
                           Projected& projected) const {
  const double* const ap = equation_.point + 3 * equation;
  const double* const ar =
      equation_.rows.data() + equation * static_cast<std::size_t>(equation_.stride);
  for (std::size_t r = 0; r < 3; ++r) {
    const double* const q = cofactors.own[r];
    projected.point[r] = q[0] * ap[0] + q[1] * ap[1] + q[2] * ap[2];
  }
  const double* const c = coupling_.data();
  for (std::size_t j = 0; j < width_; ++j) {
    for (std::size_t r = 0; r < 3; ++r) projected.point[r] += c[r * width_ + j] * ar[j];
    double sum = ap[0] * c[j] + ap[1] * c[width_ + j] + ap[2] * c[2 * width_ + j];
    const double* const q = cofactors_.data() + j * width_;
    for (std::size_t k = 0; k < width_; ++k) sum += q[k] * ar[k];
    projected.rest[j] = sum;
  }
}

// a Q a' of an equation and the one that was projected.
double ImageFigures::product(std::size_t equation, const Projected& projected) const {
  const double* const ap = equation_.point + 3 * equation;
  const double* const ar =
      equation_.rows.data() + equation * static_cast<std::size_t>(equation_.stride);
  double sum = ap[0] * projected.point[0] + ap[1] * projected.point[1] + ap[2] * projected.point[2];
  for (std::size_t j = 0; j < width_; ++j) sum += ar[j] * projected.rest[j];
  return sum;
}

bool ImageFigures::fill(const ObjectPoint& point, const SelectedInverse::PointCofactors& cofactors,
                        double delta0, ImagePointResult& row) {
  const Observation observation = observation_of(*row.point, *image_.camera);
  if (equations_.linearise(observation, point.xyz, equation_) !=
      ObservationEquations::Outcome::formed) {
    return false;
  }
  gather_coupling(cofactors);
  project(0, cofactors, projected_[0]);
  project(1, cofactors, projected_[1]);
  // R = I - P^1/2 A Q A' P^1/2 (Foerstner 1987), P = diag((sigma0/s)^2).
  const double sigma0 = system_.sigma0_prior();
  const double root[2] = {sigma0 / row.s[0], sigma0 / row.s[1]};
  for (std::size_t i = 0; i < 2; ++i) {
    const double r = 1.0 - root[i] * root[i] * product(i, projected_[i]);
    row.r[i] = std::clamp(r, 0.0, 1.0);
    const double detectable = smallest_detectable(row.s[i], row.r[i], delta0);
    row.effect[i] = root[i] * root[i] * detectable * shift(i, point, projected_[i]);
  }
  row.rxy = -root[0] * root[1] * product(0, projected_[1]);
  return true;
}

// |Q_p a'|: how far an error of unit weight and size shifts the object point.
double ImageFigures::shift(std::size_t equation, const ObjectPoint& point,
                           const Projected& projected) const {
  Vec3 shift = projected.point;
  if (datum_ != nullptr) {
    const double* const ap = equation_.point + 3 * equation;
    const double* const ar =
        equation_.rows.data() + equation * static_cast<std::size_t>(equation_.stride);
    Row7 along{};
    for (std::int32_t k = 0; k < 3; ++k) datum_->add_product(point.index + k, ap[k], along);
    for (std::size_t j = 0; j < width_; ++j) datum_->add_product(unknowns_[j], ar[j], along);
    shift = shift + datum_->change_of_shift(point.index / 3, along);
  }
  return std::sqrt(dot(shift, shift));
}

}  // namespace vorn
