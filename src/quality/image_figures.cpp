#include "quality/image_figures.h"

#include <algorithm>
#include <cmath>

#include "lsq/linalg/kernels.h"
#include "quality/final_system.h"
#include "quality/inner_datum.h"
#include "sensors/camera.h"

namespace vorn {

ImageFigures::ImageFigures(const BundleImage& image, const FinalSystem& system)
    : image_(&image), blocks_(blocks_of(image, system.normal())) {
  const NormalMatrix& normal = system.normal();
  for (const std::int32_t block : blocks_) {
    for (std::int32_t k = 0; k < normal.block_width(block); ++k) {
      unknowns_.push_back(normal.block_index(block) + k);
    }
  }
  PointEquation row;
  row.resize(static_cast<std::int32_t>(unknowns_.size()));
  stride_ = row.stride;
  const auto stride = static_cast<std::size_t>(stride_);
  cofactors_.resize(stride * stride);
  for (std::size_t i = 0; i < unknowns_.size(); ++i) {
    for (std::size_t j = 0; j < unknowns_.size(); ++j) {
      cofactors_[i * stride + j] = system.cofactor(unknowns_[i], unknowns_[j]);
    }
  }
}

RayFigures::RayFigures(const std::vector<ImageFigures>& images, const FinalSystem& system,
                       const InnerDatum* datum)
    : images_(images), system_(system), datum_(datum), equations_(images.size()) {}

ObservationEquations& RayFigures::equations_of(std::int32_t image) {
  const auto at = static_cast<std::size_t>(image);
  if (!equations_[at]) {
    equations_[at] =
        std::make_unique<ObservationEquations>(images_[at].image(), Derivatives::exact);
  }
  return *equations_[at];
}

// The cofactors of the point with the unknowns of the image, out of those with all blocks.
void RayFigures::gather_coupling(const ImageFigures& of,
                                 const SelectedInverse::PointCofactors& cofactors) {
  const NormalMatrix& normal = system_.normal();
  const std::size_t width = of.unknowns().size();
  coupling_.resize(3 * width);
  double* out = coupling_.data();
  for (const std::int32_t block : of.blocks()) {
    const std::int32_t n = normal.block_width(block);
    const std::int32_t column = normal.coupling_start(cofactors.point, block) / 3;
    for (std::int32_t r = 0; r < 3; ++r) {
      std::copy_n(cofactors.coupled + r * cofactors.width + column, n,
                  out + static_cast<std::size_t>(r) * width);
    }
    out += n;
  }
}

RayFigures::Projected RayFigures::project(std::size_t equation, const ImageFigures& of,
                                          const SelectedInverse::PointCofactors& cofactors) const {
  Projected projected;
  std::copy_n(equation_.point + 3 * equation, 3, projected.a.begin());
  projected.rest = equation_.rows.data() + equation * static_cast<std::size_t>(equation_.stride);
  const BlockProduct coupling{coupling_.data(), projected.rest,
                              static_cast<std::int32_t>(of.unknowns().size())};
  kernels().multiply_blocks(projected.c.data(), &coupling, 1);
  for (std::size_t r = 0; r < 3; ++r) {
    const double* const q = cofactors.own[r];
    const Vec3& a = projected.a;
    projected.point[r] = q[0] * a[0] + q[1] * a[1] + q[2] * a[2] + projected.c[r];
  }
  return projected;
}

bool RayFigures::fill(const ObjectPoint& point, const SelectedInverse::PointCofactors& cofactors,
                      double delta0, ImagePointResult& row) {
  const ImageFigures& of = images_[static_cast<std::size_t>(row.image)];
  const Observation observation = observation_of(*row.point, *of.image().camera);
  if (equations_of(row.image).linearise(observation, point.xyz, equation_) !=
      ObservationEquations::Outcome::formed) {
    return false;
  }
  gather_coupling(of, cofactors);
  const Projected x = project(0, of, cofactors);
  const Projected y = project(1, of, cofactors);
  // A Q A' of both equations, with a = (a_p, a_r): a_p Q_p a' + a_r (Q_rp a_p' + Q_rr a_r').
  double forms[3];
  kernels().quadratic_forms(forms, of.cofactors(), x.rest, y.rest, of.stride());
  const double xx = dot(x.a, x.point) + dot(x.c, x.a) + forms[0];
  const double xy = dot(x.a, y.point) + dot(x.c, y.a) + forms[1];
  const double yy = dot(y.a, y.point) + dot(y.c, y.a) + forms[2];
  // R = I - P^1/2 A Q A' P^1/2 (Foerstner 1987), P = diag((sigma0/s)^2).
  const double sigma0 = system_.sigma0_prior();
  const double root[2] = {sigma0 / row.s[0], sigma0 / row.s[1]};
  row.r = {std::clamp(1.0 - root[0] * root[0] * xx, 0.0, 1.0),
           std::clamp(1.0 - root[1] * root[1] * yy, 0.0, 1.0)};
  row.rxy = -root[0] * root[1] * xy;
  for (std::size_t i = 0; i < 2; ++i) {
    const double detectable = smallest_detectable(row.s[i], row.r[i], delta0);
    row.effect[i] = root[i] * root[i] * detectable * shift(of, point, i == 0 ? x : y);
  }
  return true;
}

// |Q_p a'|: how far an error of unit weight and size shifts the object point.
double RayFigures::shift(const ImageFigures& of, const ObjectPoint& point,
                         const Projected& projected) const {
  Vec3 shift = projected.point;
  if (datum_ != nullptr) {
    Row7 along{};
    for (std::int32_t k = 0; k < 3; ++k) {
      datum_->add_product(point.index + k, projected.a[static_cast<std::size_t>(k)], along);
    }
    for (std::size_t j = 0; j < of.unknowns().size(); ++j) {
      datum_->add_product(of.unknowns()[j], projected.rest[j], along);
    }
    shift = shift + datum_->change_of_shift(point.index / 3, along);
  }
  return std::sqrt(dot(shift, shift));
}

}  // namespace vorn
