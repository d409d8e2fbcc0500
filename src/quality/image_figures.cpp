#include "quality/image_figures.h"

#include <algorithm>
#include <cmath>

#include "base/place.h"
#include "lsq/linalg/kernels.h"
#include "quality/final_system.h"
#include "quality/inner_datum.h"
#include "sensors/camera.h"

namespace vorn {

ImageFigures::ImageFigures(const BundleImage& image, const FinalSystem& system)
    : image_(&image),
      equations_(std::make_unique<ObservationEquations>(image, Derivatives::exact)),
      blocks_(blocks_of(image, system.normal())) {
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

bool RayFigures::fill(const ImageFigures& of, std::span<const Ray> rays) {
  if (!of.equations().takes_packs()) return fill_one_by_one(of, rays);
  if (!form(of, rays)) return false;
  const double* x = packed_.rows.data();
  for (std::size_t k = 0; k < rays.size(); ++k, x += of.stride()) {
    const auto lane = static_cast<int>(k);
    std::array<Vec3, 2> point_rows;
    for (std::size_t i = 0; i < 3; ++i) {
      point_rows[0][i] = packed_.point_x[i][lane];
      point_rows[1][i] = packed_.point_y[i][lane];
    }
    fill(of, rays[k], point_rows, {x, x + kMostRays * place(of.stride())});
  }
  return true;
}

// The design rows of all of them, those of everything but the object points lined up.
bool RayFigures::form(const ImageFigures& of, std::span<const Ray> rays) {
  Vec3Of<Pack> object_points;
  for (int lane = 0; lane < Pack::kSize; ++lane) {
    // The last one serves the lanes that are left over, too.
    const Ray& ray = rays[std::min(place(lane), rays.size() - 1)];
    for (std::size_t i = 0; i < 3; ++i) object_points[i].set(lane, ray.point->xyz[i]);
  }
  // Exact derivatives do not depend on what was measured.
  constexpr double kNothing = 0.0;
  if (!of.equations().find_rows({kNothing, kNothing}, object_points, packed_)) return false;
  packed_.rows.resize(std::max(packed_.rows.size(), 4 * kMostRays * place(of.stride())));
  const PackedRows design{packed_.x.data()->data(), packed_.y.data()->data(), packed_.rows.data(),
                          static_cast<std::int32_t>(of.unknowns().size()), of.stride()};
  kernels().weigh_packed_rows(design, {});
  return true;
}

bool RayFigures::fill_one_by_one(const ImageFigures& of, std::span<const Ray> rays) {
  for (const Ray& ray : rays) {
    const Observation observation = observation_of(*ray.row->point, *of.image().camera);
    if (of.equations().linearise(observation, ray.point->xyz, equation_) !=
        ObservationEquations::Outcome::formed) {
      return false;
    }
    const double* const a = equation_.point;
    const double* const rows = equation_.rows.data();
    fill(of, ray, {{{a[0], a[1], a[2]}, {a[3], a[4], a[5]}}}, {rows, rows + equation_.stride});
  }
  return true;
}

// The cofactors of the point with the blocks of the image, out of those with all blocks.
void RayFigures::list_coupling(const ImageFigures& of,
                               const SelectedInverse::PointCofactors& cofactors) {
  const NormalMatrix& normal = system_.normal();
  coupling_.clear();
  for (const std::int32_t block : of.blocks()) {
    const std::int32_t start = normal.coupling_start(cofactors.point, block);
    coupling_.push_back({cofactors.coupled + start, nullptr, normal.block_width(block)});
  }
}

RayFigures::Projected RayFigures::project(const Vec3& point_row, const double* rest,
                                          const SelectedInverse::PointCofactors& cofactors) {
  Projected projected{point_row, rest, {}, {}};
  for (BlockProduct& block : coupling_) {
    block.x = rest;
    rest += block.width;
  }
  kernels().multiply_blocks(projected.c.data(), coupling_.data(),
                            static_cast<std::int64_t>(coupling_.size()));
  for (std::size_t r = 0; r < 3; ++r) {
    const double* const q = cofactors.own[r];
    const Vec3& a = projected.a;
    projected.point[r] = q[0] * a[0] + q[1] * a[1] + q[2] * a[2] + projected.c[r];
  }
  return projected;
}

// Of one image point, from its rows of the object point and those of everything else, x before y.
void RayFigures::fill(const ImageFigures& of, const Ray& ray, const std::array<Vec3, 2>& point_rows,
                      const std::array<const double*, 2>& rows) {
  list_coupling(of, *ray.cofactors);
  const Projected x = project(point_rows[0], rows[0], *ray.cofactors);
  const Projected y = project(point_rows[1], rows[1], *ray.cofactors);
  // A Q A' of both equations, with a = (a_p, a_r): a_p Q_p a' + a_r (Q_rp a_p' + Q_rr a_r').
  double forms[3];
  kernels().quadratic_forms(forms, of.cofactors(), x.rest, y.rest, of.stride());
  const double xx = dot(x.a, x.point) + dot(x.c, x.a) + forms[0];
  const double xy = dot(x.a, y.point) + dot(x.c, y.a) + forms[1];
  const double yy = dot(y.a, y.point) + dot(y.c, y.a) + forms[2];
  // R = I - P^1/2 A Q A' P^1/2 (Foerstner 1987), P = diag((sigma0/s)^2).
  ImagePointResult& row = *ray.row;
  const double sigma0 = system_.sigma0_prior();
  const double root[2] = {sigma0 / row.s[0], sigma0 / row.s[1]};
  row.r = {std::clamp(1.0 - root[0] * root[0] * xx, 0.0, 1.0),
           std::clamp(1.0 - root[1] * root[1] * yy, 0.0, 1.0)};
  row.rxy = -root[0] * root[1] * xy;
  for (std::size_t i = 0; i < 2; ++i) {
    const double detectable = smallest_detectable(row.s[i], row.r[i], delta0_);
    row.effect[i] = root[i] * root[i] * detectable * shift(of, *ray.point, i == 0 ? x : y);
  }
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
